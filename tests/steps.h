/// The steps that the scenarios consist of: what the program calls and logs, and what the calls return. An answer is
/// {exit code, output}; {} is success without output. Strings in log lines are as QDebug quotes and escapes them.
#pragma once

#include "scripted_host.h"

namespace steps
{

const QString kit = "HalvaneRelayKit";

/// A line of the journal. If it is a call, the call returns `answer`.
inline Step line(QString text, Answer answer = {})
{
    return {{text, answer}};
}
/// A log line of any function.
inline Step logged(QString level, QString function, QString text = "")
{
    return line('[' + level + "] " + function + "(): " + text);
}

/// The program waits for one second.
const Step waited = line("Sleep 1000");
/// How a run ends: with a wait and 0, or with an ERROR line and -1.
const Step good = waited + line("exit code 0");
const Step bad = logged("ERROR", "main") + line("exit code -1");

/// A property of a row of the WMI query: a string, for which Get() can fail, or a VARIANT of another type.
struct Value : WmiValue {
    Value(const QString &string, HRESULT code = 0) : WmiValue{code, VT_BSTR, string} {}
    Value(const char *string, HRESULT code = 0) : Value(QString(string), code) {}
    Value(VARTYPE vartype) : WmiValue{0, vartype, {}} {}
};
/// The name or id of a hidden adapter.
const Value hidden(VT_NULL);
/// Names and ids of interfaces.
using Rows = QVector<std::pair<Value, Value>>;

/// The calls of the query until it reads `rows`. CoInitializeEx() returns 1 (S_FALSE), which is a success.
inline Step query(QVector<WmiRow> rows)
{
    const Step allocated = line("SysAllocString()");
    const Step freed = line("SysFreeString()");
    const QString wql =
        "SELECT NetConnectionID, PNPDeviceID FROM Win32_NetworkAdapter WHERE Description = 'TAP-Windows Adapter V9'";
    return line("CoInitializeEx(null, 0)", {1}) +
           line("CoInitializeSecurity(null, -1, null, null, 0, 3, null, 0, null)") +
           line("CoCreateInstance(4590f811, null, 1, dc12a687)") + allocated +
           line("ConnectServer(ROOT\\CIMV2, null, null, null, 0, null, null)") + freed +
           line("CoSetProxyBlanket(services, 10, 0, null, 3, 3, null, 0)") + 2 * allocated +
           line("ExecQuery(WQL, " + wql + ", 48, null)", {0, {}, rows}) + 2 * freed;
}
/// readInterfaces() gets these interfaces from WMI. The last Next() fails, which the program treats as the end of the
/// list.
inline Step wmi(Rows rows)
{
    // A property that is not a string, or whose Get() fails, is logged as an empty string.
    const auto property = [](QString name, Value value) {
        const QString text = name + " : \"" + (value.result == 0 ? value.text : "") + '"';
        return line("Get(" + name + ", 0, null, null)") + logged("LOG", "readInterfacesProgrammatically", text) +
               line("VariantClear()");
    };
    QVector<WmiRow> listed;
    Step read;
    for (const auto &[name, id] : rows) {
        listed.append({{"NetConnectionID", name}, {"PNPDeviceID", id}});
        read += line("Next(-1, 1)") + property("NetConnectionID", name) + property("PNPDeviceID", id) +
                line("Release(row)");
    }
    return logged("trace", "readInterfaces") + query(listed) + read + line("Next(-1, 1)", {0x80041001L}) +
           line("Release(services)") + line("Release(locator)") + line("Release(enumerator)") +
           line("CoUninitialize()");
}
/// readInterfaces() gets nothing from WMI, because this function fails. `end` is how the query ends. A step for one of
/// the commands has to follow.
inline Step queryFails(QString function, QString text, Step end)
{
    Step step = logged("trace", "readInterfaces");
    bool failed = false;
    for (Line each : query({})) {
        // The strings that the failing call received are still freed.
        if (failed && each.text != "SysFreeString()")
            break;
        failed = failed || each.text.startsWith(function + '(');
        // -1 as the real SDK headers write a code, which is negative only where long has 32 bits.
        each.answer.result = failed ? 0xFFFFFFFFL : 0;
        step += each;
    }
    return step + logged("ERROR", "readInterfacesProgrammatically", text + "-1") + end +
           logged("ERROR", "readInterfaces", "Failed to read interfaces programmatically");
}
const Step wmiFails =
    queryFails("CoInitializeSecurity", "Failed to initialize security. Error code = ", line("CoUninitialize()"));

/// The commands that write the inventory into the scratch file.
const QString wmic =
    R"(cmd /c wmic nic where Description='TAP-Windows Adapter V9' get NetConnectionID, PNPDeviceID > "SCRATCH")";
const QString powershell =
    R"(cmd /c powershell -NonInteractive -Command "& { Get-WmiObject -Class Win32_NetworkAdapter )"
    R"(-Filter """Description='TAP-Windows Adapter V9'""" | Format-Table  -HideTableHeaders )"
    R"(-Property  'NetConnectionID', 'PNPDeviceID' } "> "SCRATCH" )";
/// readInterfaces() finds these interfaces in the scratch file.
inline Step found(Rows rows)
{
    Step step = logged("debug", "readInterfaces", "Reading interfaces");
    const QString text = R"(Found device name: "%1", id: "%2")";
    for (const auto &[name, id] : rows)
        step += logged("debug", "readInterfaces", text.arg(name.text, id.text));
    return step;
}

/// devcon, which its arguments follow, each in brackets.
const QString devcon = R"(C:\Program Files//HalvaneRelayKit/bin/devcon-x64.exe )";
/// create(), update() or remove() runs devcon. Then it logs the output or, after a failure, an ERROR line.
inline Step driver(QString operation, Answer answer = {}, QString output = "")
{
    Step step = logged("trace", operation);
    QString arguments = operation == "create" ? "[install] " : '[' + operation + "] ";
    if (operation != "remove") {
        step += line("winVersion", {0, "10.3"}) + logged("debug", "pathDriver", "Detected OS version 10.3");
        arguments += R"([C:\Program Files//HalvaneRelayKit/driver/win10/x64/OemVista.inf] )";
    }
    step += line(devcon + arguments + "[tap0901]", answer);
    return step + (answer.result > 1 ? logged("ERROR", operation) : logged("debug", operation, '"' + output + '"'));
}

/// enable(), disable() or rename() runs powershell and, if there is a second answer, netsh. Then it logs the output or,
/// after a failure, an ERROR line.
inline Step adapter(QString operation, QVector<Answer> answers, QString output, QString name, QString newName = {})
{
    const bool isRename = operation == "rename";
    const QString verb = operation[0].toUpper() + operation.mid(1);
    const QString option = isRename ? "-NewName '" + newName + '\'' : "-Confirm:$False";
    const QString change = isRename ? "newname='" + newName + '\'' : "admin=" + verb.toUpper() + 'D';
    const QString purpose = isRename ? operation : operation + " interface";
    const QString command = "cmd /c powershell -NonInteractive -Command  \"" + verb + "-NetAdapter -Name '" + name;
    Step step = logged("trace", operation) + line(command + "' " + option + " \"", answers[0]);
    if (answers.size() == 2)
        step += logged("ERROR", operation, "Failed to " + purpose + " using powershell, trying netsh...") +
                line("netsh.exe interface set interface name='" + name + "' " + change, answers[1]);
    const bool done = answers.last().result == 0;
    return step + (done ? logged("debug", operation, '"' + output + '"') : logged("ERROR", operation));
}
/// rename() succeeds with powershell, or has these answers.
inline Step renamed(QString from, QString to, QVector<Answer> answers = {{}})
{
    return adapter("rename", answers, "", from, to);
}

/// check() starts, and finds an empty inventory.
const Step checking = logged("trace", "check");
const Step noInterfaces = logged("debug", "check", "No tap interfaces/drivers detected");
/// check() ends: it disables the interface, which it had found or added.
const Step disabled = adapter("disable", {{}}, "", kit) + good;
const Step alreadyPresent = logged("debug", "check", "Tap interface already present");
const Step present = alreadyPresent + disabled;
/// check() notices that the update renamed an interface, and restores the name, or has these answers.
inline Step restored(QString name, QString id, QString newName, QVector<Answer> answers = {{}})
{
    const QString text = R"(Rename required! Old key: "%1" old val: "%2" new key: "%3" new val: "%2")";
    return logged("debug", "check", text.arg(name, id, newName)) + renamed(newName, name, answers);
}
/// A poll finds these interfaces. If they are more than before create(), it logs the new ids, here in the order of a
/// QSet.
inline Step polled(int before, Rows rows, QStringList newIds = {})
{
    const QString counts = QString(R"(old count: "%1", new count: "%2")").arg(before).arg(rows.size());
    const Step step = wmi(rows) + logged("debug", "check", counts);
    const QString set = newIds.isEmpty() ? "" : '"' + newIds.join("\", \"") + '"';
    return rows.size() > before ? step + logged("debug", "check", "new ids: QSet(" + set + ')') : step;
}

} // namespace steps
