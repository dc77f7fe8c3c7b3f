/// The program's functions against a host that follows a script.
#include "main.h"
#include "scripted_host.h"
#include "tap.h"

#include <QDir>
#include <QScopedPointer>
#include <QTest>

using Runs = ScriptedHost::Runs;
using ZELK::InterfaceMap;

int mordwellMain(int argc, char **argv);

/// What is called, how the tools and command lines end, and what is to come of it.
struct Case {
    QString input;
    Runs tools;
    Runs commandLines;
    int result;
    QString journal;
};
Q_DECLARE_METATYPE(Case)

class UnitTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void commands_data();
    void commands();
    void rename();
    void unwritableLog();
    void wmiFailure();
    void wmiRows();
    void readInterfaces_data();
    void readInterfaces();
    void paths();
    void check_data();
    void check();

private:
    QScopedPointer<ScriptedHost> m_host;
};

namespace
{

const Runs failedTwice = {{2, "lost"}, {-1, "lost"}};

QByteArray utf16(const QString &text)
{
    return QByteArray(reinterpret_cast<const char *>(text.utf16()), text.size() * 2);
}

const QString wmicInventory = "cmd /c wmic nic where Description='TAP-Windows Adapter V9' get NetConnectionID, "
                              "PNPDeviceID > \"SCRATCH\"";
const QString powershellInventory =
    "cmd /c powershell -NonInteractive -Command \"& { Get-WmiObject -Class Win32_NetworkAdapter -Filter "
    "\"\"\"Description='TAP-Windows Adapter V9'\"\"\" | Format-Table  -HideTableHeaders -Property  'NetConnectionID', "
    "'PNPDeviceID' } \"> \"SCRATCH\" ";

/// The journal in one line, each entry as a word. An entry that differs in any character from what is known here
/// stays as it is. What others than `function` log is left out.
QString shortJournal(const QString &function)
{
    const QPair<QString, const char *> words[] = {
        {"(trace|debug|LOG|ERROR) (?!" + function + ": ).*", ""},
        {"trace " + function + ": ", "entry"},
        {R"((ERROR|debug) \w+: )", R"(\1)"},
        {R"(ERROR \w+: Failed to read interfaces programmatically)", "no-WMI"},
        {R"(debug \w+: Reading interfaces)", "reading"},
        {"debug \\w+: Found device name: \"(.*)\", id: \"(.*)\"", R"(\1=\2)"},
        {R"(debug \w+: No tap interfaces/drivers detected)", "none"},
        {R"(ERROR \w+: Failed to update tap driver, probably a newer version is already installed. Continuing...)",
         "give-up"},
        {"debug \\w+: Rename required! Old key: \"(.*)\" old val: \"(.*)\" new key: \"(.*)\" new val: \"\\2\"",
         R"(\3=\2:\1)"},
        {R"(debug \w+: Tap interface already present)", "present"},
        {"debug \\w+: old count: \"(.)\", new count: \"(.)\"", R"(\1/\2)"},
        {"debug \\w+: new ids: QSet\\((.*)\\)", R"({\1})"},
        {"Sleep 1000", "wait"},
        {R"(.*devcon-x64.exe \[(install|update)\].*)", R"(\1)"},
        {R"(cmd .*Rename-NetAdapter -Name '(.*)' -NewName '(.*)' ")", R"(\1>\2)"},
        {R"(cmd .*Disable-NetAdapter -Name 'HalvaneRelayKit' .*)", "disable"},
        {"netsh.*", "netsh"},
        {QRegularExpression::escape(wmicInventory), "wmic"},
        {QRegularExpression::escape(powershellInventory), "powershell"},
    };
    QStringList line;
    for (QString entry : scripted->journal) {
        for (const auto &word : words)
            entry.replace(QRegularExpression(QRegularExpression::anchoredPattern(word.first)), word.second);
        line << entry;
    }
    line.removeAll("");
    // A set has no order of its own.
    return line.join(' ')
        .remove('"')
        .replace("HalvaneRelayKit", "kit")
        .replace("HALVANERELAYKIT", "KIT")
        .replace("{3, 2}", "{2, 3}");
}

} // namespace

void UnitTest::init()
{
    // A temporary folder of its own for each test, which is gone with the next one.
    qunsetenv("TMPDIR");
    m_host.reset(new ScriptedHost);
    scripted = m_host.data();
    captureLog();
    QDir::setCurrent(scripted->folder.path());
    qputenv("TMPDIR", QFile::encodeName(scripted->folder.path()));
    qputenv("ProgramFiles", R"(C:\Program Files)");
    ARCH = "x64";
}

