// Tests of the program's functions with a fake host that answers as a script says. scenarios_data() is the table of
// scenarios, steps.h contains the steps that they consist of, and scripted_host.h the fake host.
// To run one scenario, build with ./test, then:
//     build/default/tests/unit_test 'scenarios:fastest'
// To add a scenario, add a row to the table: title, command-line words, expected steps. If the program has a new call
// or log line, add a step to steps.h.
#include "libtessark.h"
#include "main.h"
#include "steps.h"
#include "tap.h"

#include <QDir>
#include <QRegularExpression>
#include <QTest>

#include <tuple>

using ZELK::InterfaceMap;

// QVERIFY2 would cut off a long command line, and a function would fail at its own line.
#define VERIFY_SCRIPT(host)                                                                                            \
    do {                                                                                                               \
        if (!(host).difference().isEmpty())                                                                            \
            QFAIL((host).difference());                                                                                \
    } while (false)

class UnitTest : public QObject
{
    Q_OBJECT

private slots:
    void scenarios_data();
    void scenarios();
    void noTemporaryFolder();
    void usage();
    void names();
    void failingQuery();
    void rows();
    void paths();
};

namespace
{

/// A host whose journal contains every COM call. A call returns what `results` contains for it, or 0.
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

/// The calls of a good query until it reads rows.
const Step goodQuery{{"CoInitializeEx(null, 0)"},
                     {"CoInitializeSecurity(null, -1, null, null, 0, 3, null, 0, null)"},
                     {"CoCreateInstance(4590f811, null, 1, dc12a687)"},
                     {"SysAllocString()"},
                     {"ConnectServer(ROOT\\CIMV2, null, null, null, 0, null, null)"},
                     {"SysFreeString()"},
                     {"CoSetProxyBlanket(services, 10, 0, null, 3, 3, null, 0)"},
                     {"SysAllocString()"},
                     {"SysAllocString()"},
                     {"ExecQuery(WQL, SELECT NetConnectionID, PNPDeviceID FROM Win32_NetworkAdapter "
                      "WHERE Description = 'TAP-Windows Adapter V9', 48, null)"},
                     {"SysFreeString()"},
                     {"SysFreeString()"}};

} // namespace

