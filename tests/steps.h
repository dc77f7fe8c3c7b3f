/// The steps that the scenarios consist of: what the program calls and logs, and what the calls return. An answer is
/// {exit code, output}; {} is success without output. Texts in log lines are as QDebug quotes and escapes them.
#pragma once

#include "scripted_host.h"

const QString kit = "HalvaneRelayKit";

/// A line of the journal. If it is a call, the call returns `answer`.
const auto call = [](QString text, Answer answer = {}) -> Step { return {{text, answer}}; };
/// A log line of any function.
const auto logged = [](QString level, QString function, QString text = "") {
    return call('[' + level + "] " + function + "(): " + text);
};
/// A debug line of check().
const auto noted = [](QString text) { return logged("debug", "check", text); };
/// An operation of Tap fails, or one of its steps does.
const auto fails = [](QString operation, QString text = "") { return logged("ERROR", operation, text); };
/// An operation of Tap succeeds and logs the output of the tool that it ran.
const auto output = [](QString name, QString text = "") { return logged("debug", name, '"' + text + '"'); };

/// main() opens the log and logs the command word.
const auto started = [](QString word) {
    return call(R"(not in the log: Logging to: "log/tap-log.txt")") + logged("debug", "main", "arg: '" + word + "'");
};
/// The program waits for one second.
const Step waited = call("Sleep 1000");
/// How a run ends: with a wait and 0, or with an ERROR line and -1.
const Step good = waited + call("exit code 0");
const Step bad = logged("ERROR", "main") + call("exit code -1");

/// A property of a row of the WMI query: a text, or a VARIANT of another type.
struct Value : WmiValue {
    Value(const QString &string) : WmiValue{0, VT_BSTR, string} {}
    Value(const char *string) : Value(QString(string)) {}
    Value(VARTYPE vartype) : WmiValue{0, vartype, {}} {}
};
/// The name or id of a hidden adapter.
const Value hidden(VT_NULL);
/// Names and ids of interfaces.
using Rows = QVector<std::pair<Value, Value>>;

/// The calls of the query until it reads rows. CoInitializeEx() returns 1 (S_FALSE), which is a success.
const Step query = call("CoInitializeEx(null, 0)", {1}) +
                   call("CoInitializeSecurity(null, -1, null, null, 0, 3, null, 0, null)") +
                   call("CoCreateInstance(4590f811, null, 1, dc12a687)") + call("SysAllocString()") +
                   call("ConnectServer(ROOT\\CIMV2, null, null, null, 0, null, null)") + call("SysFreeString()") +
                   call("CoSetProxyBlanket(services, 10, 0, null, 3, 3, null, 0)") + 2 * call("SysAllocString()") +
                   call("ExecQuery(WQL, SELECT NetConnectionID, PNPDeviceID FROM Win32_NetworkAdapter "
                        "WHERE Description = 'TAP-Windows Adapter V9', 48, null)") +
                   2 * call("SysFreeString()");
const auto property = [](QString name, Value value) {
    return call("Get(" + name + ", 0, null, null)") +
           logged("LOG", "readInterfacesProgrammatically", name + " : \"" + value.text + '"') + call("VariantClear()");
};
/// readInterfaces() gets these interfaces from WMI. The last Next() fails, which the program treats as the end of the
/// list.
const auto wmi = [](Rows rows) {
    Step step = logged("trace", "readInterfaces") + query;
    for (const auto &[name, id] : rows) {
        // The line of ExecQuery(), after the trace line and nine other calls.
        step[10].answer.rows.append({{"NetConnectionID", name}, {"PNPDeviceID", id}});
        step += call("Next(-1, 1)") + property("NetConnectionID", name) + property("PNPDeviceID", id) +
                call("Release(row)");
    }
    return step + call("Next(-1, 1)", {0x80041001L}) + call("Release(services)") + call("Release(locator)") +
           call("Release(enumerator)") + call("CoUninitialize()");
};
/// readInterfaces() gets nothing from WMI: this function fails, and the query makes no call after the first `calls`
/// except the last of its releases. A step for one of the commands has to follow.
const auto queryFails = [](QString function, int calls, QString text, int releases) {
    Step step = query.mid(0, calls);
    // As the published headers write the code, which is negative only where long has 32 bits.
    for (Line &line : step)
        line.answer.result = line.text.startsWith(function) ? 0x80041003L : 0;
    const Step released = call("Release(services)") + call("Release(locator)") + call("CoUninitialize()");
    return logged("trace", "readInterfaces") + step +
           logged("ERROR", "readInterfacesProgrammatically", text + "-2147217405") + released.mid(3 - releases) +
           fails("readInterfaces", "Failed to read interfaces programmatically");
};
const Step noWmi = queryFails("CoInitializeSecurity", 2, "Failed to initialize security. Error code = ", 1);

/// The commands that write the inventory into the scratch file.
const QString wmic =
    R"(cmd /c wmic nic where Description='TAP-Windows Adapter V9' get NetConnectionID, PNPDeviceID > "SCRATCH")";