void UnitTest::commands_data()
{
    QTest::addColumn<Case>("given");
    const auto row = [](const QString &words, const Runs &runs, int exitCode, QString journal) {
        const QString word = words.section('|', 0, 0);
        journal.replace("%o", word == "removeAll" ? "remove" : word);
        QTest::addRow("%s %d", qPrintable(words), exitCode) << Case{words, runs, runs, exitCode, journal};
    };
    const QString bad = "ERROR main: ";
    const QString pause = "\nSleep 1000";
    const Runs lines{{0, "two\r\nlines"}};
    const QString output = "\ndebug %o: \"two\\r\\nlines\"" + pause;
    const QString devcon = R"(C:\Program Files//HalvaneRelayKit/bin/devcon-x64.exe)";
    const QString inf = R"(C:\Program Files//HalvaneRelayKit/driver/win10/x64/OemVista.inf)";

    const QString list = "trace readInterfaces: \nread";
    const QString check = "trace check: \n" + list +
                          "\ndebug check: No tap interfaces/drivers detected\ntrace create: \n" +
                          "debug pathDriver: Detected OS version 10.3\n" + devcon + " [install] [" + inf +
                          "] [tap0901]\n" + "ERROR create: \nERROR check: \n" + bad;
    row("", failedTwice, -1, check);
    row("list x", failedTwice, -1, check);
    row("list", failedTwice, 0, list + pause);
    for (const QString word : {"create install", "update update"}) {
        const QString entry = "trace %o: \n%1\n" + devcon + " [" + word.section(' ', 1) + "] [%2] [tap0901]";
        const QString known = entry.arg("debug pathDriver: Detected OS version 10.3", inf);
        row(word.section(' ', 0, 0), lines, 0, known + output);
        row(word.section(' ', 0, 0), failedTwice, -1, known + "\nERROR %o: \n" + bad);
        row(word.section(' ', 0, 0) + "|unknown", lines, 0, entry.arg("ERROR pathDriver: ", "") + output);
    }
    for (const char *word : {"remove", "removeAll"}) {
        row(word, lines, 0, "trace %o: \n" + devcon + " [remove] [tap0901]" + output);
        row(word, failedTwice, -1, "trace %o: \n" + devcon + " [remove] [tap0901]\nERROR %o: \n" + bad);
    }
    const QString listed = list + "\nLOG readInterfacesProgrammatically: NetConnectionID : \"%1\"\n"
                                  "LOG readInterfacesProgrammatically: PNPDeviceID : \"%2\"\n";
    const QString one = listed + devcon + " [remove] [@%2]";
    row("removeInterface|HalvaneRelayKit=7", lines, 0, one.arg("HalvaneRelayKit", "7") + pause);
    row("removeInterface|HalvaneRelayKit=", lines, 0, one.arg("HalvaneRelayKit", "") + pause);
    row("removeInterface|A=1, HalvaneRelayKit=7", lines, 0,
        listed.arg("A", "1").chopped(1) + one.mid(list.size()).arg("HalvaneRelayKit", "7") + pause);
    row("removeInterface|HalvaneRelayKit=8", failedTwice, 0,
        one.arg("HalvaneRelayKit", "8") + "\nERROR %o: \ndebug main: " + pause);
    row("removeInterface|halvanerelaykit=7", lines, 0,
        listed.arg("halvanerelaykit", "7") + "ERROR %o: \ndebug main: " + pause);
    for (const QString word : {"enable Enable", "disable Disable"}) {
        const QString entry = "trace %o: \ncmd /c powershell -NonInteractive -Command  \"" + word.section(' ', 1) +
                              "-NetAdapter -Name 'HalvaneRelayKit' -Confirm:$False \"";
        const QString netsh = "\nERROR %o: Failed to %o interface using powershell, trying netsh...\n"
                              "netsh.exe interface set interface name='HalvaneRelayKit' admin=" +
                              word.section(' ', 1).toUpper() + "D";
        row(word.section(' ', 0, 0), {{0, "\"\\\t\xe4"}}, 0, entry + R"(
debug %o: "\"\\\t\xE4")" + pause);
        row(word.section(' ', 0, 0) + "|netsh", {{-1, "lost"}, {0, "ok"}}, 0,
            entry + netsh + "\ndebug %o: \"lostok\"" + pause);
        row(word.section(' ', 0, 0), failedTwice, -1, entry + netsh + "\nERROR %o: \n" + bad);
    }
    for (const char *word : {"help", "Create", "removeall", "lis", "lists", "''"})
        row(word, failedTwice, 0, "usage 21184" + pause);
}

