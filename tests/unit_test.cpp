// The program's functions against a host that follows a script; tells what it asks for, and what it logs, by a journal:
// a list of both in their order, a line each. A new road is a line at the end of roads.txt, where the words that it is
// told in stand too; nothing is to be done here. One is run alone by its title, after ./test has built it:
//     build/default/tests/unit_test 'roads:fastest'
#include "main.h"
#include "scripted_host.h"
#include "tap.h"

#include <QDir>
#include <QLoggingCategory>
#include <QScopedPointer>
#include <QTest>
#include <QTextCodec>

using ZELK::InterfaceMap;

int mordwellMain(int argc, char **argv);

class UnitTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void roads_data();
    void roads();
    void usage();
    void names();
    void unwritableLog();
    void wmiFailure();
    void wmiRows();
    void paths();

private:
    QScopedPointer<ScriptedHost> m_host;
};

namespace
{

QStringList tokens(const QString &text)
{
    static const QRegularExpression token(R"('([^']*)'|\S+)");
    QStringList result;
    for (auto each = token.globalMatch(text); each.hasNext();) {
        const auto match = each.next();
        result << match.captured(match.captured(1).isNull() ? 0 : 1);
    }
    return result;
}

/// The lines of a road: what each of its words stands for, with what stands behind the word in the places.
QStringList expanded(QString road, const QMap<QString, QString> &words)
{
    road.replace(QRegularExpression("\\bkit\\b"), "HalvaneRelayKit");
    road.replace(QRegularExpression("\\bKIT\\b"), "HALVANERELAYKIT");
    static const QRegularExpression repeated(R"((\d+)\*\((.*?)\))");
    for (auto match = repeated.match(road); match.hasMatch(); match = repeated.match(road))
        road.replace(match.captured(0), (match.captured(2) + ' ').repeated(match.captured(1).toInt()));
    QStringList left = tokens(road);
    QStringList lines;
    while (!left.isEmpty()) {
        const QString word = left.takeFirst();
        QString text = words.value(word, "No such word: " + word);
        // What was read stands in one answer, and each of its rows is logged.
        QStringList rows;
        while (word == "read" && left.value(0).contains('='))
            rows << left.takeFirst();
        if (word == "read")
            text.replace("%1", rows.join(", "));
        for (auto row = rows.rbegin(); row != rows.rend(); ++row)
            left = QStringList{"row", row->section('=', 0, 0), row->section('=', 1)} + left;
        for (QString place = "%1"; text.contains(place); place[1] = QChar(place[1].unicode() + 1))
            text.replace(place, left.isEmpty() ? "nothing" : left.takeFirst());
        if (text.startsWith("= "))
            left = tokens(text.mid(2)) + left;
        else
            lines << text.replace("\\r\\n\n", "\\r\\n").split('\n');
    }
    return lines;
}

/// Runs the program; gives its log and its end.
QStringList runProgram(const QStringList &arguments)
{
    QList<QByteArray> words = arguments.join('\n').toLocal8Bit().split('\n');
    char *argv[] = {words.first().data(), words.first().data(), words.last().data()};
    QFile log(scripted->folder.filePath("log/tap-log.txt"));
    if (QDir().mkpath("log") && log.open(QIODevice::WriteOnly))
        log.write("the run before\n");
    log.close();
    const int exitCode = mordwellMain(1 + arguments.size(), argv);
    QStringList lines;
    if (log.open(QIODevice::ReadOnly)) {
        for (const QString &line : QString(log.readAll()).split('\n'))
            lines << shortened(line);
    }
    lines.last() += QString("exit code %1").arg(exitCode);
    if (!QDir().entryList({"qt_temp*"}).isEmpty())
        lines << "scratch file left";
    return lines;
}

} // namespace

void UnitTest::init()
{
    // A temporary folder of its own for each test, which is gone with the next one.
    qunsetenv("TMPDIR");
    m_host.reset(new ScriptedHost);
    scripted = m_host.data();
    wmiHost = scripted;
    // What is logged goes to the journal until main() opens its log.
    qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext &, const QString &line) { scripted->journal << shortened(line); });
    // As main() does it; here, operations are called without it too.
    QLoggingCategory::defaultCategory()->setEnabled(QtDebugMsg, true);
    // The date stays in the locale's language; here, what that cannot write is not to be lost.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    QDir::setCurrent(scripted->folder.path());
    qputenv("TMPDIR", QFile::encodeName(scripted->folder.path()));
    qputenv("ProgramFiles", R"(C:\Program Files)");
    ARCH = "x64";
}

