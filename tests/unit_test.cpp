// The program's functions against a host that answers as a script says. The table of the scenarios is scenarios_data(),
// their steps are in steps.h, and scripted_host.h contains the host. To run one scenario after ./test has built it:
//     build/default/tests/unit_test 'scenarios:fastest'
// To add one, add a row to the table. A new call or log line needs a step in steps.h.
#include "libtessark.h"
#include "main.h"
#include "steps.h"
#include "tap.h"

#include <QDir>
#include <QRegularExpression>
#include <QTest>

using ZELK::InterfaceMap;

class UnitTest : public QObject
{
    Q_OBJECT

private slots:
    void scenarios_data();
    void scenarios();
    void usage();
    void names();
    void failingQuery();
    void rows();
    void paths();
};

namespace
{

// QVERIFY2 would cut off a long text.
void verifyScript(const ScriptedHost &host)
{
    if (!host.difference().isEmpty())
        QFAIL(host.difference());
}

} // namespace

void UnitTest::scenarios_data()
{
    QTest::addColumn<QByteArrayList>("words");
    QTest::addColumn<Step>("script");
    QTest::addColumn<QString>("file");
    // Unless stated otherwise, the machine has wmic.
    const auto scenario = [](QString title, QByteArrayList words, Step script,
                             QString file = R"(C:\Windows\System32\wbem\WMIC.exe)") {
        QTest::newRow(title.toLatin1()) << words << script << file;
    };
    // The program is started with one word, and logs it.
    const auto run = [&](QString title, QString word, Step script) {
        scenario(title, {word.toLatin1()}, started(word) + script);
    };
    const Rows a1{{"A", "1"}};
    const Rows x1{{"X", "1"}};
    const Rows own{{kit, "1"}};
    const Rows ab{{"A", "1"}, {"B", "2"}};
    const Rows abx{{"A", "1"}, {"B", "2"}, {"X", "3"}};

    scenario("log cannot be opened", {"create"}, 2 * call("getCommonLogDir()") + bad, "log");
    scenario("no word", {}, update(own, own) + present);
    scenario("two words", {"list", "x"}, none + driver("create", {3}) + fails("create") + fails("check") + bad);
    run("list", "list", inventory({{"A", "1"}, {hidden, "2"}, {"B", hidden}}) + good);

    for (const QString word : {"create", "update", "remove", "removeAll"}) {
        const QString name = word.left(6);
        const auto driven = [&](QString title, Answer answer, Step end) {
            const Step removal = begins("remove") + devcon("[remove] [tap0901]", answer);
            run(word + title, word, (name == "remove" ? removal : driver(name, answer)) + end);
        };
        driven("", {0, "two\r\nlines é\""}, output(name, R"(two\r\nlines é\")") + good);
        driven(", restart needed", {1, "done"}, output(name, "done") + good);
        driven(" fails", {2, "lost"}, fails(name) + bad);
    }
    run("version unknown", "create",
        begins("create") + call("winVersion", {-1}) + fails("pathDriver") + devcon("[install] [] [tap0901]", {}) +
            output("create", "") + good);

    const auto removes = [&](QString title, Rows rows, Step end) {
        run(title, "removeInterface", inventory(rows) + end + good);
    };
    const Step notRemoved = fails("removeInterface") + logged("debug", "main");
    removes("removes the one interface", {{"A", "1"}, {kit, "7"}}, devcon("[remove] [@7]", {0, "gone"}));
    removes("removes an interface without id", {{kit, ""}}, devcon("[remove] [@]", {}));
    removes("removes an interface, restart needed", {{kit, "7"}}, devcon("[remove] [@7]", {1, "gone"}));
    removes("removal fails", {{kit, "8"}}, devcon("[remove] [@8]", {2, "lost"}) + notRemoved);
    removes("removes no name in other case", {{"halvanerelaykit", "7"}}, notRemoved);
    removes("removes no hidden adapter", {{hidden, "1"}, {kit, hidden}}, notRemoved);

    for (const QString word : {"enable", "disable"}) {
        run(word, word, toggle(word, {{0, "\"\\\tä"}}) + output(word, R"(\"\\\t\xE4)") + good);
        run(word + " by netsh", word, toggle(word, {{-1, "lost"}, {0, "ok"}}) + output(word, "lostok") + good);
        run(word + " fails", word, toggle(word, {{1, "lost"}, {-1, "lost"}}) + fails(word) + bad);
    }

    const QString a = "Name Id\r\nA 1\r\n";
    const Step list = started("list") + noInventory;
    run("wmic fails", "list", noInventory + wmic({1}) + powershell({0, a}) + found(a1) + good);
    scenario("powershell", {"list"}, list + powershell({0, a}) + found(a1) + good, "no wmic");
    scenario("powershell fails", {"list"}, list + powershell({-1}) + wmic({0, a}) + found(a1) + good, "no wmic");
    run("wmic and powershell fail", "list",
        noInventory + wmic({1}) + powershell({2, "lost"}) + fails("readInterfaces") + good +
            call("a scratch file is left"));
    const auto parses = [&](QString title, QString text, Rows rows) {
        run(title, "list", noInventory + wmic({0, text}) + found(rows) + good);
    };
    parses("wmic", "Name Id\r\nTap 1  ROOT\\0  \r\n", {{"Tap 1", R"(ROOT\\0)"}});
    parses("no scratch file", {}, {});
    parses("heading alone", "Name Id\r\n", {});
    parses("no heading", "\r\nA 1\r\n", {});
    parses("no heading, three rows", "\r\n\r\nA 1\r\nB 2\r\nC 3\r\n\r\n", {{"B", "2"}, {"C", "3"}});
    parses("no name, white space alone", "Name Id\n\n1\r\n  \r\nA 2", {{"A", "2"}});
    const QString names = "Name Id\r\n%1 1\r\nhalvanerelaykit 2\r\n%1 3\r\nHALVANERELAYKIT 4\r\n";
    run("name twice and in other case", "removeInterface",
        noInventory + wmic({0, names.arg(kit)}) +
            found({{kit, "1"}, {"halvanerelaykit", "2"}, {kit, "3"}, {"HALVANERELAYKIT", "4"}}) +
            devcon("[remove] [@3]", {}) + good);

    const auto check = [&](QString title, Step script) { scenario(title, {"check"}, script); };
    check("blanks in the name", checking(noInventory) +
                                    wmic({0, "Name Id\r\n Eth  ernet\t x   ID 4 \r\nHalvaneRelayKit 5"}) +
                                    found({{"Eth ernet x ID", "4"}, {kit, "5"}}) + updated + inventory({{"Y", "4"}}) +
                                    restored("Eth ernet x ID", "4", "Y") + present);
    check("not ASCII", checking(inventory(own)) + updated + noInventory + wmic({0, "\uFEFFName Id\r\nBü→ 1\r\n"}) +
                           found({{"Bü→", "1"}}) + restored(kit, "1", "Bü→") + present);
    const Step gaveUp = logged("ERROR", "Tap::check",
                               "Failed to update tap driver, probably a newer version is already installed. "
                               "Continuing...");
    check("update fails once", checking(inventory(own)) + updateFails + waited + updated + inventory(own) + present);
    check("update fails twice",
          checking(inventory(own)) + updateFails + waited + updateFails + gaveUp + inventory(own) + present);
    check("disable fails in the end", update(own, own) + noted("Tap interface already present") +
                                          toggle("disable", {{2}, {-1}}) + fails("disable") + good);
    check("names swapped", update({{"A", "1"}, {"B", "2"}, {kit, "3"}}, {{"A", "2"}, {"B", "1"}, {kit, "3"}}) +
                               restored("B", "2", "A") + restored("A", "1", "B") + present);
    check("rename fails", update({{"A", "1"}, {kit, "2"}}, {{"X", "1"}, {"Y", "2"}}) + nameLost("A", "1", "X") +
                              renameFails("X", "A") + fails("check") + bad);
    check("name lost", update(own, x1) + restored(kit, "1", "X") + present);
    check("gone after the update", update(own, {}) + present);
    check("hidden after the update", update(own, {{hidden, "1"}}) + present);
    check("id changed", update(own, {{"X", "2"}}) + present);
    const Rows twice{{"A", "1"}, {"B", "1"}, {kit, "3"}};
    check("id twice, first name", update(twice, a1) + restored("B", "1", "A") + present);
    check("id twice, third name", update(twice, {{"C", "1"}}) + restored("A", "1", "C") + present);

    const Step reinstalled = update(a1, a1) + created;
    const Step named = renamed("X", kit) + disabled;
    const Step notNamed = fails("check") + bad;
    const Step nothing = polled(0, {}) + waited;
    const Step x1Seen = seen(0, x1, R"("1")") + waited;
    const Step x1Confirmed = confirmed(0, x1, R"("1")");
    const Step x3Confirmed = confirmed(2, abx, R"("3")");
    const QString upper = kit.toUpper();
    check("emptied by the update",
          update(a1, {}) + created + confirmed(0, a1, R"("1")") + renamed("A", kit) + disabled);
    check("name only after the update", update({{upper, "1"}}, own) + restored(upper, "1", kit) + created +
                                            confirmed(1, {{kit, "1"}, {"X", "2"}}, R"("2")") + named);
    check("fewer after the update",
          update(ab, a1) + created + confirmed(1, {{"A", "1"}, {"X", "3"}}, R"("3")") + named);
    check("id twice in the baseline", update({{"A", "1"}, {"B", "1"}}, {{"A", "1"}, {"B", "1"}}) +
                                          restored("B", "1", "A") + restored("A", "1", "B") + created +
                                          confirmed(2, {{"A", "1"}, {"B", "1"}, {"X", "2"}}, R"("2")") + named);
    check("baseline after the update", update(a1, ab) + created + x3Confirmed + named);
    check("WMI fails in between",
          installed + noInventory + wmic({}) + found({}) + counts(0, 0) + waited + x1Confirmed + named);
    check("hidden at first", installed + inventory({{hidden, "1"}}) + counts(0, 0) + waited + x1Confirmed + named);
    check("fastest", installed + confirmed(0, {{"X Y", "1"}}, R"("1")") + renamed("X Y", kit) + disabled);
    check("final rename fails", installed + x1Confirmed + renameFails("X", kit) + noted("") + disabled);
    check("confirmed in the last poll", installed + 8 * nothing + x1Confirmed + named);
    check("seen in the last poll only", installed + 9 * nothing + x1Seen + notNamed);
    check("two new ids", reinstalled + seen(1, abx, R"("2", "3")") + notNamed);
    check("known id, new name", reinstalled + seen(1, {{"A", "1"}, {"X", "1"}}, "") + notNamed);
    check("new id twice", installed + confirmed(0, {{"X", "1"}, {"Y", "1"}}, R"("1")") + named);
    check("another id between",
          installed + x1Seen + seen(0, {{"Y", "2"}}, R"("2")") + waited + x1Seen + 7 * nothing + notNamed);
    check("fewer between", update(ab, ab) + created + seen(2, abx, R"("3")") + waited + polled(2, a1) + waited +
                               seen(2, abx, R"("3")") + named);
    check("replaced without a rise", reinstalled + 10 * (polled(1, {{"X", "2"}}) + waited) + notNamed);
    check("empty id", installed + 10 * (seen(0, {{"X", ""}}, R"("")") + waited) + notNamed);
}