/// What stands behind the bar in the input is for the host.
void UnitTest::commands()
{
    QFETCH(Case, given);
    scripted->tools = given.tools;
    scripted->commandLines = given.commandLines;
    scripted->version = given.input.endsWith("|unknown") ? 1 : 0;
    scripted->inventories = {ScriptedHost::inventory(given.input.section('|', 1))};
    QList<QByteArray> words = given.input.section('|', 0, 0).remove("''").toLocal8Bit().split(' ');
    const bool one = !given.input.isEmpty() && words.size() == 1;
    char program[] = "Mordwell";
    char *argv[] = {program, words[0].data(), words.last().data()};
    const int argc = given.input.isEmpty() ? 1 : 1 + words.size();
    QFile log(scripted->folder.filePath("log/tap-log.txt"));
    QVERIFY(QDir().mkpath("log") && log.open(QIODevice::WriteOnly) && log.write("the run before\n") > 0);
    log.close();
    QCOMPARE(mordwellMain(argc, argv), given.result);

    QVERIFY(log.open(QIODevice::ReadOnly));
    QStringList lines = QString(log.readAll()).split('\n');
    QCOMPARE(lines.takeLast(), QString());
    for (QString &line : lines) {
        line = shortened(line);
        // A checksum stands for the usage, which is fixed to the blank.
        if (line.startsWith("debug main: \"Usage: Mordwell <command>"))
            line = QString("usage %1").arg(qChecksum(line.toLatin1(), uint(line.size())));
    }
    QCOMPARE(lines.join('\n'), "debug main: arg: '" + (one ? words[0] : "check") + "'\n" + given.journal);
    QCOMPARE(scripted->journal.join(' '),
             "getCommonLogDir getCommonLogDir getCommonLogDir Logging to: \"" + log.fileName() + '"');
    QVERIFY(!logFile.isOpen());
}

void UnitTest::rename()
{
    scripted->commandLines = {{1, ""}};
    QCOMPARE(ZELK::Tap().rename("Bü ro's \"%2\" %1", "%1"), 0);
    QCOMPARE(
        scripted->journal.join('\n'),
        "trace rename: \ncmd /c powershell -NonInteractive -Command  \"Rename-NetAdapter -Name 'Bü ro's \"%2\" %1' "
        "-NewName '%1' \"\nERROR rename: Failed to rename using powershell, trying netsh...\n"
        "netsh.exe interface set interface name='Bü ro's \"%2\" %1' newname='%1'\ndebug rename: \"\"");
}

void UnitTest::unwritableLog()
{
    scripted->logFolder = scripted->folder.filePath("file/log");
    QFile(scripted->folder.filePath("file")).open(QIODevice::WriteOnly);
    char word[] = "create";
    char *argv[] = {word, word};
    QCOMPARE(mordwellMain(2, argv), -1);
    QCOMPARE(scripted->journal.join(' '), QString("getCommonLogDir getCommonLogDir ERROR main: "));
}

void UnitTest::wmiFailure()
{
    // Each step of the query; behind it, the text of its failure and what is given back then.
    const char *const steps[][3] = {
        {"CoInitializeEx(null, 0)", "Failed to initialize COM library. Error code ", ""},
        {"CoInitializeSecurity(null, -1, null, null, 0, 3, null, 0, null)",
         "Failed to initialize security. Error code = ", "\nCoUninitialize()"},
        {"CoCreateInstance(4590f811, null, 1, dc12a687)",
         "Failed to create IWbemLocator object. Error code = ", "\nCoUninitialize()"},
        {"SysAllocString(ROOT\\CIMV2)\nConnectServer(ROOT\\CIMV2, null, null, null, 0, null, null)\n"
         "SysFreeString(ROOT\\CIMV2)",
         "Could not connect. Error code = ", "\nRelease(locator)\nCoUninitialize()"},
        {"CoSetProxyBlanket(services, 10, 0, null, 3, 3, null, 0)",
         "Could not set proxy blanket. Error code = ", "\nRelease(services)\nRelease(locator)\nCoUninitialize()"},
        {"SysAllocString(2)\nExecQuery(WQL, SELECT NetConnectionID, PNPDeviceID FROM Win32_NetworkAdapter "
         "WHERE Description = 'TAP-Windows Adapter V9', 48, null)\nSysFreeString(2)",
         "Query for operating system name failed. Error code = ",
         "\nRelease(services)\nRelease(locator)\nCoUninitialize()"},
    };
    // The two strings of the query come and go in no fixed order.
    const QRegularExpression both(R"((Sys\w+String)\((WQL|SELECT[^\n]*)\)\n\1\((?!\2)(WQL|SELECT[^\n]*)\))");
    scripted->journalCom = true;
    QString before;
    for (const auto &step : steps) {
        const QString function = QRegularExpression(R"((Co|Exec)\w+(?=\())").match(step[0]).captured();
        // As the published headers write it: negative only where long has 32 bits.
        scripted->comResults = {{function, 0x80041003L}};
        scripted->journal.clear();
        InterfaceMap interfaces{{"kept", "id"}};
        QCOMPARE(ZELK::readInterfacesProgrammatically(interfaces), 1);
        QCOMPARE(interfaces, (InterfaceMap{{"kept", "id"}}));
        QCOMPARE(scripted->journal.join('\n').replace(both, "\\1(2)"),
                 before + step[0] + "\nERROR readInterfacesProgrammatically: " + step[1] + "-2147217405" + step[2]);
        before += QString(step[0]) + "\n";
    }
}