void UnitTest::scenarios_data()
{
    QTest::addColumn<QByteArrayList>("words");
    QTest::addColumn<Step>("script");
    QTest::addColumn<QString>("file");
    // Unless stated otherwise, the machine has wmic.
    const auto scenario = [](const QByteArray &title, const QByteArrayList &words, const Step &script,
                             const QString &file = R"(C:\Windows\System32\wbem\WMIC.exe)") {
        QTest::newRow(title) << words << script << file;
    };
    // The name or id of a hidden adapter is NULL.
    const QString hidden;
    const Rows own{{kit, "1"}};
    const Rows a1{{"A", "1"}};
    const Rows x1{{"X", "1"}};
    const Rows ab{{"A", "1"}, {"B", "2"}};
    const Rows abx{{"A", "1"}, {"B", "2"}, {"X", "3"}};

    scenario("log cannot be opened", {"create"}, 2 * call("getCommonLogDir()") + bad, "log");
    scenario("two words", {"list", "x"}, none + driver("create", {3}) + fails("create") + fails("check") + bad);
    scenario("no word", {}, update(own, own) + present);
    scenario("list", {"list"}, started("list") + inventory({{"A", "1"}, {hidden, "2"}, {"B", hidden}}) + good);

    for (const QString word : {"create", "update", "remove", "removeAll"}) {
        const QString name = word == "removeAll" ? "remove" : word;
        const auto driverScenario = [&](const char *title, const Answer &answer, const Step &end) {
            scenario((word + title).toLatin1(), {word.toLatin1()}, started(word) + driver(name, answer) + end);
        };
        driverScenario("", {0, "two\r\nlines é\""}, output(name, R"(two\r\nlines é\")") + good);
        driverScenario(", restart needed", {1, "done"}, output(name, "done") + good);
        driverScenario(" fails", {2, "lost"}, fails(name) + bad);
    }
    scenario("version unknown", {"create"},
             started("create") + logged("trace", "Tap::create") + call("winVersion", {-1}) + fails("pathDriver") +
                 devcon("[install] [] [tap0901]", {}) + output("create", "") + good);

    const auto removal = [&](const char *title, const Rows &rows, const Step &end) {
        scenario(title, {"removeInterface"}, started("removeInterface") + inventory(rows) + end + good);
    };
    const Step notRemoved = fails("removeInterface") + logged("debug", "main");
    removal("removes the one interface", {{"A", "1"}, {kit, "7"}}, devcon("[remove] [@7]", {0, "gone"}));
    removal("removes an interface without id", {{kit, ""}}, devcon("[remove] [@]", {}));
    removal("removes an interface, restart needed", {{kit, "7"}}, devcon("[remove] [@7]", {1, "gone"}));
    removal("removal fails", {{kit, "8"}}, devcon("[remove] [@8]", {2, "lost"}) + notRemoved);
    removal("removes no name in other case", {{"halvanerelaykit", "7"}}, notRemoved);
    removal("removes no hidden adapter", {{hidden, "1"}, {kit, hidden}}, notRemoved);

    for (const QString word : {"enable", "disable"}) {
        const auto toggleScenario = [&](const char *title, const Answers &answers, const Step &end) {
            scenario((word + title).toLatin1(), {word.toLatin1()}, started(word) + toggleTries(word, answers) + end);
        };
        toggleScenario("", {{0, "\"\\\tä"}}, output(word, R"(\"\\\t\xE4)") + good);
        toggleScenario(" by netsh", {{-1, "lost"}, {0, "ok"}}, output(word, "lostok") + good);
        toggleScenario(" fails", {{1, "lost"}, {-1, "lost"}}, fails(word) + bad);
    }

    const Step list = started("list") + noInventory;
    const QString a = "Name Id\r\nA 1\r\n";
    scenario("wmic fails", {"list"}, list + call(wmic, {1}) + call(powershell, {0, a}) + found(a1) + good);
    scenario("powershell", {"list"}, list + call(powershell, {0, a}) + found(a1) + good, "no wmic");
    scenario("powershell fails", {"list"}, list + call(powershell, {-1}) + call(wmic, {0, a}) + found(a1) + good,
             "no wmic");
    scenario("wmic and powershell fail", {"list"},
             list + call(wmic, {1}) + call(powershell, {2, "lost"}) + fails("readInterfaces") + good +
                 call("a scratch file is left"));
    const auto parsed = [&](const char *title, const QString &text, const Rows &rows) {
        scenario(title, {"list"}, list + call(wmic, {0, text}) + found(rows) + good);
    };
    parsed("wmic", "Name Id\r\nTap 1  ROOT\\0  \r\n", {{"Tap 1", R"(ROOT\\0)"}});
    parsed("no scratch file", {}, {});
    parsed("heading alone", "Name Id\r\n", {});
    parsed("no heading", "\r\nA 1\r\n", {});
    parsed("no heading, three rows", "\r\n\r\nA 1\r\nB 2\r\nC 3\r\n\r\n", {{"B", "2"}, {"C", "3"}});
    parsed("no name, white space alone", "Name Id\n\n1\nB 3\r\n  \r\nA 2", {{"B", "3"}, {"A", "2"}});
    const QString names = "Name Id\r\n%1 1\r\nhalvanerelaykit 2\r\n%1 3\r\nHALVANERELAYKIT 4\r\n";
    scenario("name twice and in other case", {"removeInterface"},
             started("removeInterface") + noInventory + call(wmic, {0, names.arg(kit)}) +
                 found({{kit, "1"}, {"halvanerelaykit", "2"}, {kit, "3"}, {"HALVANERELAYKIT", "4"}}) +
                 devcon("[remove] [@3]", {}) + good);
    const auto check = [&](const char *title, const Step &script) { scenario(title, {"check"}, script); };
    check("blanks in the name", checking(noInventory) +
                                    call(wmic, {0, "Name Id\r\n Eth  ernet\t x   ID 4 \r\nHalvaneRelayKit 5"}) +
                                    found({{"Eth ernet x ID", "4"}, {kit, "5"}}) + updated + inventory({{"Y", "4"}}) +
                                    restored("Eth ernet x ID", "4", "Y") + present);
    check("not ASCII", checking(inventory(own)) + updated + noInventory +
                           call(wmic, {0, "\uFEFFName Id\r\nBü→ 1\r\n"}) + found({{"Bü→", "1"}}) +
                           restored(kit, "1", "Bü→") + present);

    const Step gaveUp = logged("ERROR", "Tap::check",
                               "Failed to update tap driver, probably a newer version is already installed. "
                               "Continuing...");
    check("present", update({{kit, "1"}, {"B", "2"}}, {{kit, "1"}, {"B", "2"}}) + present);
    check("update fails once", checking(inventory(own)) + updateFailed + waited + updated + inventory(own) + present);
    check("update fails twice",
          checking(inventory(own)) + updateFailed + waited + updateFailed + gaveUp + inventory(own) + present);
    check("disable fails in the end", update(own, own) + noted("Tap interface already present") +
                                          toggleTries("disable", {{2}, {-1}}) + fails("disable") + good);
    check("names swapped", update({{"A", "1"}, {"B", "2"}, {kit, "3"}}, {{"A", "2"}, {"B", "1"}, {kit, "3"}}) +
                               restored("B", "2", "A") + restored("A", "1", "B") + present);
    check("rename fails", update({{"A", "1"}, {kit, "2"}}, {{"X", "1"}, {"Y", "2"}}) + nameLost("A", "1", "X") +
                              renameFailed("X", "A") + fails("check") + bad);
    check("name lost", update(own, x1) + restored(kit, "1", "X") + present);
    check("gone after the update", update(own, {}) + present);
    check("hidden after the update", update(own, {{hidden, "1"}}) + present);
    check("id changed", update(own, {{"X", "2"}}) + present);
    const Rows twice{{"A", "1"}, {"B", "1"}, {kit, "3"}};
    check("id twice, first name", update(twice, a1) + restored("B", "1", "A") + present);
    check("id twice, third name", update(twice, {{"C", "1"}}) + restored("A", "1", "C") + present);

    const Step installed = none + created;
    const Step reinstalled = update(a1, a1) + created;
    const Step named = renamed("X", kit) + disabled;
    const Step notNamed = fails("check") + bad;
    const Step nothing = polled(0, {}) + waited;
    const Step x1Seen = seen(0, x1, {"1"}) + waited;
    const Step x1Confirmed = confirmed(0, x1, "1");
    check("emptied by the update", update(a1, {}) + created + confirmed(0, a1, "1") + renamed("A", kit) + disabled);
    check("name only after the update", update({{"HALVANERELAYKIT", "1"}}, own) +
                                            restored("HALVANERELAYKIT", "1", kit) + created +
                                            confirmed(1, {{kit, "1"}, {"X", "2"}}, "2") + named);
    check("fewer after the update", update(ab, a1) + created + confirmed(1, {{"A", "1"}, {"X", "3"}}, "3") + named);
    check("id twice in the baseline", update({{"A", "1"}, {"B", "1"}}, {{"A", "1"}, {"B", "1"}}) +
                                          restored("B", "1", "A") + restored("A", "1", "B") + created +
                                          confirmed(2, {{"A", "1"}, {"B", "1"}, {"X", "2"}}, "2") + named);
    check("baseline after the update", update(a1, ab) + created + confirmed(2, abx, "3") + named);
    check("WMI fails in between",
          installed + noInventory + call(wmic, {}) + found({}) + counts(0, 0) + waited + x1Confirmed + named);
    check("hidden at first", installed + inventory({{hidden, "1"}}) + counts(0, 0) + waited + x1Confirmed + named);
    check("fastest", installed + confirmed(0, {{"X Y", "1"}}, "1") + renamed("X Y", kit) + disabled);
    check("final rename fails", installed + x1Confirmed + renameFailed("X", kit) + noted("") + disabled);
    check("confirmed in the last poll", installed + 8 * nothing + x1Confirmed + named);
    check("seen in the last poll only", installed + 9 * nothing + x1Seen + notNamed);
    check("two new ids", reinstalled + seen(1, abx, {"2", "3"}) + notNamed);
    check("known id, new name", reinstalled + seen(1, {{"A", "1"}, {"X", "1"}}, {}) + notNamed);
    check("new id twice", installed + confirmed(0, {{"X", "1"}, {"Y", "1"}}, "1") + named);
    check("another id between",
          installed + x1Seen + seen(0, {{"Y", "2"}}, {"2"}) + waited + x1Seen + 7 * nothing + notNamed);
    check("fewer between", update(ab, ab) + created + seen(2, abx, {"3"}) + waited + polled(2, a1) + waited +
                               seen(2, abx, {"3"}) + named);
    check("replaced without a rise", reinstalled + 10 * (polled(1, {{"X", "2"}}) + waited) + notNamed);
    check("empty id", installed + 10 * (seen(0, {{"X", ""}}, {""}) + waited) + notNamed);
}

