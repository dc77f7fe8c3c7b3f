/// The steps that the scenarios consist of: what the program calls and logs, and what the calls return. An answer is
/// {exit code, output}; {} is success without output. Texts in log lines are as QDebug quotes and escapes them.
#pragma once

#include "scripted_host.h"

using Answers = QVector<Answer>;
const QString kit = "HalvaneRelayKit";

/// Any line of the journal. If it is a call, it returns `answer`.
const auto call = [](QString text, Answer answer = {}) -> Step { return {{text, answer}}; };
/// A log line of any function.
const auto logged = [](QString level, QString function, QString text = "") -> Step {
    return {{'[' + level + "] " + function + "(): " + text}};
};
/// A debug line of check().
const auto noted = [](QString text) { return logged("debug", "Tap::check", text); };
/// An operation of Tap fails.
const auto fails = [](QString operation) { return logged("ERROR", "Tap::" + operation); };
/// An operation of Tap succeeds and logs the output of the tool that it ran.
const auto output = [](QString operation, QString text) {
    return logged("debug", "Tap::" + operation, '"' + text + '"');
};

/// main() opens the log and logs the command word.
const auto started = [](QString word) {
    return 3 * call("getCommonLogDir()") + call(R"(not in the log: Logging to: "log/tap-log.txt")") +
           logged("debug", "main", "arg: '" + word + "'");
};
/// The program waits for one second.
const Step waited = call("Sleep 1000");
/// The run succeeds, after its last wait, or fails.
const Step good = waited + call("exit code 0");
const Step bad = logged("ERROR", "main") + call("exit code -1");

/// Names and ids of interfaces. A null QString is NULL, as with the name of a hidden adapter.
using Rows = QVector<QPair<QString, QString>>;

/// readInterfaces() gets these interfaces from WMI.
const auto inventory = [](Rows rows) {
    const auto value = [](QString text) { return WmiValue{0, VARTYPE(text.isNull() ? VT_NULL : VT_BSTR), text}; };
    Step step = logged("trace", "Tap::readInterfaces") + call("WMI query");
    for (const auto &[name, id] : rows) {
        step[1].rows.append({{"NetConnectionID", value(name)}, {"PNPDeviceID", value(id)}});
        step += logged("LOG", "readInterfacesProgrammatically", "NetConnectionID : \"" + name + '"') +
                logged("LOG", "readInterfacesProgrammatically", "PNPDeviceID : \"" + id + '"');
    }
    return step;
};
/// readInterfaces() gets nothing from WMI: the query fails with RPC_E_TOO_LATE. A step for one of the commands has to
/// follow.
const Step noInventory =
    logged("trace", "Tap::readInterfaces") + call("WMI query", {-2147417831}) +
    logged("ERROR", "readInterfacesProgrammatically", "Failed to initialize security. Error code = -2147417831") +
    logged("ERROR", "Tap::readInterfaces", "Failed to read interfaces programmatically");

/// The commands that write the inventory into the scratch file.
const QString wmic =
    R"(cmd /c wmic nic where Description='TAP-Windows Adapter V9' get NetConnectionID, PNPDeviceID > "SCRATCH")";