void UnitTest::roads_data()
{
    QTest::addColumn<QStringList>("commandLine");
    QTest::addColumn<QStringList>("expected");
    QFile file(QFINDTESTDATA("roads.txt"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QStringList items;
    for (const QString &line : QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts)) {
        if (line.startsWith("    "))
            items.last() += '\n' + line.mid(4);
        else if (!line.startsWith('#'))
            items << line;
    }
    const QRegularExpression word(R"(^([\w-]+)( %\d)*:\s)");
    QMap<QString, QString> words;
    for (const QString &item : items) {
        const auto match = word.match(item);
        const QStringList fields = item.split("| ");
        // A bar can stand in what a word means, too; a road has two.
        if (match.hasMatch() && fields.size() != 3) {
            words[match.captured(1)] = item.mid(match.capturedEnd());
            continue;
        }
        QVERIFY2(fields.size() == 3, qPrintable("Neither a word nor a road: " + item));
        QTest::newRow(qPrintable(fields[0].trimmed())) << tokens(fields[1]) << expanded(fields[2], words);
    }
}

void UnitTest::roads()
{
    QFETCH(QStringList, commandLine);
    QFETCH(QStringList, expected);
    for (const QString &line : expected.filter(" -> "))
        scripted->answers << line.section(" -> ", 1);
    if (commandLine.removeAll("+wmic"))
        QFile(R"(C:\Windows\System32\wbem\WMIC.exe)").open(QIODevice::WriteOnly);
    scripted->version = commandLine.removeAll("+no-version");
    QStringList actual = runProgram(commandLine);
    // A set has no order of its own.
    actual.replaceInStrings(R"("3", "2")", R"("2", "3")");
    int same = 0;
    while (same < qMin(expected.size(), actual.size()) && expected[same] == actual[same])
        ++same;
    if (actual != expected)
        QFAIL(qPrintable(
            QString("The journal differs from line %1 on.\n  Expected:\n    %2\n  Actual:\n    %3")
                .arg(QString::number(same + 1), expected.mid(same).join("\n    "), actual.mid(same).join("\n    "))));
    QCOMPARE(scripted->journal.join(' '), "getCommonLogDir getCommonLogDir getCommonLogDir Logging to: \"" +
                                              scripted->folder.filePath("log/tap-log.txt") + '"');
    QVERIFY(!logFile.isOpen());
}

/// What it says stands in roads.txt. Each line ends in CR LF, the last one too.
void UnitTest::usage()
{
    const QStringList lines = runProgram({"help"}).value(1).section('"', 1, 1).split("\\r\\n");
    QCOMPARE(lines.size(), 14 + 1);
    for (const QString &each : lines)
        QCOMPARE(each.size(), each == lines[14] ? 0 : 67);
}

/// Each operation goes for the name that it is given, and puts it into both tries.
void UnitTest::names()
{
    ZELK::Tap tap;
    scripted->answers = QStringList{"1", "0", "2", "0", "3", "0"};
    QCOMPARE(tap.rename("Bü ro's \"%2\" %1", "%1"), 0);
    QCOMPARE(tap.enable("Bü ro's"), 0);
    QCOMPARE(tap.disable(""), 0);
    const QString calls =
        R"(cmd /c powershell -NonInteractive -Command  "Rename-NetAdapter -Name 'Bü ro's "%2" %1' -NewName '%1' " -> 1
netsh.exe interface set interface name='Bü ro's "%2" %1' newname='%1' -> 0
cmd /c powershell -NonInteractive -Command  "Enable-NetAdapter -Name 'Bü ro's' -Confirm:$False " -> 2
netsh.exe interface set interface name='Bü ro's' admin=ENABLED -> 0
cmd /c powershell -NonInteractive -Command  "Disable-NetAdapter -Name '' -Confirm:$False " -> 3
netsh.exe interface set interface name='' admin=DISABLED -> 0)";
    QCOMPARE(scripted->journal.filter(" -> ").join('\n'), calls);
}

void UnitTest::unwritableLog()
{
    scripted->logFolder = scripted->folder.filePath("file/log");
    QFile(scripted->folder.filePath("file")).open(QIODevice::WriteOnly);
    char word[] = "create";
    char *argv[] = {word, word};
    QCOMPARE(mordwellMain(2, argv), -1);
    QCOMPARE(scripted->journal.join(' '), QString("getCommonLogDir getCommonLogDir [ERROR] main():"));
}