void UnitTest::scenarios()
{
    QFETCH(QByteArrayList, words);
    QFETCH(Step, script);
    QFETCH(QString, file);
    ScriptedHost host(script);
    QVERIFY(QFile(file).open(QIODevice::WriteOnly));
    host.run(words);
    VERIFY_SCRIPT(host);
}

/// Without a temporary folder, the scratch file has no name. Qt must not log a warning about that.
void UnitTest::noTemporaryFolder()
{
    ScriptedHost host(started("list") + noInventory + call(QString(wmic).remove("SCRATCH"), {}) + found({}) + good);
    QVERIFY(QFile(R"(C:\Windows\System32\wbem\WMIC.exe)").open(QIODevice::WriteOnly));
    qputenv("TMPDIR", "/dev/null");
    host.run({"list"});
    VERIFY_SCRIPT(host);
}

/// The text is one line of the log. Its lines end in CR LF, the last one too, and contain each command word.
void UnitTest::usage()
{
    const QString words = "help list update create enable disable check remove removeAll removeInterface";
    for (const QByteArray word : {"help", "Create", "lis", ""}) {
        ScriptedHost host(started(word) + good);
        host.run({word});
        const QString usage = host.journal.value(5);
        host.journal.removeAll(usage);
        VERIFY_SCRIPT(host);
        const QRegularExpression form(R"(^\[debug\] main\(\): "([^\\]{67}\\r\\n){14}"$)");
        QVERIFY2(form.match(usage).hasMatch(), qPrintable(usage));
        for (const QString &each : words.split(' '))
            QVERIFY2(usage.contains(QRegularExpression("(n    |\\| )" + each + ' ')), qPrintable(each));
    }
}