void UnitTest::scenarios()
{
    QFETCH(QByteArrayList, words);
    QFETCH(Step, script);
    QFETCH(QString, file);
    ScriptedHost host(script);
    QVERIFY(QFile(file).open(QIODevice::WriteOnly));
    host.run(words);
    verifyScript(host);
}

/// Unknown words log the usage, too. All words of the program are in it.
void UnitTest::usage()
{
    for (const char *word : {"help", "Create", "lis", ""}) {
        ScriptedHost host(started(word) + good);
        host.run({word});
        const QString text = host.journal.takeAt(5);
        verifyScript(host);
        QVERIFY2(text.contains(QRegularExpression(R"(^\[debug\] main\(\): "([^\\]{67}\\r\\n){14}"$)")),
                 qPrintable(text));
        for (const QString command : {"help", "list", "update", "create", "enable", "disable", "check", "remove",
                                      "removeAll", "removeInterface"})
            QVERIFY2(text.contains(' ' + command + ' '), qPrintable(command));
    }
}

/// Each operation puts the name that it gets into both command lines.
void UnitTest::names()
{
    const QString name = "Bü ro's \"%2\" %1";
    ScriptedHost host(renaming(name, "%1", {{1}, {}}) + output("rename", "") + toggle("enable", {{2}, {}}, name) +
                      output("enable", "") + toggle("disable", {{3}, {}}, "") + output("disable", ""));
    ZELK::Tap tap;
    QCOMPARE(tap.rename(name, "%1"), 0);
    QCOMPARE(tap.enable(name), 0);
    QCOMPARE(tap.disable(""), 0);
    verifyScript(host);
}

