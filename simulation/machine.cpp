#include "machine.h"

#include <QDir>
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
/// entries. "code", "codes" and "flags" describe a value instead: an exit code or HRESULT, 0 by default; one or a list
/// of them, one for each call; true or false, false by default, or a list of them, one for each call.
const char modelFile[] = R"({
    "system": {"major": 10, "minor": 0, "x64": true, "wmic": true, "devcon": true},
    "driver": "",
    "interfaces": [{"name": "", "id": "", "enabled": true, "hidden": false, "hasDriver": true,
                    "listedFromRead": 1}],
    "faults": {
        "wmiFromQuery": 1,
        "wmi": {"CoInitializeEx": "code", "CoInitializeSecurity": "code", "CoCreateInstance": "code",
                "ConnectServer": "code", "CoSetProxyBlanket": "code", "ExecQuery": "code"},
        "wmiBreaksOffAfter": 1000,
        "tools": {"devcon install": "codes", "devcon update": "codes", "devcon remove": "codes",
                  "powershell": "codes", "netsh": "codes", "wmic": "codes"},
        "updateRenames": {"*": ""},
        "acceptTakenNames": false,
        "createAtOnce": 1,
        "installFailsLate": "flags",
        "listNewFromRead": 1,
        "noLogFolder": false
    }
})";

