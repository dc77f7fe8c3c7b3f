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

/// Every key of a machine file with its default. "*" stands for any key, and "code" for an exit code or HRESULT, which
/// is 0 by default. A list contains the default of its entries.
const char modelFile[] = R"({
    "system": {"x64": true, "wmic": true, "devcon": true, "logFolder": true},
    "interfaces": [{"name": "", "id": "", "enabled": true, "hidden": false, "hasDriver": true,
                    "listedFromRead": 1}],
    "faults": {
        "CoInitializeEx": "code", "CoInitializeSecurity": "code", "CoCreateInstance": "code",
        "ConnectServer": "code", "CoSetProxyBlanket": "code", "ExecQuery": "code",
        "wmiBreaksOffAfter": 1000,
        "devcon install": "code", "devcon update": "code", "devcon remove": "code",
        "powershell": "code", "netsh": "code",
        "createAtOnce": 1,
        "listNewFromRead": 1,
        "updateRenames": {"*": ""},
        "acceptTakenNames": false
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
        QJsonValue keyModel = keys.value(anyKeys ? "*" : key);
        if (keyModel.isUndefined())
            stop(keyPlace + ": unknown key");
        // A fault can be a list, with a value for each call.
        if (object.value(key).isArray() && place.endsWith(": faults")) {
            if (object.value(key).toArray().isEmpty())
                stop(keyPlace + ": expected at least one entry");
            keyModel = QJsonArray{keyModel};
        }
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
    const QJsonValue state = given.isArray() ? QJsonValue(given.array()) : QJsonValue(given.object());
    m_state = complete(state, model, path, ": ").toObject();
    for (const QJsonValue entry : m_state["interfaces"].toArray()) {
        m_interfaces.append({entry["name"].toString(), entry["id"].toString(), entry["enabled"].toBool(),
                             entry["hidden"].toBool(), entry["hasDriver"].toBool(), entry["listedFromRead"].toInt()});
    }
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

QJsonValue Machine::nextFault(const QString &key)
{
    QJsonObject faults = m_state["faults"].toObject();
    if (!faults[key].isArray())
        return faults[key];
    QJsonArray values = faults[key].toArray();
    QJsonValue value = values.first();
    if (values.size() > 1) {
        values.removeFirst();
        faults[key] = values;
        m_state["faults"] = faults;
        save();
    }
    return value;
}

QVector<WmiRow> Machine::wmiRows()
{
    QVector<WmiRow> rows;
    for (const Interface &each : listInterfaces()) {
        const WmiValue name{0, VARTYPE(each.hidden ? VT_NULL : VT_BSTR), each.name};
        rows.append({{"NetConnectionID", name}, {"PNPDeviceID", {0, VT_BSTR, each.id}}});
    }
    return rows.mid(0, nextFault("wmiBreaksOffAfter").toInt());
}

int Machine::devcon(const QString &program, const QStringList &arguments, QByteArray &output)
{
    const QString verb = arguments.value(0);
    const QString operand = arguments.value(1);
    if (verb == "remove")
        return removeDevices(operand, output);
    if (verb != "install" && verb != "update")
        return answer(output, "Invalid use of " + program, 3);
    const QString failure = program + ": command " + verb + " failed";
    int exitCode = nextFault("devcon " + verb).toInt();

    QString text;
    if (verb == "install") {
        for (int count = nextFault("createAtOnce").toInt(); count > 0; --count)
            createDevice();
        text = "Device node created. Install is complete when drivers are installed...\r\n";
        save();
    }
    text += "Updating drivers for tap0901 from " + QDir::cleanPath(operand).replace('/', '\\') + ".\r\n";
    const auto isHidden = [](const Interface &each) { return each.hidden; };
    if (std::all_of(m_interfaces.begin(), m_interfaces.end(), isHidden))
        exitCode = 2;
    // 1 means that all is done and a restart is needed. After a failed installation, the new device has no driver.
    if (exitCode != 0 && exitCode != 1)
        return answer(output, text + failure, exitCode);

    const QJsonObject renames = verb == "update" ? nextFault("updateRenames").toObject() : QJsonObject();
    for (Interface &each : m_interfaces) {
        if (each.hidden)
            continue;
        if (!each.hasDriver)
            installDriver(each);
        each.name = renames.value(each.name).toString(each.name);
    }
    save();
    return answer(output, text + "Drivers installed successfully.", exitCode);
}

int Machine::removeDevices(const QString &operand, QByteArray &output)
{
    const int fault = nextFault("devcon remove").toInt();
    const bool restart = fault == 1;
    const char *const result = fault == 0 ? ": Removed" : restart ? ": Removed on reboot" : ": Remove failed";
    QString text;
    int count = 0;
    QVector<Interface> left;
    for (const Interface &each : qAsConst(m_interfaces)) {
        const bool matches = !each.hidden && (operand == "tap0901" || operand == "@" + each.id);
        if (matches) {
            text += each.id + result + "\r\n";
            count += fault == 0 || restart ? 1 : 0;
        }
        // A device that needs a restart to be removed stays until then.
        if (!matches || fault != 0)
            left.append(each);
    }
    m_interfaces = left;
    save();
    const QString last = count == 0 ? "No devices were removed."
                         : restart
                             ? "The %1 device(s) are ready to be removed. To remove the devices, reboot the system."
                             : "%1 device(s) were removed.";
    // The exit code is 0 even if a removal fails or no device matches.
    return answer(output, text + QString(last).replace("%1", QString::number(count)), count > 0 && restart ? 1 : 0);
}

int Machine::run(const QString &tool, const QString &arguments, QByteArray &output)
{
    if (tool == "wmic" && !system()["wmic"].toBool())
        return answer(output, "'wmic' is not recognized as an internal or external command.", 1);
    if (const int fault = nextFault(tool).toInt(); fault != 0)
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
        if (taken && !nextFault("acceptTakenNames").toBool())
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

void Machine::createDevice()
{
    QString id = R"(ROOT\NET\0000)";
    const auto taken = [&](const Interface &each) { return each.id == id; };
    for (int number = 1; std::any_of(m_interfaces.begin(), m_interfaces.end(), taken); ++number)
        id = QString(R"(ROOT\NET\%1)").arg(number, 4, 10, QChar('0'));
    m_interfaces.append({"", id, true, false, false, nextFault("listNewFromRead").toInt()});
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