namespace
{

Step lines(const QString &text)
{
    Step step;
    for (const QString &line : text.split('\n', Qt::SkipEmptyParts))
        step += call(line);
    return step;
}

/// The steps of the query: the calls, of which `function` can fail, the text of that failure, and what is released
/// then.
const struct {
    QString calls, function, text, released;
} querySteps[] = {
    {"CoInitializeEx(null, 0)", "CoInitializeEx", "Failed to initialize COM library. Error code ", ""},
    {"CoInitializeSecurity(null, -1, null, null, 0, 3, null, 0, null)", "CoInitializeSecurity",
     "Failed to initialize security. Error code = ", "CoUninitialize()"},
    {"CoCreateInstance(4590f811, null, 1, dc12a687)", "CoCreateInstance",
     "Failed to create IWbemLocator object. Error code = ", "CoUninitialize()"},
    {"SysAllocString()\nConnectServer(ROOT\\CIMV2, null, null, null, 0, null, null)\nSysFreeString()", "ConnectServer",
     "Could not connect. Error code = ", "Release(locator)\nCoUninitialize()"},
    {"CoSetProxyBlanket(services, 10, 0, null, 3, 3, null, 0)", "CoSetProxyBlanket",
     "Could not set proxy blanket. Error code = ", "Release(services)\nRelease(locator)\nCoUninitialize()"},
    {"SysAllocString()\nSysAllocString()\nExecQuery(WQL, SELECT NetConnectionID, PNPDeviceID FROM Win32_NetworkAdapter "
     "WHERE Description = 'TAP-Windows Adapter V9', 48, null)\nSysFreeString()\nSysFreeString()",
     "ExecQuery",
     "Query for operating system name failed. Error code = ", "Release(services)\nRelease(locator)\nCoUninitialize()"},
};

/// A host whose journal contains every COM call. A function returns what `results` contains, or 0.
struct ComHost : ScriptedHost {
    HRESULT comCall(const QString &function, const QString &arguments) override
    {
        journal << function + '(' + arguments + ')';
        return results.value(function);
    }
    QVector<WmiRow> wmiRows() override { return rows; }