// They recognise a command and its names; the unit tests check each character. An apostrophe ends a name, and what
// follows then matches nothing. To netsh only double quotes hold a value together, so a space ends a name as well.
const char powershellChange[] =
    R"re("(?<verb>\w+)-NetAdapter -Name '(?<name>[^']*)'(?: -NewName '(?<to>[^']*)'| -Confirm:\$False) "$)re";
const char netshChange[] = " name='(?<name>[^' ]*)' (?:newname='(?<to>[^' ]*)'|admin=(?<verb>\\w+))$";

/// Returns `given` with its missing keys added. `place` says where it is in the file, for the message.
QJsonValue complete(QJsonValue given, const QJsonValue &model, const QString &place, const char *separator = ".")
{
    const bool isCode = model == "code";
    if (model == "codes" || model == "flags") {
        const QJsonValue each = model == "codes" ? QJsonValue("code") : QJsonValue(false);
        if (!given.isArray())
            return complete(given, each, place);
        if (given.toArray().isEmpty())
            stop(place + ": expected at least one entry");
        return complete(given, QJsonArray{each}, place);
    }
    // In the order of QJsonValue::Type. A number that is not a code counts something.
    const char *const types[] = {"null",     "true or false", "an integer from 0 to 1000",
                                 "a string", "a list",        "an object"};
    const char *const code = "a code as the log shows it, signed, such as -2147217385";
    if (given.isUndefined())
        given = model.isArray() ? QJsonArray() : model.isObject() ? QJsonObject() : isCode ? 0 : model;
    const bool outOfRange =
        given.toDouble() != given.toInt() || (!isCode && (given.toInt() < 0 || given.toInt() > 1000));
    if (given.type() != (isCode ? QJsonValue::Double : model.type()) || outOfRange)
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

/// Returns the entry for this call of a value that can be a list, one entry for each call. Removes it from the list
/// unless it is the last one.
QJsonValue takeNext(QJsonObject &object, const QString &key)
{
    QJsonValue value = object.value(key);
    if (!value.isArray())
        return value;
    QJsonArray list = value.toArray();
    QJsonValue entry = list.first();
    if (list.size() > 1)
        list.removeFirst();
    object[key] = list;
    return entry;
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
    const QJsonValue state = given.isArray() ? QJsonValue(given.array()) : QJsonValue(given.object());
    m_state = complete(state, model, path, ": ").toObject();
    for (const QJsonValue entry : m_state["interfaces"].toArray()) {
        m_interfaces.append({entry["name"].toString(), entry["id"].toString(), entry["enabled"].toBool(),
                             entry["hidden"].toBool(), entry["hasDriver"].toBool(), entry["listedFromRead"].toInt()});
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
                                      {"hasDriver", each.hasDriver},
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
    bool changed = false;
    for (Interface &each : m_interfaces) {
        if (!each.hasDriver)
            continue;
        if (each.listedFromRead > 1) {
            --each.listedFromRead;
            changed = true;
            continue;
        }
        listed.append(each);
        if (each.hidden)
            listed.last().name.clear();
    }
    if (changed)
        save();
    return listed;
}

HRESULT Machine::wmiFault(const QString &step) const
{
    if (faults()["wmiFromQuery"].toInt() > 1)
        return 0;
    // WBEM_E_FAILED; the program does not look at the code.
    if (step == "Next")
        return faults()["wmiBreaksOffAfter"].toInt() < 1000 ? -2147217407 : 0;
    return faults()["wmi"].toObject()[step].toInt();
}

QVector<WmiRow> Machine::wmiRows()
{
    QVector<WmiRow> rows;
    for (const Interface &each : listInterfaces()) {
        const WmiValue name{0, VARTYPE(each.hidden ? VT_NULL : VT_BSTR), each.name};
        rows.append({{"NetConnectionID", name}, {"PNPDeviceID", {0, VT_BSTR, each.id}}});
    }
    if (const int from = faults()["wmiFromQuery"].toInt(); from > 1)
        setFault("wmiFromQuery", from - 1);
    else
        rows = rows.mid(0, faults()["wmiBreaksOffAfter"].toInt());
    return rows;
}

int Machine::devcon(const QString &program, const QStringList &arguments, QByteArray &output)
{
    const QString verb = arguments.value(0);
    const QString operand = arguments.value(1);
    const QString failure = program + ": command " + verb + " failed";
    const int fault = nextFault("devcon " + verb);
    // 1 means that all is done and a restart is needed.
    const bool fails = fault != 0 && fault != 1;
    if (verb == "remove")
        return removeDevices(operand, fault, output);
    if (verb != "install" && verb != "update")
        return answer(output, "Invalid use of " + program, 3);

    QString text;
    if (verb == "install") {
        // An INF file that cannot be read is noticed before the device is created, any other failure afterwards.
        if (fails)
            return answer(output, failure, fault);
        for (int i = 0; i < faults()["createAtOnce"].toInt(); ++i)
            createDevice();
        text = "Device node created. Install is complete when drivers are installed...\r\n";
        save();
    }
    text += "Updating drivers for tap0901 from " + QDir::cleanPath(operand).replace('/', '\\') + ".\r\n";
    const auto isHidden = [](const Interface &each) { return each.hidden; };
    const bool failsLate =
        verb == "install" ? nextInstallFailsLate() : std::all_of(m_interfaces.begin(), m_interfaces.end(), isHidden);
    if (fails || failsLate)
        return answer(output, text + failure, fails ? fault : 2);

    m_state["driver"] = operand;
    const QJsonObject renames = verb == "update" ? faults()["updateRenames"].toObject() : QJsonObject();
    for (Interface &each : m_interfaces) {
        if (each.hidden)
            continue;
        if (!each.hasDriver)
            installDriver(each);
        each.name = renames.value(each.name).toString(each.name);
    }
    save();
    return answer(output, text + "Drivers installed successfully.", fault);
}

int Machine::removeDevices(const QString &operand, int fault, QByteArray &output)
{
    // The exit code is 0 even if a removal fails or no device matches.
    const char *const result = fault == 0 ? ": Removed" : fault == 1 ? ": Removed on reboot" : ": Remove failed";
    QString text;
    QVector<Interface> left;
    for (const Interface &each : m_interfaces) {
        const bool matches = operand == "@" + each.id || (operand == "tap0901" && !each.hidden);
        if (matches)
            text += each.id + result + "\r\n";
        if (!matches || (fault != 0 && fault != 1))
            left.append(each);
    }
    const int count = m_interfaces.size() - left.size();
    m_interfaces = left;
    save();
    const bool restart = fault == 1 && count > 0;
    QString last = count == 0 ? "No devices were removed."
                   : restart  ? "The %1 device(s) are ready to be removed. To remove the devices, reboot the system."
                              : "%1 device(s) were removed.";
    return answer(output, text + last.replace("%1", QString::number(count)), restart ? 1 : 0);
}

int Machine::run(const QString &tool, const QString &arguments, QByteArray &output)
{
    if (tool == "wmic" && !system()["wmic"].toBool())
        return answer(output, "'wmic' is not recognized as an internal or external command.", 1);
    if (const int fault = nextFault(tool); fault != 0)
        return answer(output, tool + " failed.", fault);

    // Redirected, wmic writes UTF-16LE. Powershell writes the console's code page, and an empty line without headings.
    if (arguments.contains("PNPDeviceID")) {
        output = tool == "wmic" ? inventoryText("NetConnectionID  PNPDeviceID\r\n", "UTF-16LE")
                                : inventoryText("\r\n", "IBM850");
        return 0;
    }
    // The state of the machine, for acceptance.cmd.
    if (arguments.contains("ConfigManagerErrorCode")) {
        const QVector<Interface> listed = listInterfaces();
        QString kit = "absent";
        for (const Interface &each : listed) {
            if (each.name == "HalvaneRelayKit")
                kit = each.enabled ? "enabled" : "disabled";
        }
        return answer(output, QString("%1 %2").arg(listed.size()).arg(kit), 0);
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

int Machine::nextFault(const QString &tool)
{
    QJsonObject tools = faults()["tools"].toObject();
    const int code = takeNext(tools, tool).toInt();
    setFault("tools", tools);
    return code;
}

bool Machine::nextInstallFailsLate()
{
    QJsonObject left = faults();
    const bool fails = takeNext(left, "installFailsLate").toBool();
    setFault("installFailsLate", left["installFailsLate"]);
    return fails;
}

void Machine::setFault(const QString &key, const QJsonValue &value)
{
    QJsonObject left = faults();
    if (left[key] == value)
        return;
    left[key] = value;
    m_state["faults"] = left;
    save();
}

int Machine::find(const QString &name) const
{
    const auto found = std::find_if(m_interfaces.begin(), m_interfaces.end(),
                                    [&](const Interface &each) { return each.hasDriver && each.name == name; });
    return found == m_interfaces.end() ? -1 : int(found - m_interfaces.begin());
}

void Machine::createDevice()
{
    QString id = R"(ROOT\NET\0000)";
    const auto taken = [&](const Interface &each) { return each.id == id; };
    for (int number = 1; std::any_of(m_interfaces.begin(), m_interfaces.end(), taken); ++number)
        id = QString(R"(ROOT\NET\%1)").arg(number, 4, 10, QChar('0'));
    m_interfaces.append({"", id, true, false, false, faults()["listNewFromRead"].toInt()});
}

void Machine::installDriver(Interface &device)
{
    device.hasDriver = true;
    for (int number = 1; device.name.isEmpty(); ++number) {
        const QString name = number == 1 ? "Ethernet" : QString("Ethernet %1").arg(number);
        if (find(name) < 0)
            device.name = name;
    }
}

QByteArray Machine::inventoryText(const QString &heading, const char *codec)
{
    QString text = heading;
    for (const Interface &each : listInterfaces())
        text += each.name + "  " + each.id + "  \r\n";
    return QTextCodec::codecForName(codec)->fromUnicode(text);
}