const QString powershell =
    R"(cmd /c powershell -NonInteractive -Command "& { Get-WmiObject -Class Win32_NetworkAdapter )"
    R"(-Filter """Description='TAP-Windows Adapter V9'""" | Format-Table  -HideTableHeaders )"
    R"(-Property  'NetConnectionID', 'PNPDeviceID' } "> "SCRATCH" )";
/// readInterfaces() finds these interfaces in the scratch file.
const auto found = [](Rows rows) {
    Step step = logged("debug", "readInterfaces", "Reading interfaces");
    for (const auto &[name, id] : rows) {
        const QString text = "Found device name: \"" + name.text + "\", id: \"" + id.text + '"';
        step += logged("debug", "readInterfaces", text);
    }
    return step;
};

/// The device console tool runs.
const auto devcon = [](QString arguments, Answer answer) {
    return call(R"(C:\Program Files//HalvaneRelayKit/bin/devcon-x64.exe )" + arguments, answer);
};
/// create(), update() or remove() runs the device console tool. A step for the outcome has to follow.
const auto driver = [](QString operation, Answer answer) {
    const Step entry = logged("trace", operation);
    if (operation == "remove")
        return entry + devcon("[remove] [tap0901]", answer);
    const QString inf = R"([C:\Program Files//HalvaneRelayKit/driver/win10/x64/OemVista.inf])";
    return entry + call("winVersion", {0, "10.3"}) + logged("debug", "pathDriver", "Detected OS version 10.3") +
           devcon((operation == "create" ? "[install] " : "[update] ") + inf + " [tap0901]", answer);
};
/// create() succeeds; update() succeeds, or fails.
const Step created = driver("create", {}) + output("create");
const Step updated = driver("update", {}) + output("update");
const Step updateFailed = driver("update", {2, "lost"}) + fails("update");

/// enable(), disable() or rename() runs powershell and, if there is a second answer, netsh. A step for the outcome has
/// to follow.
const auto tries = [](QString operation, QVector<Answer> answers, QString name = kit, QString newName = {}) {
    const bool isRename = operation == "rename";
    const QString verb = operation[0].toUpper() + operation.mid(1);
    const QString option = isRename ? "-NewName '" + newName + '\'' : "-Confirm:$False";
    const QString change = isRename ? "newname='" + newName + '\'' : "admin=" + verb.toUpper() + 'D';
    const QString purpose = isRename ? operation : operation + " interface";
    const QString line = "cmd /c powershell -NonInteractive -Command  \"" + verb + "-NetAdapter -Name '" + name + "' ";
    Step step = logged("trace", operation) + call(line + option + " \"", answers[0]);
    if (answers.size() == 2)
        step += fails(operation, "Failed to " + purpose + " using powershell, trying netsh...") +
                call("netsh.exe interface set interface name='" + name + "' " + change, answers[1]);
    return step;
};
/// rename() succeeds, or fails.
const auto renamed = [](QString from, QString to) { return tries("rename", {{}}, from, to) + output("rename"); };
const auto renameFailed = [](QString from, QString to) {
    return tries("rename", {{2, "lost"}, {-1, "lost"}}, from, to) + fails("rename");
};
/// check() disables the interface in the end, and the run succeeds. Ends with `good`.
const Step disabled = tries("disable", {{}}) + output("disable") + good;

/// check() starts. `firstRead` is how the first inventory is read.
const auto checking = [](Step firstRead) { return logged("trace", "check") + firstRead; };
/// check() up to the second inventory, with a successful update between the two.
const auto update = [](Rows before, Rows after) { return checking(wmi(before)) + updated + wmi(after); };
/// check() on a machine without interfaces, up to create().
const Step none = checking(wmi({})) + noted("No tap interfaces/drivers detected");
/// check() ends on a machine that had the interface already. Ends with `good`.
const Step present = noted("Tap interface already present") + disabled;

/// check() notices that the update renamed an interface, and restores the name.
const auto restored = [](QString name, QString id, QString newName) {
    const QString text = R"(Rename required! Old key: "%1" old val: "%2" new key: "%3" new val: "%2")";
    return noted(text.arg(name, id, newName)) + renamed(newName, name);
};

/// A poll compares the number of interfaces before create() and now.
const auto counts = [](int before, int now) {
    return noted(QString(R"(old count: "%1", new count: "%2")").arg(before).arg(now));
};
/// A poll finds no more interfaces than before create().
const auto polled = [](int before, Rows rows) { return wmi(rows) + counts(before, rows.size()); };
/// A poll finds new ids, here in the order of a QSet.
const auto newIds = [](QStringList ids) {
    return noted("new ids: QSet(" + (ids.isEmpty() ? "" : '"' + ids.join("\", \"") + '"') + ')');
};
/// A poll finds more interfaces than before create(), with these new ids.
const auto seen = [](int before, Rows rows, QStringList ids) { return polled(before, rows) + newIds(ids); };
/// Two polls find the same new id.
const auto confirmed = [](int before, Rows rows, QString id) {
    return seen(before, rows, {id}) + waited + seen(before, rows, {id});
};
