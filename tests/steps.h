#pragma once

#include "scripted_host.h"

/// The steps of the scenarios: what the program calls and logs, and what the calls return. An answer is {exit code,
/// output}; {} is success without output. Texts in log lines are as QDebug quotes them.
using Answers = QVector<Answer>;
const QString kit = "HalvaneRelayKit";

const auto call = [](QString text, Answer answer = {}) -> Step { return {{text, answer}}; };
const auto logged = [](QString level, QString function, QString text = "") -> Step {
    return {{'[' + level + "] " + function + "(): " + text}};
};
/// A debug statement of check(). An operation fails. An operation logs the output of its tool.
const auto noted = [](QString text) { return logged("debug", "Tap::check", text); };
const auto fails = [](QString operation) { return logged("ERROR", "Tap::" + operation); };
const auto output = [](QString operation, QString text) {
    return logged("debug", "Tap::" + operation, '"' + text + '"');
};

/// A run starts, waits, ends well and ends badly.
const auto started = [](QString word) {
    return 3 * call("getCommonLogDir()") + call(R"(Logging to: "log/tap-log.txt")") +
           logged("debug", "main", "arg: '" + word + "'");
};
const Step waited = call("Sleep 1000");
const Step good = waited + call("exit code 0");
const Step bad = logged("ERROR", "main") + call("exit code -1");

/// The WMI query finds interfaces, or fails.
const auto inventory = [](Rows rows) {
    Step step = logged("trace", "Tap::readInterfaces") + Step{{"WMI query", {}, rows}};
    for (const auto &[name, id] : rows)
        step += logged("LOG", "readInterfacesProgrammatically", "NetConnectionID : \"" + name + '"') +
                logged("LOG", "readInterfacesProgrammatically", "PNPDeviceID : \"" + id + '"');
    return step;
};
const Step noInventory =
    logged("trace", "Tap::readInterfaces") + call("WMI query", {-2147417831}) +
    logged("ERROR", "readInterfacesProgrammatically", "Failed to initialize security. Error code = -2147417831") +
    logged("ERROR", "Tap::readInterfaces", "Failed to read interfaces programmatically");

/// A command lists the interfaces in the scratch file, and the program finds them there.
const auto wmic = [](Answer answer) {
    return call("cmd /c wmic nic where Description='TAP-Windows Adapter V9' get NetConnectionID, PNPDeviceID "
                "> \"SCRATCH\"",
                answer);
};
const auto powershell = [](Answer answer) {
    return call(R"(cmd /c powershell -NonInteractive -Command "& { Get-WmiObject -Class Win32_NetworkAdapter )"
                R"(-Filter """Description='TAP-Windows Adapter V9'""" | Format-Table  -HideTableHeaders )"
                R"(-Property  'NetConnectionID', 'PNPDeviceID' } "> "SCRATCH" )",
                answer);
};
const auto found = [](Rows rows) {
    Step step = logged("debug", "Tap::readInterfaces", "Reading interfaces");
    for (const auto &[name, id] : rows)
        step += logged("debug", "Tap::readInterfaces", "Found device name: \"" + name + "\", id: \"" + id + '"');
    return step;
};

/// The device console tool runs alone, and as a part of create(), update() and remove().
const auto devcon = [](QString arguments, Answer answer) {
    return call(R"(C:\Program Files//HalvaneRelayKit/bin/devcon-x64.exe )" + arguments, answer);
};
const auto driver = [](QString operation, Answer answer) {
    const Step entry = logged("trace", "Tap::" + operation);
    if (operation == "remove")
        return entry + devcon("[remove] [tap0901]", answer);
    const QString inf = R"([C:\Program Files//HalvaneRelayKit/driver/win10/x64/OemVista.inf])";
    return entry + call("winVersion") + logged("debug", "Tap::pathDriver", "Detected OS version 10.3") +
           devcon((operation == "create" ? "[install] " : "[update] ") + inf + " [tap0901]", answer);
};
const Step created = driver("create", {}) + output("create", "");
const Step updated = driver("update", {}) + output("update", "");
const Step updateFailed = driver("update", {2, "lost"}) + fails("update");

/// The tries of enable(), disable() and rename(): the first answer is powershell's, the second one netsh's.
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
const auto renamed = [](QString from, QString to) { return renameTries(from, to, {{}}) + output("rename", ""); };
const auto renameFailed = [](QString from, QString to) {
    return renameTries(from, to, {{2, "lost"}, {-1, "lost"}}) + fails("rename");
};
const Step disabled = toggleTries("disable", {{}}) + output("disable", "") + good;

/// check() with the first inventory; with two inventories and an update between; up to create() without interfaces.
const auto checking = [](Step firstRead) { return started("check") + logged("trace", "Tap::check") + firstRead; };
const auto update = [](Rows before, Rows after) { return checking(inventory(before)) + updated + inventory(after); };
const Step none = checking(inventory({})) + noted("No tap interfaces/drivers detected");
const Step present = noted("Tap interface already present") + disabled;

/// An interface has lost its old name; it is restored.
const auto nameLost = [](QString name, QString id, QString newName) {
    return noted(
        QString(R"(Rename required! Old key: "%1" old val: "%2" new key: "%3" new val: "%2")").arg(name, id, newName));
};
const auto restored = [](QString name, QString id, QString newName) {
    return nameLost(name, id, newName) + renamed(newName, name);
};

/// A poll without a rise; a poll with one, and the set of new ids; two of the latter with a wait between.
const auto counts = [](int before, int now) {
    return noted(QString(R"(old count: "%1", new count: "%2")").arg(before).arg(now));
};
const auto polled = [](int before, int now, Rows rows) { return inventory(rows) + counts(before, now); };
const auto seen = [](int before, int now, Rows rows, QStringList ids) {
    const QString set = ids.isEmpty() ? "" : '"' + ids.join("\", \"") + '"';
    return polled(before, now, rows) + noted("new ids: QSet(" + set + ')');
};
const auto confirmed = [](int before, int now, Rows rows, QStringList ids) {
    return seen(before, now, rows, ids) + waited + seen(before, now, rows, ids);
};