void UnitTest::wmiRows()
{
    const auto text = [](const QString &value) { return WmiValue{0, VT_BSTR, value}; };
    const QPair<WmiValue, WmiValue> rows[] = {{text("same"), text("early")},
                                              {text(" a  b "), text("")},
                                              {text({}), text("null BSTR")},
                                              {WmiValue{0, VT_NULL, {}}, text("1")},
                                              {WmiValue{0, VT_I4, {}}, text("1")},
                                              {WmiValue{0x80041002L, VT_BSTR, {}}, text("1")},
                                              {text("no id"), WmiValue{0, VT_EMPTY, {}}},
                                              {text("same"), text("late")}};
    QString journal;
    const QString property =
        "Get(%1, 0, null, null)\nLOG readInterfacesProgrammatically: %1 : \"%2\"\nVariantClear()\n";
    scripted->inventories << QVector<WmiRow>();
    for (const auto &row : rows) {
        scripted->inventories[0].append({{"NetConnectionID", row.first}, {"PNPDeviceID", row.second}});
        journal += "Next(-1, 1)\n" + property.arg("NetConnectionID", row.first.text) +
                   property.arg("PNPDeviceID", row.second.text) + "Release(row)\n";
    }
    journal += "Next(-1, 1)\nRelease(services)\nRelease(locator)\nRelease(enumerator)\nCoUninitialize()";
    scripted->comResults["CoInitializeEx"] = 1;
    scripted->comResults["Next"] = 0x80041001L;
    scripted->journalCom = true;

    InterfaceMap interfaces;
    QCOMPARE(ZELK::readInterfacesProgrammatically(interfaces), 0);
    QCOMPARE(interfaces, (InterfaceMap{{" a  b ", ""}, {"", "null BSTR"}, {"same", "late"}}));
    QCOMPARE(scripted->journal.join('\n').section("SysFreeString(", -1).section('\n', 1), journal);
}

void UnitTest::readInterfaces_data()
{
    QTest::addColumn<Case>("given");
    const auto row = [](const char *title, const Runs &commandLines, const QString &journal) {
        QTest::newRow(title) << Case{title, {}, commandLines, 0, journal};
    };
    const QByteArray text = utf16("NetConnectionID  PNPDeviceID  \r\nTap 1  ROOT\\0  \r\n");
    row("wmic", {{0, text}}, "entry no-WMI wmic reading Tap 1=ROOT\\\\0");
    row("powershell", {{0, text}}, "entry no-WMI powershell reading Tap 1=ROOT\\\\0");
    row("wmic fails", {{1, "other"}, {0, text}}, "entry no-WMI wmic powershell reading Tap 1=ROOT\\\\0");
    row("powershell fails", {{-1, {}}, {0, text}}, "entry no-WMI powershell wmic reading Tap 1=ROOT\\\\0");
    row("wmic and powershell fail", {{1, text}, {2, text}}, "entry no-WMI wmic powershell ERROR");
    row("wmic, no file", Runs{{0, QByteArray()}}, "entry no-WMI wmic reading");

    const auto textRow = [&](const char *title, const QString &written, const QString &found) {
        row(title, {{0, utf16(written)}}, "entry no-WMI wmic reading" + found);
    };
    textRow("wmic: heading alone", "Name Id\r\n", "");
    textRow("wmic: no heading", "\r\nA 1\r\n", "");
    textRow("wmic: no heading, three rows", "\r\n\r\nA 1\r\nB 2\r\nC 3\r\n\r\n", " B=2 C=3");
    textRow("wmic: no name, white space alone", "N I\n\n1\r\n  \r\nA 2", " A=2");
    textRow("wmic: blanks", "N I\r\n Eth  ernet\t x   ID 4 \r\n", " Eth ernet x ID=4");
    textRow("wmic: same name, other case", "N I\r\nA 1\r\na 2\r\nA 3\r\n", " A=1 a=2 A=3");
    textRow("wmic: byte order mark, not ASCII", "\uFEFFN I\r\nBü→ 1\r\n", " Bü→=1");
}

