#include "machine.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSaveFile>
#include <QTextCodec>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace
{

/// Every key of a machine file with its default. "*" stands for any key, and a list contains the default of its
/// entries.
const char modelFile[] = R"({
    "system": {"major": 10, "minor": 0, "x64": true, "wmic": true, "devcon": true},
    "driver": "",
    "interfaces": [{"name": "", "id": "", "enabled": true, "hidden": false, "listedFromRead": 1}],
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

// They recognise a command and its names, since the unit tests check each character. A quote ends a name, and what
// follows then matches nothing.
const char powershellChange[] =
    R"re("(?<verb>\w+)-NetAdapter -Name '(?<name>[^']*)'(?: -NewName '(?<to>[^']*)'| -Confirm:\$False) "$)re";
const char netshChange[] = " name='(?<name>[^']*)' (?:newname='(?<to>[^']*)'|admin=(?<verb>\\w+))$";

/// Returns `given` with its missing keys added. `place` says where it is in the file, for the message.
QJsonValue complete(QJsonValue given, const QJsonValue &model, const QString &place, const char *separator = ".")
{
    // In the order of QJsonValue::Type. Faults of WMI and of tools are codes; all other numbers count something.
    const char *const types[] = {"null", "true or false", "an integer from 0 to 1000", "a text", "a list", "an object"};
    const char *const code = "a code as the log shows it, signed, such as -2147217385";
    const bool isCode = model.isDouble() && place.contains(QRegularExpression(R"(: faults\.(wmi|tools)\.)"));
    if (given.isUndefined())
        given = model.isArray() ? QJsonArray() : model.isObject() ? QJsonObject() : model;
    const bool outOfRange =
        given.toDouble() != given.toInt() || (!isCode && (given.toInt() < 0 || given.toInt() > 1000));
    if (given.type() != model.type() || outOfRange)
        stop(place + ": expected " + (isCode ? code : types[model.type()]));

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

void stop(const QString &message)
{
    std::fprintf(stderr, "%s\n", message.toUtf8().constData());
    std::exit(2);
}

Machine::Machine(const QString &path) : m_path(path)
{
    QByteArray text = "{}";
    QFile file(path);
    if (file.exists()) {
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
    const QJsonObject model = QJsonDocument::fromJson(modelFile).object();
    m_state = complete(QJsonValue::fromVariant(given.toVariant()), model, path, ": ").toObject();
    for (const QJsonValue entry : m_state["interfaces"].toArray()) {
        m_interfaces.append({entry["name"].toString(), entry["id"].toString(), entry["enabled"].toBool(),
                             entry["hidden"].toBool(), entry["listedFromRead"].toInt()});
    }
    if (!file.exists())
        save();
}

void Machine::save()
{
    QJsonArray interfaces;
    for (const Interface &each : m_interfaces) {
        interfaces.append(QJsonObject{{"name", each.name},
                                      {"id", each.id},
                                      {"enabled", each.enabled},
                                      {"hidden", each.hidden},
                                      {"listedFromRead", each.listedFromRead}});
    }
    m_state["interfaces"] = interfaces;
    QSaveFile file(m_path);
    const QByteArray text = QJsonDocument(m_state).toJson();
    // On a full disk only write() and flush() fail: commit() alone would replace the file by a truncated one.
    if (!file.open(QIODevice::WriteOnly) || file.write(text) < text.size() || !file.flush() || !file.commit())
        stop(m_path + ": cannot be written: " + file.errorString());
}

QVector<Machine::Interface> Machine::listInterfaces()
{
    QVector<Interface> listed;
    for (Interface &each : m_interfaces) {
        if (each.listedFromRead > 1) {
            --each.listedFromRead;
            continue;
        }
        listed.append(each);
        if (each.hidden)
            listed.last().name.clear();
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
    const QString operand = arguments.value(1);
    // As with the real tool, 1 means that all is done and a restart is needed.
    const int exitCode = verb == "update" && m_interfaces.isEmpty() ? 2 : fault("devcon " + verb);
    if (exitCode != 0 && exitCode != 1)
        return answer(output, "devcon failed.", exitCode);

    QString message = "Drivers installed successfully.";
    if (verb == "install") {
        m_state["driver"] = operand;
        for (int i = 0; i < faults()["createAtOnce"].toInt(); ++i)
            createInterface();
    } else if (verb == "update") {
        m_state["driver"] = operand;
        const QJsonObject renames = faults()["updateRenames"].toObject();
        for (Interface &each : m_interfaces)
            each.name = renames.value(each.name).toString(each.name);
    } else if (verb == "remove") {
        const bool all = operand == "tap0901";
        if (all)
            m_state["driver"] = "";
        const auto end = std::remove_if(m_interfaces.begin(), m_interfaces.end(),
                                        [&](const Interface &each) { return all || operand == "@" + each.id; });
        message = QString("%1 device(s) were removed.").arg(m_interfaces.end() - end);
        m_interfaces.erase(end, m_interfaces.end());
    } else {
        return answer(output, "devcon does not understand: " + arguments.join(' '), 3);
    }
    save();
    if (verb == "install" && faults()["installFailsLate"].toBool())
        return answer(output, "devcon failed.", 2);
    return answer(output, message, exitCode);
}

int Machine::run(const QString &tool, const QString &arguments, QByteArray &output)
{
    if (tool == "wmic" && !system()["wmic"].toBool())
        return answer(output, "'wmic' is not recognized as an internal or external command.", 1);
    if (fault(tool) != 0)
        return answer(output, tool + " failed.", fault(tool));

    // Redirected, wmic writes UTF-16LE. Powershell writes the console's code page, and an empty line without headings.
    if (arguments.contains("PNPDeviceID")) {
        output = tool == "wmic" ? inventoryText("NetConnectionID  PNPDeviceID\r\n", "UTF-16LE")
                                : inventoryText("\r\n", "IBM850");
        return 0;
    }
    const QRegularExpression change(tool == "powershell" ? powershellChange : netshChange);
    const QRegularExpressionMatch match = change.match(arguments.trimmed());
    if (!match.hasMatch())
        return answer(output, tool + " does not understand: " + arguments, 1);
    const QString name = match.captured("name");
    const QString newName = match.captured("to");
    const int at = find(name);
    if (at < 0 || m_interfaces[at].hidden)
        return answer(output, "No interface has the name " + name, 1);
    if (newName.isNull()) {
        m_interfaces[at].enabled = match.captured("verb").startsWith("enable", Qt::CaseInsensitive);
    } else {
        const bool taken = newName != name && find(newName) >= 0;
        if (taken && !faults()["acceptTakenNames"].toBool())
            return answer(output, "The name is taken: " + newName, 1);
        m_interfaces[at].name = newName;
        // A name that two interfaces share then means the one that had it first.
        if (taken)
            m_interfaces.append(m_interfaces.takeAt(at));
    }
    save();
    output.clear();
    return 0;
}

int Machine::find(const QString &name) const
{
    const auto found = std::find_if(m_interfaces.begin(), m_interfaces.end(),
                                    [&](const Interface &each) { return each.name == name; });
    return found == m_interfaces.end() ? -1 : int(found - m_interfaces.begin());
}

void Machine::createInterface()
{
    QString name = "Ethernet";
    for (int number = 2; find(name) >= 0; ++number)
        name = QString("Ethernet %1").arg(number);
    QString id = R"(ROOT\NET\0000)";
    const auto taken = [&](const Interface &each) { return each.id == id; };
    for (int number = 1; std::any_of(m_interfaces.begin(), m_interfaces.end(), taken); ++number)
        id = QString(R"(ROOT\NET\%1)").arg(number, 4, 10, QChar('0'));
    m_interfaces.append({name, id, true, false, faults()["listNewFromRead"].toInt()});
}

QByteArray Machine::inventoryText(const QString &heading, const char *codec)
{
    QString text = heading;
    for (const Interface &each : listInterfaces())
        text += each.name + "  " + each.id + "  \r\n";
    return QTextCodec::codecForName(codec)->fromUnicode(text);
}