/// The operations use the name that they get, in both tries.
void UnitTest::names()
{
    const QString name = "Bü ro's \"%2\" %1";
    ScriptedHost host(renameTries(name, "%1", {{1}, {}}) + output("rename", "") +
                      toggleTries("enable", {{2}, {}}, name) + output("enable", "") +
                      toggleTries("disable", {{3}, {}}, "") + output("disable", ""));
    ZELK::Tap tap;
    QCOMPARE(tap.rename(name, "%1"), 0);
    QCOMPARE(tap.enable(name), 0);
    QCOMPARE(tap.disable(""), 0);
    VERIFY_SCRIPT(host);
}

void UnitTest::failingQuery()
{
    const Step com{{"CoUninitialize()"}};
    const Step locator = call("Release(locator)") + com;
    const Step services = call("Release(services)") + locator;
    // The function that fails, the calls of the good query up to it, the text that is logged and what is released.
    const std::tuple<const char *, int, QString, Step> failures[] = {
        {"CoInitializeEx", 1, "Failed to initialize COM library. Error code ", {}},
        {"CoInitializeSecurity", 2, "Failed to initialize security. Error code = ", com},
        {"CoCreateInstance", 3, "Failed to create IWbemLocator object. Error code = ", com},
        {"ConnectServer", 6, "Could not connect. Error code = ", locator},
        {"CoSetProxyBlanket", 7, "Could not set proxy blanket. Error code = ", services},
        {"ExecQuery", 12, "Query for operating system name failed. Error code = ", services}};
    for (const auto &[function, calls, text, released] : failures) {
        ComHost host;
        // As the published headers write the code, which is negative only where long has 32 bits.
        host.results = {{function, 0x80041003L}};
        host.script = goodQuery.mid(0, calls) +
                      logged("ERROR", "readInterfacesProgrammatically", text + "-2147217405") + released;
        InterfaceMap interfaces{{"kept", "id"}};
        QCOMPARE(ZELK::readInterfacesProgrammatically(interfaces), 1);
        QCOMPARE(interfaces, (InterfaceMap{{"kept", "id"}}));
        VERIFY_SCRIPT(host);
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
    host.script = goodQuery;
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
    host.script += call("Next(-1, 1)") + call("Release(services)") + call("Release(locator)") +
                   call("Release(enumerator)") + call("CoUninitialize()");
    InterfaceMap interfaces;
    QCOMPARE(ZELK::readInterfacesProgrammatically(interfaces), 0);
    QCOMPARE(interfaces, (InterfaceMap{{" a  b ", ""}, {"", "null BSTR"}, {"same", "late"}}));
    VERIFY_SCRIPT(host);
}

void UnitTest::paths()
{
    const QStringList drivers[] = {{"5.2", "win2k/%1/OemWin2k.inf"},
                                   {"6.0", "vista/%1/OemVista.inf"},
                                   {"9.9", "vista/%1/OemVista.inf"},
                                   {"10.0", "win10/%1/OemVista.inf"}};
    for (const QString arch : {"x86", "x64"}) {
        ARCH = arch;
        for (const QStringList &each : drivers) {
            ScriptedHost host(call("winVersion", {0, each[0]}));
            qputenv("ProgramFiles", "D:\\Bür");
            QCOMPARE(ZELK::Tap().pathDriver(), "D:\\Bür//HalvaneRelayKit/driver/" + each[1].arg(arch));
            qunsetenv("ProgramFiles");
            QCOMPARE(ZELK::Tap().pathDevcon(), "//HalvaneRelayKit/bin/devcon-" + arch + ".exe");
        }
    }
}

QTEST_APPLESS_MAIN(UnitTest)
#include "unit_test.moc"