void UnitTest::readInterfaces()
{
    QFETCH(Case, given);
    scripted->commandLines = given.commandLines;
    if (given.input.startsWith("wmic"))
        QFile(R"(C:\Windows\System32\wbem\WMIC.exe)").open(QIODevice::WriteOnly);
    scripted->comResults["ConnectServer"] = -1;
    const InterfaceMap found = ZELK::Tap().readInterfaces();
    QCOMPARE(shortJournal("readInterfaces"), given.journal);
    InterfaceMap expected;
    for (const QString &row :
         given.journal.section("reading ", 1).split(QRegularExpression("(?<=\\d) "), Qt::SkipEmptyParts))
        expected[row.section('=', 0, 0)] = row.section('=', 1).replace("\\\\", "\\");
    QCOMPARE(found, expected);
    const QStringList left = QDir(scripted->folder.path()).entryList({"qt_temp*"});
    QCOMPARE(left.size(), given.journal.endsWith("ERROR") ? 1 : 0);
}

void UnitTest::paths()
{
    ZELK::Tap tap;
    for (const QString arch : {"x86", "x64"}) {
        ARCH = arch;
        for (const QString version :
             {"5 win2k Win2k", "6 vista Vista", "9 vista Vista", "10 win10 Vista", "11 win10 Vista"}) {
            const QStringList parts = version.split(' ');
            scripted->major = parts[0].toInt();
            qputenv("ProgramFiles", "D:\\Bür");
            QCOMPARE(tap.pathDriver(),
                     QString("D:\\Bür//HalvaneRelayKit/driver/%1/%2/Oem%3.inf").arg(parts[1], arch, parts[2]));
            qunsetenv("ProgramFiles");
            QCOMPARE(tap.pathDevcon(), "//HalvaneRelayKit/bin/devcon-" + arch + ".exe");
        }
    }
    QCOMPARE(scripted->journal[0], QString("debug pathDriver: Detected OS version 5.3"));
}

void UnitTest::check_data()
{
    QTest::addColumn<Case>("given");
    const auto runs = [](const QString &exitCodes) {
        Runs result;
        for (const QString &exitCode : exitCodes.split(' ', Qt::SkipEmptyParts))
            result.append({exitCode.toInt(), "lost"});
        return result;
    };
    QFile table(QFINDTESTDATA("check.txt"));
    QVERIFY(table.open(QIODevice::ReadOnly));
    const QRegularExpression repeated(R"((\d+)\*\((.*?)\))");
    for (QString row : QString(table.readAll()).split('\n', Qt::SkipEmptyParts)) {
        for (auto match = repeated.match(row); match.hasMatch(); match = repeated.match(row))
            row.replace(match.captured(0), (match.captured(2) + " ").repeated(match.captured(1).toInt()).trimmed());
        const QStringList fields = row.split(QRegularExpression(" *\\| "));
        if (!row.startsWith('#'))
            QTest::newRow(qPrintable(fields[0]))
                << Case{fields[1], runs(fields[2]), runs(fields[3]), fields[4].toInt(), fields[5]};
    }
}

void UnitTest::check()
{
    QFETCH(Case, given);
    scripted->tools = given.tools;
    scripted->commandLines = given.commandLines;
    for (const QString &each : given.input.replace("kit", "HalvaneRelayKit")
                                   .replace("KIT", "HALVANERELAYKIT")
                                   .split(QRegularExpression("; ?")))
        scripted->inventories << ScriptedHost::inventory(each);
    QCOMPARE(ZELK::Tap().check(), given.result);
    QCOMPARE(shortJournal("check"), given.journal);
}

QTEST_APPLESS_MAIN(UnitTest)
#include "unit_test.moc"
