/// The steps of the scenarios: the calls and log lines that a test expects, and what the calls return. A step with
/// parameters is a lambda. An answer is {exit code, output}; {} is success without output. QDebug quotes the texts in
/// log lines.
#pragma once

#include "scripted_host.h"

const QString kit = "HalvaneRelayKit";
const QString hidden; ///< The name of a hidden adapter, or a missing id: NULL.

const auto call = [](QString text, Answer answer = {}) -> Step { return {{text, answer}}; };
const auto logged = [](QString level, QString function, QString text = "") -> Step {
    return {{'[' + level + "] " + function + "(): " + text}};
};
/// An operation begins, fails, or logs the output of its tool. check() logs a text.
const auto begins = [](QString operation) { return logged("trace", "Tap::" + operation); };
const auto fails = [](QString operation) { return logged("ERROR", "Tap::" + operation); };
const auto output = [](QString operation, QString text) {
    return logged("debug", "Tap::" + operation, '"' + text + '"');
};
const auto noted = [](QString text) { return logged("debug", "Tap::check", text); };

/// A run starts with a command word, waits, succeeds, or fails.
const auto started = [](QString word) {
    return 3 * call("getCommonLogDir()") + call(R"(Logging to: "log/tap-log.txt")") +
           logged("debug", "main", "arg: '" + word + "'");
};
const Step waited = call("Sleep 1000");
const Step good = waited + call("exit code 0");
const Step bad = logged("ERROR", "main") + call("exit code -1");

/// The WMI query finds interfaces, or fails.
const auto inventory = [](Rows rows) {
    Step step = begins("readInterfaces") + Step{{"WMI query", {}, rows}};
    for (const auto &[name, id] : rows)
        step += logged("LOG", "readInterfacesProgrammatically", "NetConnectionID : \"" + name + '"') +
                logged("LOG", "readInterfacesProgrammatically", "PNPDeviceID : \"" + id + '"');
    return step;
};
const Step noInventory =
    begins("readInterfaces") + call("WMI query", {-2147417831}) +
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

/// The device console tool alone, and as a part of create() and update().
const auto devcon = [](QString arguments, Answer answer) {
    return call("C:\\Program Files//HalvaneRelayKit/bin/devcon-x64.exe " + arguments, answer);
};
const auto driver = [](QString operation, Answer answer) {
    const QString inf = "[C:\\Program Files//HalvaneRelayKit/driver/win10/x64/OemVista.inf]";
    const QString verb = operation == "create" ? "[install] " : "[update] ";
    return begins(operation) + call("winVersion", {0, "10.3"}) +
           logged("debug", "Tap::pathDriver", "Detected OS version 10.3") + devcon(verb + inf + " [tap0901]", answer);
};
const Step created = driver("create", {}) + output("create", "");
const Step updated = driver("update", {}) + output("update", "");
const Step updateFails = driver("update", {2, "lost"}) + fails("update");

/// enable(), disable() and rename() run powershell and, if there is a second answer, netsh.
const auto adapter = [](QString operation, QString purpose, QString cmdlet, QString netsh, Answers answers) {
    Step step = begins(operation) + call("cmd /c powershell -NonInteractive -Command  \"" + cmdlet + " \"", answers[0]);
    if (answers.size() == 2)
        step += logged("ERROR", "Tap::" + operation, "Failed to " + purpose + " using powershell, trying netsh...") +
                call("netsh.exe interface set interface " + netsh, answers[1]);
    return step;
};
const auto toggle = [](QString operation, Answers answers, QString name = kit) {
    const QString verb = operation == "enable" ? "Enable" : "Disable";
    return adapter(operation, operation + " interface", verb + "-NetAdapter -Name '" + name + "' -Confirm:$False",
                   "name='" + name + "' admin=" + verb.toUpper() + 'D', answers);
};
const auto renaming = [](QString from, QString to, Answers answers) {
    return adapter("rename", "rename", "Rename-NetAdapter -Name '" + from + "' -NewName '" + to + '\'',
                   "name='" + from + "' newname='" + to + '\'', answers);
};
const auto renamed = [](QString from, QString to) { return renaming(from, to, {{}}) + output("rename", ""); };
const auto renameFails = [](QString from, QString to) {
    return renaming(from, to, {{2, "lost"}, {-1, "lost"}}) + fails("rename");
};
const Step disabled = toggle("disable", {{}}) + output("disable", "") + good;

/// check() reads the inventory for the first time; reads it before and after an update; installs the driver.
const auto checking = [](Step firstRead) { return started("check") + begins("check") + firstRead; };
const auto update = [](Rows before, Rows after) { return checking(inventory(before)) + updated + inventory(after); };
const Step none = checking(inventory({})) + noted("No tap interfaces/drivers detected");
const Step installed = none + created;
const Step present = noted("Tap interface already present") + disabled;

/// An interface has lost its name, and gets it back.
const auto nameLost = [](QString name, QString id, QString newName) {
    const QString text = R"(Rename required! Old key: "%1" old val: "%2" new key: "%3" new val: "%2")";
    return noted(text.arg(name, id, newName));
};
const auto restored = [](QString name, QString id, QString newName) {
    return nameLost(name, id, newName) + renamed(newName, name);
};

/// A poll finds no more interfaces than before; finds new ids; and two polls find the same id.
const auto counts = [](int before, int now) {
    return noted(QString(R"(old count: "%1", new count: "%2")").arg(before).arg(now));
};
const auto polled = [](int before, Rows rows) { return inventory(rows) + counts(before, rows.size()); };
const auto seen = [](int before, Rows rows, QString ids) {
    return polled(before, rows) + noted("new ids: QSet(" + ids + ')');
};
const auto confirmed = [](int before, Rows rows, QString ids) {
    return seen(before, rows, ids) + waited + seen(before, rows, ids);
};
