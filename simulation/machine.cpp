#include "machine.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSaveFile>
#include <QSet>
#include <QTextCodec>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace
{

/// Every key of a machine file, with the value that stands for a missing one; "*" alone stands for any keys. No
/// interface is there unless the file holds it.
const char modelFile[] = R"({
    "system": {"major": 10, "minor": 0, "x64": true, "wmic": true, "devcon": true},
    "driver": "",
    "interfaces": [{"name": "", "id": "", "enabled": true, "listedFromRead": 1}],
    "faults": {
        "wmiFromQuery": 1,
        "wmi": {"CoInitializeEx": 0, "CoInitializeSecurity": 0, "CoCreateInstance": 0,
                "ConnectServer": 0, "CoSetProxyBlanket": 0, "ExecQuery": 0},
        "tools": {"devcon install": 0, "devcon update": 0, "devcon remove": 0,
                  "powershell": 0, "netsh": 0, "wmic": 0},
        "updateRenames": {"*": ""},
        "acceptTakenNames": false,
        "createAtOnce": 1,
        "installFailsLate": false,
        "listNewFromRead": 1,
        "noLogFolder": false
    }
})";

const char wmicInventory[] = "nic where Description='TAP-Windows Adapter V9' get NetConnectionID, PNPDeviceID";
const char powershellInventory[] =
    R"(-NonInteractive -Command "& { Get-WmiObject -Class Win32_NetworkAdapter )"
    R"(-Filter """Description='TAP-Windows Adapter V9'""" | Format-Table  -HideTableHeaders )"
    R"(-Property  'NetConnectionID', 'PNPDeviceID' } ")";

const struct {
    const char *tool;
    const char *pattern;
} adapterCommands[] = {
    {"powershell", R"(-NonInteractive -Command +"(?<state>Enable|Disable)-NetAdapter )"
                   R"(-Name '(?<name>[^']*)' -Confirm:\$False ")"},
    {"powershell", R"(-NonInteractive -Command +"Rename-NetAdapter -Name '(?<name>[^']*)' -NewName '(?<to>[^']*)' ")"},
    {"netsh", "interface set interface name='(?<name>[^']*)' admin=(?<state>ENABLE|DISABLE)D"},
    {"netsh", "interface set interface name='(?<name>[^']*)' newname='(?<to>[^']*)'"},
};

[[noreturn]] void stop(const QString &message)
{
    std::fprintf(stderr, "%s\n", message.toUtf8().constData());
    std::exit(2);
}

/// Gives `given` with the keys that it lacks; `place` is where it stands, for the message.
QJsonValue complete(QJsonValue given, const QJsonValue &model, const QString &place, const char *separator = ".")
{
    // In the order of QJsonValue::Type.
    const char *const kinds[] = {"null", "true or false", "a whole number of 32 bits", "a text", "a list", "an object"};
    if (given.isUndefined())
        given = model.isArray() ? QJsonArray() : model.isObject() ? QJsonObject() : model;
    if (given.type() != model.type() || (given.isDouble() && given.toDouble() != given.toInt()))
        stop(place + ": expected " + kinds[model.type()]);
    // A number that is not 0 by itself counts something; the others are codes.
    if (model.toInt() > 0 && (given.toInt() < 0 || given.toInt() > 1000))
        stop(place + ": expected a whole number from 0 to 1000");

    if (given.isArray()) {
        QJsonArray array = given.toArray();
        for (int i = 0; i < array.size(); ++i)
            array[i] = complete(array[i], model[0], QString("%1[%2]").arg(place).arg(i));
        return array;
    }
    if (!given.isObject())
        return given;
    QJsonObject object = given.toObject();
    const QJsonObject keys = model.toObject();
    const bool anyKeys = keys.contains("*");
    for (const QString &key : object.keys() + (anyKeys ? QStringList() : keys.keys())) {
        const QString keyPlace = place + separator + key;
        const QJsonValue keyModel = keys.value(anyKeys ? "*" : key);
        if (keyModel.isUndefined())
            stop(keyPlace + ": unknown key");
        object[key] = complete(object.value(key), keyModel, keyPlace);
    }
    return object;
}

int answer(QByteArray &output, const QString &text, int exitCode)
{
    output = text.toUtf8() + "\r\n";
    return exitCode;
}

} // namespace

Machine::Machine(const QString &path) : m_path(path)
{
    QByteArray text = "{}";
    QFile file(path);
    if (file.exists()) {
        // A device or a pipe may never end.
        if (!QFileInfo(file).isFile())
            stop(path + ": not a regular file");
        if (!file.open(QIODevice::ReadOnly))
            stop(path + ": " + file.errorString());
        text = file.readAll();
        if (text.trimmed().isEmpty())
            stop(path + ": the file is empty");
    }
    QJsonParseError error;
    const QJsonDocument given = QJsonDocument::fromJson(text, &error);
    if (error.error != QJsonParseError::NoError) {
        const QString before = QString::fromUtf8(text.left(error.offset));
        const int column = before.size() - before.lastIndexOf('\n');
        stop(QString("%1: line %2, column %3: ").arg(path).arg(before.count('\n') + 1).arg(column) +
             error.errorString());
    }
    m_state = complete(given.isArray() ? QJsonValue(given.array()) : given.object(),
                       QJsonDocument::fromJson(modelFile).object(), path, ": ")
                  .toObject();
    for (const QJsonValue entry : m_state["interfaces"].toArray()) {
        m_interfaces.append({entry["name"].toString(), entry["id"].toString(), entry["enabled"].toBool(),
                             entry["listedFromRead"].toInt()});
    }
    if (!file.exists())
        save();
}

void Machine::save()
{
    QJsonArray interfaces;
    for (const Interface &each : m_interfaces) {
        interfaces.append(QJsonObject{
            {"name", each.name}, {"id", each.id}, {"enabled", each.enabled}, {"listedFromRead", each.listedFromRead}});
    }
    m_state["interfaces"] = interfaces;
    QSaveFile file(m_path);
    const QByteArray text = QJsonDocument(m_state).toJson();
    // On a full disk only the size written and the flush tell: commit() alone would put a cut file in place.
    if (!file.open(QIODevice::WriteOnly) || file.write(text) < text.size() || !file.flush() || !file.commit())
        stop(m_path + ": " + file.errorString());
}

QVector<Machine::Interface> Machine::listInterfaces()
{
    QVector<Interface> listed;
    for (Interface &each : m_interfaces) {
        if (each.listedFromRead <= 1)
            listed.append(each);
        else
            --each.listedFromRead;
    }
    if (listed.size() < m_interfaces.size())
        save();
    return listed;
}

HRESULT Machine::wmiFault(const QString &step) const
{
    return faults()["wmiFromQuery"].toInt() > 1 ? 0 : faults()["wmi"].toObject()[step].toInt();
}

QVector<WmiRow> Machine::wmiRows()
{
    QVector<WmiRow> rows;
    for (const Interface &each : listInterfaces()) {
        // A hidden adapter has no name, which WMI gives as NULL.
        const WmiValue name{0, VARTYPE(each.name.isEmpty() ? VT_NULL : VT_BSTR), each.name};
        rows.append({{"NetConnectionID", name}, {"PNPDeviceID", {0, VT_BSTR, each.id}}});
    }
    if (const int from = faults()["wmiFromQuery"].toInt(); from > 1) {
        QJsonObject left = faults();
        left["wmiFromQuery"] = from - 1;
        m_state["faults"] = left;
        save();
    }
    return rows;
}

int Machine::devcon(const QStringList &arguments, QByteArray &output)
{
    const QString verb = arguments.value(0);
    // As with the real tool, 1 means that all is done and a restart is needed.
    const int exitCode = fault("devcon " + verb);
    if (exitCode != 0 && exitCode != 1)
        return answer(output, "devcon failed.", exitCode);

    const bool withInf = arguments.size() == 3 && arguments[2] == "tap0901";
    if (withInf && (verb == "install" || verb == "update")) {
        if (arguments[1].isEmpty() || (verb == "update" && m_interfaces.isEmpty()))
            return answer(output, "devcon failed.", 2);
        m_state["driver"] = arguments[1];
        if (verb == "install") {
            for (int i = 0; i < faults()["createAtOnce"].toInt(); ++i)
                createInterface();
        } else {
            const QJsonObject renames = faults()["updateRenames"].toObject();
            for (Interface &each : m_interfaces)
                each.name = renames.value(each.name).toString(each.name);
        }
        save();
        if (verb == "install" && faults()["installFailsLate"].toBool())
            return answer(output, "devcon failed.", 2);
        return answer(output, "Drivers installed successfully.", exitCode);
    }
    if (verb == "remove" && arguments.size() == 2) {
        const QString &target = arguments[1];
        const auto end = std::remove_if(m_interfaces.begin(), m_interfaces.end(), [&](const Interface &each) {
            return target == "tap0901" || target == "@" + each.id;
        });
        const int count = int(m_interfaces.end() - end);
        m_interfaces.erase(end, m_interfaces.end());
        if (target == "tap0901")
            m_state["driver"] = "";
        else if (count == 0)
            return answer(output, "No devices were removed.", 2);
        save();
        return answer(output, QString("%1 device(s) were removed.").arg(count), exitCode);
    }
    return answer(output, "devcon does not understand: " + arguments.join(' '), 3);
}

int Machine::run(const QString &tool, const QString &arguments, QByteArray &output)
{
    if (tool == "wmic" && !system()["wmic"].toBool())
        return answer(output, "'wmic' is not recognized as an internal or external command.", 1);
    if (fault(tool) != 0)
        return answer(output, tool + " failed.", fault(tool));

    const QString line = arguments.trimmed();
    if (tool == "wmic" && line == wmicInventory) {
        output = QTextCodec::codecForName("UTF-16LE")->fromUnicode(inventoryText("NetConnectionID  PNPDeviceID\r\n"));
        return 0;
    }
    // Redirected, powershell writes in the console's code page; without a heading, an empty line comes first.
    if (tool == "powershell" && line == powershellInventory) {
        output = QTextCodec::codecForName("IBM850")->fromUnicode(inventoryText("\r\n"));
        return 0;
    }
    for (const auto &command : adapterCommands) {
        const QRegularExpression pattern(QRegularExpression::anchoredPattern(command.pattern));
        const QRegularExpressionMatch match = pattern.match(line);
        if (tool == command.tool && match.hasMatch())
            return changeAdapter(match.captured("name"), match.captured("state"), match.captured("to"), output);
    }
    return answer(output, tool + " does not understand: " + arguments, 1);
}

int Machine::find(const QString &name) const
{
    const auto found = std::find_if(m_interfaces.begin(), m_interfaces.end(),
                                    [&](const Interface &each) { return each.name == name; });
    return found == m_interfaces.end() ? -1 : int(found - m_interfaces.begin());
}

void Machine::createInterface()
{
    QSet<QString> ids;
    for (const Interface &each : m_interfaces)
        ids.insert(each.id);
    QString name = "Ethernet";
    for (int number = 2; find(name) >= 0; ++number)
        name = QString("Ethernet %1").arg(number);
    QString id;
    for (int number = 0; id.isEmpty() || ids.contains(id); ++number)
        id = QString(R"(ROOT\NET\%1)").arg(number, 4, 10, QChar('0'));
    m_interfaces.append({name, id, true, faults()["listNewFromRead"].toInt()});
}

/// Sets the state, or the name when no state is given.
int Machine::changeAdapter(const QString &name, const QString &state, const QString &newName, QByteArray &output)
{
    const int at = find(name);
    if (at < 0)
        return answer(output, "No interface has the name " + name, 1);
    if (!state.isEmpty()) {
        m_interfaces[at].enabled = state.startsWith("enable", Qt::CaseInsensitive);
    } else {
        const bool taken = newName != name && find(newName) >= 0;
        if (newName.isEmpty() || (taken && !faults()["acceptTakenNames"].toBool()))
            return answer(output, "This name cannot be given: " + newName, 1);
        m_interfaces[at].name = newName;
        // Of two bearers of a name, a command means the one that has borne it longer.
        if (taken)
            m_interfaces.append(m_interfaces.takeAt(at));
    }
    save();
    output.clear();
    return 0;
}

QString Machine::inventoryText(const QString &heading)
{
    QString text;
    for (const Interface &each : listInterfaces())
        text += each.name + "  " + each.id + "  \r\n";
    if (!text.isEmpty())
        text.prepend(heading);
    return text;
}