/// The steps of the query, each with the text of its failure and the number of objects that are given back then.
const struct {
    const char *calls;
    const char *text;
    int released;
} steps[] = {
    {"CoInitializeEx(null, 0)", "Failed to initialize COM library. Error code ", -1},
    {"CoInitializeSecurity(null, -1, null, null, 0, 3, null, 0, null)",
     "Failed to initialize security. Error code = ", 0},
    {"CoCreateInstance(4590f811, null, 1, dc12a687)", "Failed to create IWbemLocator object. Error code = ", 0},
    {"SysAllocString(ROOT\\CIMV2)\nConnectServer(ROOT\\CIMV2, null, null, null, 0, null, null)\n"
     "SysFreeString(ROOT\\CIMV2)",
     "Could not connect. Error code = ", 1},
    {"CoSetProxyBlanket(services, 10, 0, null, 3, 3, null, 0)", "Could not set proxy blanket. Error code = ", 2},
    {"SysAllocString(2)\nExecQuery(WQL, SELECT NetConnectionID, PNPDeviceID FROM Win32_NetworkAdapter "
     "WHERE Description = 'TAP-Windows Adapter V9', 48, null)\nSysFreeString(2)",
     "Query for operating system name failed. Error code = ", 2},
};

void UnitTest::wmiFailure()
{
    // The two strings of the query come and go in no fixed order.
    const QRegularExpression both(R"((Sys\w+String)\((WQL|SELECT[^\n]*)\)\n\1\((?!\2)(WQL|SELECT[^\n]*)\))");
    const QStringList objects{"Release(services)\n", "Release(locator)\n"};
    scripted->journalCom = true;
    QString expected;
    for (const auto &step : steps) {
        const QString function = QRegularExpression(R"((Co|Exec)\w+(?=\())").match(step.calls).captured();
        // As the published headers write it: negative only where long has 32 bits.
        scripted->comResults = {{function, 0x80041003L}};
        scripted->journal.clear();
        InterfaceMap interfaces{{"kept", "id"}};
        QCOMPARE(ZELK::readInterfacesProgrammatically(interfaces), 1);
        QCOMPARE(interfaces, (InterfaceMap{{"kept", "id"}}));
        expected += QString(step.calls) + '\n';
        const QString released =
            step.released < 0 ? "" : objects.mid(2 - step.released).join("") + "CoUninitialize()\n";
        QCOMPARE(scripted->journal.join('\n').replace(both, "\\1(2)") + '\n',
                 expected + "[ERROR] ZELK::readInterfacesProgrammatically(): " + step.text + "-2147217405\n" +
                     released);
    }
}

void UnitTest::wmiRows()
{
    const auto text = [](const QString &value) { return WmiValue{0, VT_BSTR, value}; };
    const QPair<WmiValue, WmiValue> rows[] = {
        {text("same"), text("early")},      {text(" a  b "), text("")},  {text({}), text("null BSTR")},
        {{0, VT_NULL, {}}, text("1")},      {{0, VT_I4, {}}, text("1")}, {{0x80041002L, VT_BSTR, {}}, text("1")},
        {text("no id"), {0, VT_EMPTY, {}}}, {text("same"), text("late")}};
    QString journal;
    const QString property =
        "Get(%1, 0, null, null)\n[LOG] ZELK::readInterfacesProgrammatically(): %1 : \"%2\"\nVariantClear()\n";
    for (const auto &row : rows) {
        scripted->rows.append({{"NetConnectionID", row.first}, {"PNPDeviceID", row.second}});
        journal += "Next(-1, 1)\n" + property.arg("NetConnectionID", row.first.text) +
                   property.arg("PNPDeviceID", row.second.text) + "Release(row)\n";
    }
    journal += "Next(-1, 1)\nRelease(services)\nRelease(locator)\nRelease(enumerator)\nCoUninitialize()";
    scripted->comResults = {{"CoInitializeEx", 1}, {"Next", 0x80041001L}};
    scripted->journalCom = true;
    InterfaceMap interfaces;
    QCOMPARE(ZELK::readInterfacesProgrammatically(interfaces), 0);
    QCOMPARE(interfaces, (InterfaceMap{{" a  b ", ""}, {"", "null BSTR"}, {"same", "late"}}));
    QCOMPARE(scripted->journal.join('\n').section("SysFreeString(", -1).section('\n', 1), journal);
}

void UnitTest::paths()
{
    const QString tables[][3] = {{"5", "win2k", "Win2k"},
                                 {"6", "vista", "Vista"},
                                 {"9", "vista", "Vista"},
                                 {"10", "win10", "Vista"},
                                 {"11", "win10", "Vista"}};
    for (const QString arch : {"x86", "x64"}) {
        ARCH = arch;
        for (const auto &[major, folder, inf] : tables) {
            scripted->major = major.toInt();
            qputenv("ProgramFiles", "D:\\Bür");
            QCOMPARE(ZELK::Tap().pathDriver(),
                     QString("D:\\Bür//HalvaneRelayKit/driver/%1/%2/Oem%3.inf").arg(folder, arch, inf));
            qunsetenv("ProgramFiles");
            QCOMPARE(ZELK::Tap().pathDevcon(), "//HalvaneRelayKit/bin/devcon-" + arch + ".exe");
        }
    }
}

QTEST_APPLESS_MAIN(UnitTest)
#include "unit_test.moc"