    QMap<QString, HRESULT> results;
    QVector<WmiRow> rows;
};

} // namespace

void UnitTest::failingQuery()
{
    Step calls;
    for (const auto &step : querySteps) {
        ComHost host;
        // The published headers write the code like this; it is negative only where long has 32 bits.
        host.results = {{step.function, 0x80041003L}};
        calls += lines(step.calls);
        host.script =
            calls + logged("ERROR", "readInterfacesProgrammatically", step.text + "-2147217405") + lines(step.released);
        InterfaceMap interfaces{{"kept", "id"}};
        QCOMPARE(ZELK::readInterfacesProgrammatically(interfaces), 1);
        QCOMPARE(interfaces, (InterfaceMap{{"kept", "id"}}));
        verifyScript(host);
    }
}

void UnitTest::rows()
{
    const auto text = [](const QString &value) { return WmiValue{0, VT_BSTR, value}; };
    const QPair<WmiValue, WmiValue> rows[] = {
        {text("same"), text("early")},      {text(" a  b "), text("")},  {text({}), text("null BSTR")},
        {{0, VT_NULL, {}}, text("1")},      {{0, VT_I4, {}}, text("1")}, {{0x80041002L, VT_BSTR, {}}, text("1")},
        {text("no id"), {0, VT_EMPTY, {}}}, {text("same"), text("late")}};
    ComHost host;
    host.results = {{"CoInitializeEx", 1}, {"Next", 0x80041001L}};
    for (const auto &step : querySteps)
        host.script += lines(step.calls);
    const auto property = [](const QString &name, const WmiValue &value) {
        return call("Get(" + name + ", 0, null, null)") +
               logged("LOG", "readInterfacesProgrammatically", name + " : \"" + value.text + '"') +
               call("VariantClear()");
    };
    for (const auto &[name, id] : rows) {
        host.rows.append({{"NetConnectionID", name}, {"PNPDeviceID", id}});
        host.script += call("Next(-1, 1)") + property("NetConnectionID", name) + property("PNPDeviceID", id) +
                       call("Release(row)");
    }
    host.script += lines("Next(-1, 1)\nRelease(services)\nRelease(locator)\nRelease(enumerator)\nCoUninitialize()");
    InterfaceMap interfaces;
    QCOMPARE(ZELK::readInterfacesProgrammatically(interfaces), 0);
    QCOMPARE(interfaces, (InterfaceMap{{" a  b ", ""}, {"", "null BSTR"}, {"same", "late"}}));
    verifyScript(host);
}

void UnitTest::paths()
{
    const QStringList versions[] = {{"5.2", "win2k", "Win2k"},
                                    {"6.0", "vista", "Vista"},
                                    {"9.9", "vista", "Vista"},
                                    {"10.0", "win10", "Vista"},
                                    {"11.0", "win10", "Vista"}};
    for (const QString arch : {"x86", "x64"}) {
        ARCH = arch;
        for (const QStringList &each : versions) {
            ScriptedHost host(call("winVersion", {0, each[0]}));
            qputenv("ProgramFiles", "D:\\Bür");
            QCOMPARE(ZELK::Tap().pathDriver(),
                     QString("D:\\Bür//HalvaneRelayKit/driver/%1/%2/Oem%3.inf").arg(each[1], arch, each[2]));
            qunsetenv("ProgramFiles");
            QCOMPARE(ZELK::Tap().pathDevcon(), "//HalvaneRelayKit/bin/devcon-" + arch + ".exe");
        }
    }
}

QTEST_APPLESS_MAIN(UnitTest)
#include "unit_test.moc"