const QString powershell =
    R"(cmd /c powershell -NonInteractive -Command "& { Get-WmiObject -Class Win32_NetworkAdapter )"
    R"(-Filter """Description='TAP-Windows Adapter V9'""" | Format-Table  -HideTableHeaders )"
    R"(-Property  'NetConnectionID', 'PNPDeviceID' } "> "SCRATCH" )";
/// readInterfaces() finds these interfaces in the scratch file.
const auto found = [](Rows rows) {
    Step step = logged("debug", "Tap::readInterfaces", "Reading interfaces");
    for (const auto &[name, id] : rows)
        step += logged("debug", "Tap::readInterfaces", "Found device name: \"" + name + "\", id: \"" + id + '"');
    return step;
};

/// The device console tool runs.
const auto devcon = [](QString arguments, Answer answer) {
    return call(R"(C:\Program Files//HalvaneRelayKit/bin/devcon-x64.exe )" + arguments, answer);
};
/// create(), update() or remove() runs the device console tool. A step for the outcome has to follow.
const auto driver = [](QString operation, Answer answer) {
    const Step entry = logged("trace", "Tap::" + operation);
    if (operation == "remove")
        return entry + devcon("[remove] [tap0901]", answer);
    const QString inf = R"([C:\Program Files//HalvaneRelayKit/driver/win10/x64/OemVista.inf])";
    return entry + call("winVersion", {0, "10.3"}) + logged("debug", "Tap::pathDriver", "Detected OS version 10.3") +
           devcon((operation == "create" ? "[install] " : "[update] ") + inf + " [tap0901]", answer);
};
/// create() succeeds; update() succeeds, or fails.
const Step created = driver("create", {}) + output("create", "");
const Step updated = driver("update", {}) + output("update", "");
const Step updateFailed = driver("update", {2, "lost"}) + fails("update");

/// enable(), disable() or rename() runs powershell and, if there is a second answer, netsh. A step for the outcome has
/// to follow.
const auto adapterTries = [](QString operation, QString purpose, QString cmdlet, QString netsh, Answers answers) {
    Step step = logged("trace", "Tap::" + operation) +
                call("cmd /c powershell -NonInteractive -Command  \"" + cmdlet + " \"", answers[0]);
    if (answers.size() == 2)
        step += logged("ERROR", "Tap::" + operation, "Failed to " + purpose + " using powershell, trying netsh...") +
                call("netsh.exe interface set interface " + netsh, answers[1]);
    return step;
};
const auto toggleTries = [](QString operation, Answers answers, QString name = kit) {
    const QString verb = operation == "enable" ? "Enable" : "Disable";
    return adapterTries(operation, operation + " interface", verb + "-NetAdapter -Name '" + name + "' -Confirm:$False",
                        "name='" + name + "' admin=" + verb.toUpper() + 'D', answers);
};
const auto renameTries = [](QString from, QString to, Answers answers) {
    return adapterTries("rename", "rename", "Rename-NetAdapter -Name '" + from + "' -NewName '" + to + '\'',
                        "name='" + from + "' newname='" + to + '\'', answers);
};
/// rename() succeeds, or fails.
const auto renamed = [](QString from, QString to) { return renameTries(from, to, {{}}) + output("rename", ""); };
const auto renameFailed = [](QString from, QString to) {
    return renameTries(from, to, {{2, "lost"}, {-1, "lost"}}) + fails("rename");
};
/// check() disables the interface in the end, and the run succeeds.
const Step disabled = toggleTries("disable", {{}}) + output("disable", "") + good;

/// check() starts. `firstRead` is how the first inventory is read.
const auto checking = [](Step firstRead) { return started("check") + logged("trace", "Tap::check") + firstRead; };
/// check() up to the second inventory, with a successful update between the two.
const auto update = [](Rows before, Rows after) { return checking(inventory(before)) + updated + inventory(after); };
/// check() on a machine without interfaces, up to create().
const Step none = checking(inventory({})) + noted("No tap interfaces/drivers detected");
/// check() ends on a machine that had the interface already.
const Step present = noted("Tap interface already present") + disabled;

/// check() notices that the update renamed an interface.
const auto nameLost = [](QString name, QString id, QString newName) {
    return noted(
        QString(R"(Rename required! Old key: "%1" old val: "%2" new key: "%3" new val: "%2")").arg(name, id, newName));
};
/// check() notices that the update renamed an interface, and restores the name.
const auto restored = [](QString name, QString id, QString newName) {
    return nameLost(name, id, newName) + renamed(newName, name);
};

/// A poll compares the number of interfaces before create() and now.
const auto counts = [](int before, int now) {
    return noted(QString(R"(old count: "%1", new count: "%2")").arg(before).arg(now));
};
/// A poll finds no more interfaces than before create().
const auto polled = [](int before, Rows rows) { return inventory(rows) + counts(before, rows.size()); };
/// A poll finds more interfaces than before create(), with these new ids.
const auto seen = [](int before, Rows rows, QStringList ids) {
    const QString set = ids.isEmpty() ? "" : '"' + ids.join("\", \"") + '"';
    return polled(before, rows) + noted("new ids: QSet(" + set + ')');
};
/// Two polls find the same new id.
const auto confirmed = [](int before, Rows rows, QString id) {
    return seen(before, rows, {id}) + waited + seen(before, rows, {id});
};
