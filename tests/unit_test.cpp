/// The program's functions against a host that follows a script.
#include "main.h"
#include "scripted_host.h"
#include "tap.h"

#include <QDir>
#include <QScopedPointer>
#include <QTest>
#include <QThread>

using ZELK::InterfaceMap;

int mordwellMain(int argc, char **argv);

Q_DECLARE_METATYPE(ScriptedHost::Runs)
Q_DECLARE_METATYPE(WmiValue)
using Runs = ScriptedHost::Runs;

namespace
{

const QString devcon = R"(C:\Program Files//HalvaneRelayKit/bin/devcon-x64.exe)";
const QString inf = R"(C:\Program Files//HalvaneRelayKit/driver/win10/x64/OemVista.inf)";
const QString wmicTool = R"(C:\Windows\System32\wbem\WMIC.exe)";
const QString wmic = R"(cmd /c wmic nic where Description='TAP-Windows Adapter V9' get NetConnectionID, )"
                     R"(PNPDeviceID > "SCRATCH")";
const QString powershell = R"(cmd /c powershell -NonInteractive -Command "& { Get-WmiObject -Class )"
                           R"(Win32_NetworkAdapter -Filter """Description='TAP-Windows Adapter V9'""" | )"
                           R"(Format-Table  -HideTableHeaders -Property  'NetConnectionID', 'PNPDeviceID' } "> )"
                           R"("SCRATCH" )";
const Runs failedOnce = {{1, "lost"}};
const Runs failedTwice = {{2, "lost"}, {-1, "lost"}};

QByteArray utf16(const QString &text)
{
    return QByteArray(reinterpret_cast<const char *>(text.utf16()), text.size() * 2);
}

/// Calls the program's main() and gives the log, without the line ends.
QList<QByteArray> runMain(QList<QByteArray> arguments, int *exitCode)
{
    scripted->captureStatements();
    arguments.prepend("Mordwell");
    QVector<char *> argv;
    for (QByteArray &argument : arguments)
        argv << argument.data();
    *exitCode = mordwellMain(argv.size(), argv.data());
    QFile log(scripted->folder.filePath("log/tap-log.txt"));
    return log.open(QIODevice::ReadOnly) ? log.readAll().split('\n') : QList<QByteArray>();
}

/// The journal of check(), each command shortened to what it does and without the statements of other functions.
QStringList checkJournal()
{
    QStringList shortened;
    for (QString line : scripted->journal) {
        if (line.startsWith(devcon))
            line = line.contains("install") ? "create" : "update";
        else if (line.startsWith("cmd"))
            line = line.remove(QRegExp("^.*Command  \"|-NetAdapter -Name|-NewName |-Confirm.*$|\"$")).trimmed();
        else if (!line.contains("check: ") && !line.contains(QRegExp("^(read|Sleep|netsh)")))
            continue;
        shortened << line.replace("Sleep 1000", "wait").remove(" check");
    }
    return shortened;
}

} // namespace

class UnitTest : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        qunsetenv("TMPDIR");
        m_host.reset(new ScriptedHost);
        scripted = m_host.data();
        scripted->captureStatements();
        QDir::setCurrent(scripted->folder.path());
        qputenv("ProgramFiles", R"(C:\Program Files)");
    }

    void dispatch_data();
    void dispatch();
    void logLines();
    void unwritableLog();
    void wmiQuery_data();
    void wmiQuery();
    void wmiRows_data();
    void wmiRows();
    void fallback_data();
    void fallback();
    void parser_data();
    void parser();
    void paths_data();
    void paths();
    void driverOperations_data();
    void driverOperations();
    void adapterOperations_data();
    void adapterOperations();
    void check_data();
    void check();

private:
    QScopedPointer<ScriptedHost> m_host;
};

void UnitTest::dispatch_data()
{
    QTest::addColumn<QStringList>("words");
    QTest::addColumn<bool>("fails");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("called");
    QTest::addColumn<QString>("lastStatement");

    const auto usage = [](const QString &word) {
        QTest::addRow("usage for '%s'", qPrintable(word)) << QStringList{word} << true << 0 << "" << "debug\\].*Usage";
    };
    for (const char *word : {"help", "Create", "removeall", "list ", "lis", ""})
        usage(word);
    QTest::newRow("nothing") << QStringList{} << true << -1 << "read, install" << "ERROR";
    QTest::newRow("two words") << QStringList{"list", "x"} << true << -1 << "read, install" << "ERROR";
    QTest::newRow("list") << QStringList{"list"} << true << 0 << "read" << "trace\\].*readInterfaces";
    QTest::newRow("no interface") << QStringList{"removeInterface"} << false << 0 << "read" << "debug\\].*main:main";

    const QMap<QString, QString> operations = {{"create", "install"},
                                               {"enable", "Enable"},
                                               {"disable", "Disable"},
                                               {"update", "update"},
                                               {"remove", "remove"},
                                               {"removeAll", "remove"}};
    for (auto each = operations.begin(); each != operations.end(); ++each) {
        const bool netsh = each.value().contains("able");
        QTest::addRow("%s", qPrintable(each.key())) << QStringList{each.key()} << false << 0 << each.value() << "debug";
        QTest::addRow("failed %s", qPrintable(each.key()))
            << QStringList{each.key()} << true << -1 << each.value() + (netsh ? ", netsh" : "") << "ERROR\\].*main:main";
    }
}

void UnitTest::dispatch()
{
    QFETCH(QStringList, words);
    QFETCH(bool, fails);
    QFETCH(int, exitCode);
    QFETCH(QString, called);
    QFETCH(QString, lastStatement);
    if (fails)
        scripted->tools = scripted->commandLines = failedTwice;

    QList<QByteArray> arguments;
    for (const QString &word : words)
        arguments << word.toUtf8();
    int result = 1;
    const QStringList log = QString::fromUtf8(runMain(arguments, &result).join('\n')).split('\n');

    QCOMPARE(result, exitCode);
    QVERIFY(log.first().endsWith("] arg: '" + (words.size() == 1 ? words.first() : "check") + "'"));
    QVERIFY2(log.at(log.size() - 2).contains(QRegExp(lastStatement)), qPrintable(log.join('\n')));
    const QStringList names = called.split(", ", Qt::SkipEmptyParts);
    QStringList journal = scripted->journal;
    QCOMPARE(journal.takeFirst(), "Logging to: \"" + scripted->folder.filePath("log/tap-log.txt") + "\"");
    if (exitCode == 0)
        QCOMPARE(journal.takeLast(), QString("Sleep 1000, log open"));
    QVERIFY(!logFile.isOpen());
    QCOMPARE(journal.size(), names.size());
    for (int i = 0; i < names.size(); ++i)
        QVERIFY2(journal[i].contains(names[i]), qPrintable(journal[i]));
}

void UnitTest::logLines()
{
    scripted->commandLines = {{0, "a\"\\\t\r\n\xe4"}};
    int exitCode = -1;
    const QList<QByteArray> usage = runMain({"help"}, &exitCode);
    const QList<QByteArray> log = runMain({"enable"}, &exitCode);
    const QString date = R"(\w{3} \w{3} \d{1,2} \d\d:\d\d:\d\d \d{4})";
    const QString thread = "0x" + QString::number(quintptr(QThread::currentThreadId()), 16);
    const QString prefix = "^" + date + R"( \[)" + thread + R"(\] \[%1\] \[Halvane Relay Kit:\.\\%2\(\):\d+\] %3$)";
    QCOMPARE(log.size(), 4);
    QVERIFY2(QRegExp(prefix.arg("debug", "main:main", "arg: 'enable'")).exactMatch(log[0]), log[0]);
    QVERIFY2(QRegExp(prefix.arg("trace", "tap:ZELK::Tap::enable", "")).exactMatch(log[1]), log[1]);
    QVERIFY2(log[2].endsWith(R"(] "a\"\\\t\r\n\xE4")"), log[2]);
    QVERIFY(log[3].isEmpty());

    const QByteArray text = usage.at(1).mid(usage.at(1).indexOf("] \"Usage") + 3);
    QCOMPARE(text.size(), 14 * (67 + 4) + 1);
    for (int line = 0; line < 14; ++line)
        QCOMPARE(text.mid(line * 71 + 67, 4), QByteArray("\\r\\n"));
    QVERIFY(text.contains("(+install driver/create if missing)     \\r\\n    remove | removeAll     remove driver and"));
}

void UnitTest::unwritableLog()
{
    QFile(scripted->folder.filePath("file")).open(QIODevice::WriteOnly);
    scripted->logSubdir = "/file/log";
    int exitCode = 0;
    QVERIFY(runMain({"create"}, &exitCode).isEmpty());
    QCOMPARE(exitCode, -1);
    QCOMPARE(scripted->journal.join('\n'), "ERROR main: ");
}

const QStringList wmiSteps = {
    "CoInitializeEx(null, 0)",
    "CoInitializeSecurity(null, -1, null, null, 0, 3, null, 0, null)",
    "CoCreateInstance(CLSID_WbemLocator, null, 1, IID_IWbemLocator)",
    "SysAllocString(ROOT\\CIMV2)",
    "ConnectServer(ROOT\\CIMV2, null, null, null, 0, null, null)",
    "SysFreeString(ROOT\\CIMV2)",
    "CoSetProxyBlanket(services, 10, 0, null, 3, 3, null, 0)",
    "ExecQuery(WQL, SELECT NetConnectionID, PNPDeviceID FROM Win32_NetworkAdapter WHERE Description = "
    "'TAP-Windows Adapter V9', 48, null)",
};

void UnitTest::wmiQuery_data()
{
    QTest::addColumn<QString>("function");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("tearDown");

    const QStringList apartment{"CoUninitialize()"};
    const QStringList all = QStringList{"Release(services)", "Release(locator)"} + apartment;
    QTest::newRow("library") << "CoInitializeEx" << "Failed to initialize COM library. Error code " << QStringList{};
    QTest::newRow("security") << "CoInitializeSecurity" << "Failed to initialize security. Error code = " << apartment;
    QTest::newRow("locator") << "CoCreateInstance" << "Failed to create IWbemLocator object. Error code = "
                             << apartment;
    QTest::newRow("connection") << "ConnectServer" << "Could not connect. Error code = " << QStringList(all.mid(1));
    QTest::newRow("blanket") << "CoSetProxyBlanket" << "Could not set proxy blanket. Error code = " << all;
    QTest::newRow("query") << "ExecQuery" << "Query for operating system name failed. Error code = " << all;
}

void UnitTest::wmiQuery()
{
    QFETCH(QString, function);
    QFETCH(QString, text);
    QFETCH(QStringList, tearDown);
    // As the published headers write it: negative only where long has 32 bits.
    scripted->comResults[function] = 0x80041003L;
    scripted->journalCom = true;

    InterfaceMap interfaces{{"kept", "id"}};
    QCOMPARE(ZELK::readInterfacesProgrammatically(interfaces), 1);
    QCOMPARE(interfaces, (InterfaceMap{{"kept", "id"}}));
    QStringList expected;
    for (const QString &step : wmiSteps) {
        expected << step;
        if (step.startsWith(function))
            break;
    }
    if (function == "ConnectServer")
        expected << wmiSteps[5];
    expected << "ERROR readInterfacesProgrammatically: " + text + "-2147217405" << tearDown;
    // The two strings of the query come and go in no fixed order, both around the call.
    QStringList journal = scripted->journal;
    if (function == "ExecQuery") {
        const int call = journal.indexOf(wmiSteps.last());
        for (int i : {call + 2, call + 1, call - 1, call - 2})
            QVERIFY(journal.takeAt(i).startsWith(i > call ? "SysFreeString" : "SysAllocString"));
    }
    QCOMPARE(journal.join('\n'), expected.join('\n'));
}

void UnitTest::wmiRows_data()
{
    QTest::addColumn<WmiValue>("name");
    QTest::addColumn<WmiValue>("id");
    QTest::addColumn<QString>("loggedName");
    QTest::addColumn<QString>("loggedId");
    QTest::addColumn<InterfaceMap>("interfaces");

    const WmiValue name{0, VT_BSTR, " two  blanks "};
    const WmiValue id{0, VT_BSTR, "ROOT\\NET"};
    const auto row = [](const char *title, const WmiValue &first, const WmiValue &second, const char *loggedName,
                        const char *loggedId, const InterfaceMap &interfaces) {
        QTest::newRow(title) << first << second << loggedName << loggedId << interfaces;
    };
    row("strings", name, id, " two  blanks ", "ROOT\\\\NET", {{"same", "later"}, {" two  blanks ", "ROOT\\NET"}});
    row("empty strings", {0, VT_BSTR, ""}, {0, VT_BSTR, ""}, "", "", {{"same", "later"}, {"", ""}});
    row("BSTR that is null", {0, VT_BSTR, {}}, id, "", "ROOT\\\\NET", {{"same", "later"}, {"", "ROOT\\NET"}});
    const WmiValue missing[] = {{0, VT_NULL, {}}, {0, VT_EMPTY, {}}, {0, VT_I4, {}}, {0x80041002L, VT_BSTR, "x"}};
    for (const WmiValue &value : missing) {
        QTest::addRow("name %lx %d", value.result, value.type)
            << value << id << "" << "ROOT\\\\NET" << InterfaceMap{{"same", "later"}};
        QTest::addRow("id %lx %d", value.result, value.type)
            << name << value << " two  blanks " << "" << InterfaceMap{{"same", "later"}};
    }
}

void UnitTest::wmiRows()
{
    QFETCH(WmiValue, name);
    QFETCH(WmiValue, id);
    QFETCH(QString, loggedName);
    QFETCH(QString, loggedId);
    QFETCH(InterfaceMap, interfaces);
    scripted->inventories = {{ScriptedHost::row("same", "early"), {{"NetConnectionID", name}, {"PNPDeviceID", id}},
                              ScriptedHost::row("same", "later")}};
    scripted->comResults["CoInitializeEx"] = 1;
    scripted->journalCom = true;

    InterfaceMap found;
    QCOMPARE(ZELK::readInterfacesProgrammatically(found), 0);
    QCOMPARE(found, interfaces);
    const auto rowJournal = [](const QString &shownName, const QString &shownId) {
        const QString property = "Get(%1, 0, null, null)\nLOG readInterfacesProgrammatically: %1 : \"%2\"\n"
                                 "VariantClear()\n";
        return "Next(-1, 1)\n" + property.arg("NetConnectionID", shownName) + property.arg("PNPDeviceID", shownId)
               + "Release(row)\n";
    };
    const QString journal = scripted->journal.join('\n');
    QCOMPARE(journal.mid(journal.indexOf("Next")),
             rowJournal("same", "early") + rowJournal(loggedName, loggedId) + rowJournal("same", "later")
                 + "Next(-1, 1)\nRelease(services)\nRelease(locator)\nRelease(enumerator)\nCoUninitialize()");
}

void UnitTest::fallback_data()
{
    QTest::addColumn<bool>("hasWmic");
    QTest::addColumn<Runs>("runs");
    QTest::addColumn<QStringList>("journal");
    QTest::addColumn<InterfaceMap>("interfaces");

    const QByteArray text = utf16("NetConnectionID  PNPDeviceID  \r\nTap 1  ROOT\\NET\\0000  \r\n");
    const InterfaceMap found{{"Tap 1", "ROOT\\NET\\0000"}};
    const QStringList read{"debug readInterfaces: Reading interfaces",
                           R"(debug readInterfaces: Found device name: "Tap 1", id: "ROOT\\NET\\0000")"};
    const QStringList nothing{"ERROR readInterfaces: "};
    QTest::newRow("wmic") << true << Runs{{0, text}} << QStringList{wmic} + read << found;
    QTest::newRow("powershell") << false << Runs{{0, text}} << QStringList{powershell} + read << found;
    QTest::newRow("wmic fails") << true << Runs{{1, "x"}, {0, text}} << QStringList{wmic, powershell} + read << found;
    QTest::newRow("powershell fails") << false << Runs{{-1, {}}, {0, text}} << QStringList{powershell, wmic} + read
                                      << found;
    QTest::newRow("both fail") << true << Runs{{1, text}, {2, text}} << QStringList{wmic, powershell} + nothing
                               << InterfaceMap();
    QTest::newRow("no file") << true << Runs{{0, {}}} << QStringList{wmic} + read.mid(0, 1) << InterfaceMap();
}

void UnitTest::fallback()
{
    QFETCH(bool, hasWmic);
    QFETCH(Runs, runs);
    QFETCH(QStringList, journal);
    QFETCH(InterfaceMap, interfaces);
    if (hasWmic)
        QFile(wmicTool).open(QIODevice::WriteOnly);
    qputenv("TMPDIR", QFile::encodeName(scripted->folder.path()));
    scripted->comResults["ExecQuery"] = -1;
    scripted->commandLines = runs;

    QCOMPARE(ZELK::Tap().readInterfaces(), interfaces);
    const QStringList expected = QStringList{"trace readInterfaces: ",
                                             "ERROR readInterfacesProgrammatically: Query for operating system name "
                                             "failed. Error code = -1",
                                             "ERROR readInterfaces: Failed to read interfaces programmatically"}
                                 + journal;
    QCOMPARE(scripted->journal.join('\n'), expected.join('\n'));
    const int left = QDir(scripted->folder.path()).entryList({"qt_temp*"}).size();
    QCOMPARE(left, journal.last() == "ERROR readInterfaces: " ? 1 : 0);
}

void UnitTest::parser_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<InterfaceMap>("interfaces");
    QTest::newRow("empty") << "" << InterfaceMap();
    QTest::newRow("heading alone") << "Name Id\r\n" << InterfaceMap();
    QTest::newRow("no heading") << "\r\n\r\nA 1\r\nB 2\r\nC 3\r\n\r\n" << InterfaceMap{{"B", "2"}, {"C", "3"}};
    QTest::newRow("one row without heading") << "\r\nA 1\r\n" << InterfaceMap();
    QTest::newRow("no name, blank line") << "N I\n\n1\r\n  \r\nA 2" << InterfaceMap{{"A", "2"}};
    QTest::newRow("blanks") << "N I\r\n Eth  ernet\t x   ID 4 \r\n" << InterfaceMap{{"Eth ernet x ID", "4"}};
    QTest::newRow("twice, and in another case")
        << "N I\r\nA 1\r\na 2\r\nA 3\r\n" << InterfaceMap{{"A", "3"}, {"a", "2"}};
    QTest::newRow("byte order mark, beyond ASCII") << QString::fromUtf8("\uFEFFN I\r\nBüro→ 1\r\n")
                                                   << InterfaceMap{{QString::fromUtf8("Büro→"), "1"}};
}

void UnitTest::parser()
{
    QFETCH(QString, text);
    QFETCH(InterfaceMap, interfaces);
    scripted->comResults["CoCreateInstance"] = -1;
    scripted->commandLines = {{0, utf16(text)}};
    QCOMPARE(ZELK::Tap().readInterfaces(), interfaces);
}

void UnitTest::paths_data()
{
    QTest::addColumn<int>("major");
    QTest::addColumn<QString>("file");
    QTest::newRow("11") << 11 << "win10/%1/OemVista.inf";
    QTest::newRow("10") << 10 << "win10/%1/OemVista.inf";
    QTest::newRow("9") << 9 << "vista/%1/OemVista.inf";
    QTest::newRow("6") << 6 << "vista/%1/OemVista.inf";
    QTest::newRow("5") << 5 << "win2k/%1/OemWin2k.inf";
}

void UnitTest::paths()
{
    QFETCH(int, major);
    QFETCH(QString, file);
    scripted->major = major;
    ZELK::Tap tap;
    for (const char *arch : {"x86", "x64"}) {
        ARCH = arch;
        qputenv("ProgramFiles", "D:\\Bür\xc3\xb6");
        QCOMPARE(tap.pathDriver(), QString::fromUtf8("D:\\Bürö//HalvaneRelayKit/driver/") + file.arg(arch));
        qunsetenv("ProgramFiles");
        QCOMPARE(tap.pathDevcon(), QString("//HalvaneRelayKit/bin/devcon-%1.exe").arg(arch));
    }
    QCOMPARE(scripted->journal.first(), QString("debug pathDriver: Detected OS version %1.3").arg(major));
}

void UnitTest::driverOperations_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<int>("version");
    QTest::addColumn<Runs>("runs");
    QTest::addColumn<int>("result");
    QTest::addColumn<QStringList>("journal");

    const QString known = "debug pathDriver: Detected OS version 10.3";
    const Runs done = {{0, "done\r\n"}};
    for (const QString &verb : {QString("install"), QString("update")}) {
        const QString operation = verb == "install" ? "create" : "update";
        const QString entry = "trace " + operation + ": ";
        const QString call = devcon + " [" + verb + "] [%1] [tap0901]";
        QTest::addRow("%s", qPrintable(verb)) << operation << 0 << done << 0
                                              << QStringList{entry, known, call.arg(inf),
                                                             "debug " + operation + R"(: "done\r\n")"};
        QTest::addRow("%s fails", qPrintable(verb))
            << operation << 0 << failedOnce << -1
            << QStringList{entry, known, call.arg(inf), "ERROR " + operation + ": "};
        QTest::addRow("%s without version", qPrintable(verb))
            << operation << 1 << Runs{} << 0
            << QStringList{entry, "ERROR pathDriver: ", call.arg(""), "debug " + operation + ": \"\""};
    }
    const QString remove = devcon + " [remove] [tap0901]";
    QTest::newRow("remove") << "remove" << 0 << done << 0
                            << QStringList{"trace remove: ", remove, R"(debug remove: "done\r\n")"};
    QTest::newRow("remove fails") << "remove" << 0 << failedTwice << -1
                                  << QStringList{"trace remove: ", remove, "ERROR remove: "};

    const QStringList list{"trace readInterfaces: ", "read"};
    const auto listed = [&](const QString &name, const QString &id) {
        return list
               + QStringList{"LOG readInterfacesProgrammatically: NetConnectionID : \"" + name + "\"",
                             "LOG readInterfacesProgrammatically: PNPDeviceID : \"" + id + "\""};
    };
    const QString removeOne = devcon + " [remove] [@%1]";
    QTest::newRow("one=HalvaneRelayKit=7") << "one" << 0 << done << 0
                                           << listed("HalvaneRelayKit", "7") + QStringList{removeOne.arg("7")};
    QTest::newRow("one=HalvaneRelayKit=") << "one" << 0 << done << 0
                                          << listed("HalvaneRelayKit", "") + QStringList{removeOne.arg("")};
    QTest::newRow("one=HalvaneRelayKit=8")
        << "one" << 0 << failedOnce << -1
        << listed("HalvaneRelayKit", "8") + QStringList{removeOne.arg("8"), "ERROR removeInterface: "};
    QTest::newRow("one=halvanerelaykit=7") << "one" << 0 << done << -1
                                           << listed("halvanerelaykit", "7") + QStringList{"ERROR removeInterface: "};
}

void UnitTest::driverOperations()
{
    QFETCH(QString, operation);
    QFETCH(int, version);
    QFETCH(Runs, runs);
    QFETCH(int, result);
    QFETCH(QStringList, journal);
    scripted->version = version;
    scripted->tools = runs;
    scripted->inventories = {ScriptedHost::inventory(QString(QTest::currentDataTag()).section('=', 1))};
    ARCH = "x64";
    ZELK::Tap tap;
    QCOMPARE(operation == "create"   ? tap.create()
             : operation == "update" ? tap.update()
             : operation == "remove" ? tap.remove()
                                     : tap.removeInterface(),
             result);
    QCOMPARE(scripted->journal.join('\n'), journal.join('\n'));
}

void UnitTest::adapterOperations_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("plain") << "Tap";
    QTest::newRow("empty") << "";
    QTest::newRow("blanks, quotes, marks") << QString::fromUtf8("Bü ro's \"%2\" %1 %%");
}

void UnitTest::adapterOperations()
{
    QFETCH(QString, name);
    const QString newName = "to %1 %2";
    const struct {
        QString function, powershell, fallback, netsh;
    } operations[] = {
        {"enable", "Enable-NetAdapter -Name '" + name + "' -Confirm:$False",
         "Failed to enable interface using powershell, trying netsh...", "name='" + name + "' admin=ENABLED"},
        {"disable", "Disable-NetAdapter -Name '" + name + "' -Confirm:$False",
         "Failed to disable interface using powershell, trying netsh...", "name='" + name + "' admin=DISABLED"},
        {"rename", "Rename-NetAdapter -Name '" + name + "' -NewName '" + newName + "'",
         "Failed to rename using powershell, trying netsh...", "name='" + name + "' newname='" + newName + "'"},
    };
    ZELK::Tap tap;
    for (const auto &each : operations) {
        for (const Runs &runs : {Runs{{0, "ok"}}, Runs{{-1, "lost"}, {0, "ok"}}, failedTwice}) {
            const bool fails = runs.last().first != 0;
            scripted->journal.clear();
            scripted->commandLines = runs;
            QCOMPARE(each.function == "enable"    ? tap.enable(name)
                     : each.function == "disable" ? tap.disable(name)
                                                  : tap.rename(name, newName),
                     fails ? -1 : 0);
            QStringList expected{"trace " + each.function + ": ",
                                 "cmd /c powershell -NonInteractive -Command  \"" + each.powershell + " \""};
            if (runs.size() > 1) {
                expected << "ERROR " + each.function + ": " + each.fallback
                         << "netsh.exe interface set interface " + each.netsh;
            }
            expected << (fails ? "ERROR " + each.function + ": " : "debug " + each.function + ": \"ok\"");
            QCOMPARE(scripted->journal.join('\n'), expected.join('\n'));
        }
    }
}

void UnitTest::check_data()
{
    QTest::addColumn<QStringList>("inventories");
    QTest::addColumn<Runs>("tools");
    QTest::addColumn<Runs>("commandLines");
    QTest::addColumn<int>("result");
    QTest::addColumn<QStringList>("journal");

    const QString kit = "HalvaneRelayKit";
    const QStringList none{"trace: ", "read", "debug: No tap interfaces/drivers detected", "create"};
    const QStringList updated{"trace: ", "read", "update", "read"};
    const QStringList present{"debug: Tap interface already present", "Disable 'HalvaneRelayKit'"};
    const QStringList disabled{"Disable 'HalvaneRelayKit'"};
    const QStringList failed{"ERROR: "};
    const auto renamed = [](const QString &from, const QString &to, const QString &id) {
        return QStringList{QString(R"(debug: Rename required! Old key: "%1" old val: "%3" new key: "%2" new val: "%3")")
                               .arg(to, from, id),
                           "Rename '" + from + "' '" + to + "'"};
    };
    const auto poll = [](int oldCount, int newCount, const QString &ids = {}) {
        const QString counts = QString(R"(debug: old count: "%1", new count: "%2")").arg(oldCount).arg(newCount);
        QStringList lines{"read", counts};
        if (newCount > oldCount)
            lines << "debug: new ids: QSet(" + ids + ")";
        return lines;
    };
    const QStringList wait{"wait"};
    const auto times = [](int count, const QStringList &lines) {
        QStringList all;
        for (int i = 0; i < count; ++i)
            all += lines;
        return all;
    };
    const auto named = [&](const QString &from) {
        return QStringList{"Rename '" + from + "' 'HalvaneRelayKit'"} + disabled;
    };
    const auto row = [](const char *title, const QStringList &inventories, int result, const QStringList &journal,
                        const Runs &tools = {}, const Runs &commandLines = {}) {
        QTest::newRow(title) << inventories << tools << commandLines << result << journal;
    };

    row("present", {"HalvaneRelayKit=1, B=2"}, 0, updated + present);
    row("present, update fails once", {kit + "=1"}, 0,
        QStringList{"trace: ", "read", "update", "wait", "update", "read"} + present, failedOnce);
    row("present, update fails twice", {kit + "=1"}, 0,
        QStringList{"trace: ", "read", "update", "wait", "update",
                    "ERROR: Failed to update tap driver, probably a newer version is already installed. "
                    "Continuing...",
                    "read"}
            + present,
        failedTwice);
    row("disable fails", {kit + "=1"}, 0,
        updated + present + QStringList{"netsh.exe interface set interface name='HalvaneRelayKit' admin=DISABLED"}, {},
        failedTwice);
    row("swapped", {"A=1, B=2, HalvaneRelayKit=3", "A=2, B=1, HalvaneRelayKit=3"}, 0,
        updated + renamed("A", "B", "2") + renamed("B", "A", "1") + present);
    row("rename fails", {"A=1, HalvaneRelayKit=2", "X=1, Y=2"}, -1,
        updated + renamed("X", "A", "1") + QStringList{"netsh.exe interface set interface name='X' newname='A'"}
            + failed,
        {}, failedTwice);
    row("lost the name", {kit + "=1", "X=1"}, 0, updated + renamed("X", kit, "1") + present);
    row("gone after the update", {kit + "=1", ""}, 0, updated + present);
    row("id changed", {kit + "=1", "X=2"}, 0, updated + present);
    row("one id under two names, first", {"A=1, B=1, HalvaneRelayKit=3", "A=1"}, 0,
        updated + renamed("A", "B", "1") + present);
    row("one id under two names, third", {"A=1, B=1, HalvaneRelayKit=3", "C=1"}, 0,
        updated + renamed("C", "A", "1") + present);
    row("name in another case, only after the update", {"halvanerelaykit=1", "HalvaneRelayKit=1", kit + "=1, X=2"}, 0,
        updated + renamed(kit, "halvanerelaykit", "1") + QStringList{"create"} + poll(1, 2, "\"2\"") + wait
            + poll(1, 2, "\"2\"") + named("X"));
    row("create fails", {""}, -1, none + failed, failedOnce);
    row("fastest", {"", "X=1"}, 0, none + poll(0, 1, "\"1\"") + wait + poll(0, 1, "\"1\"") + named("X"));
    row("final rename fails", {"", "X=1"}, 0,
        none + poll(0, 1, "\"1\"") + wait + poll(0, 1, "\"1\"")
            + QStringList{"Rename 'X' 'HalvaneRelayKit'",
                          "netsh.exe interface set interface name='X' newname='HalvaneRelayKit'", "debug: "}
            + disabled,
        {}, failedTwice);
    row("confirmed in the tenth poll", QStringList{""} + times(8, {""}) + QStringList{"X=1"}, 0,
        none + times(8, poll(0, 0) + wait) + poll(0, 1, "\"1\"") + wait + poll(0, 1, "\"1\"") + named("X"));
    row("first seen in the tenth poll", QStringList{""} + times(9, {""}) + QStringList{"X=1"}, -1,
        none + times(9, poll(0, 0) + wait) + poll(0, 1, "\"1\"") + wait + failed);
    row("two at once", {"A=1", "A=1", "A=1, X=2, Y=3"}, -1,
        updated + QStringList{"create"} + poll(1, 3, "\"2\", \"3\"") + failed);
    row("known id under a new name", {"A=1", "A=1", "A=1, X=1"}, -1,
        updated + QStringList{"create"} + poll(1, 2) + failed);
    row("one new id under two names", {"", "Y=1, X=1"}, 0,
        none + poll(0, 2, "\"1\"") + wait + poll(0, 2, "\"1\"") + named("X"));
    row("no rise in between, id replaced", {"", "X=1", "", "Y=2", "X=1", ""}, -1,
        none + poll(0, 1, "\"1\"") + wait + poll(0, 0) + wait + poll(0, 1, "\"2\"") + wait + poll(0, 1, "\"1\"") + wait
            + times(6, poll(0, 0) + wait) + failed);
    row("no rise in between", {"A=1, B=2", "A=1, B=2", "A=1, B=2, X=3", "A=1", "X=3, A=1, B=2"}, 0,
        updated + QStringList{"create"} + poll(2, 3, "\"3\"") + wait + poll(2, 1) + wait + poll(2, 3, "\"3\"")
            + named("X"));
    row("replaced without a rise", {"A=1", "A=1", "X=2"}, -1,
        updated + QStringList{"create"} + times(10, poll(1, 1) + wait) + failed);
    row("empty id", {"", "X="}, -1, none + times(10, poll(0, 1, "\"\"") + wait) + failed);
}

void UnitTest::check()
{
    QFETCH(QStringList, inventories);
    QFETCH(Runs, tools);
    QFETCH(Runs, commandLines);
    QFETCH(int, result);
    QFETCH(QStringList, journal);
    for (const QString &each : inventories)
        scripted->inventories << ScriptedHost::inventory(each);
    scripted->tools = tools;
    scripted->commandLines = commandLines;
    ARCH = "x64";

    QCOMPARE(ZELK::Tap().check(), result);
    // Two ids stand in the order of the set.
    const QString found = checkJournal().join('\n').replace(R"(QSet("3", "2"))", R"(QSet("2", "3"))");
    QCOMPARE(found, journal.join('\n'));
    // All that tells textless statements of one run apart is their line.
}

QTEST_APPLESS_MAIN(UnitTest)
#include "unit_test.moc"
