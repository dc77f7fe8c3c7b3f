// Tests of the program's functions with a fake host that answers as a script says. scenarios_data() is the table of
// scenarios, steps.h contains the steps that they consist of, and scripted_host.h the fake host.
// To run one scenario, build with ./test, then:
//     build/default/tests/unit_test 'scenarios:fastest'
// To add a scenario, add a row to the table: title, command word, expected steps. If the program has a new call or log
// line, add a step to steps.h.
#include "libtessark.h"
#include "main.h"
#include "steps.h"
#include "tap.h"

#include <QDir>
#include <QTest>

class UnitTest : public QObject
{
    Q_OBJECT

private slots:
    void scenarios_data();
    void scenarios();
    void names();
    void paths();
};

void UnitTest::scenarios_data()
{
    QTest::addColumn<QByteArrayList>("words");
    QTest::addColumn<Step>("script");
    QTest::addColumn<QString>("file");
    const auto run = [](const QByteArray &title, const QByteArrayList &words, const Step &script,
                        const QString &file = R"(C:\Windows\System32\wbem\WMIC.exe)") {
        QTest::newRow(title) << words << script << file;
    };
    // Unless stated otherwise, the machine has wmic.
    const auto scenario = [&](const QByteArray &title, const QByteArray &word, const Step &script) {
        run(title, {word}, started(word) + script);
    };
    const Rows own{{kit, "1"}};
    const Rows a1{{"A", "1"}};
    const Rows x1{{"X", "1"}};
    const Rows ab{{"A", "1"}, {"B", "2"}};
    const Rows twice{{"A", "1"}, {kit, "1"}};
    const Rows abx{{"A", "1"}, {"B", "2"}, {"X", "3"}};

    run("log cannot be opened", {"create"}, 2 * call("getCommonLogDir()") + bad, "log");
    run("two words", {"list", "x"},
        started("check") + none + driver("create", {3}) + fails("create") + fails("check") + bad);
    run("no word", {}, started("check") + update(own, own) + present);
    for (const char *word : {"help", "Create", "lis", ""})
        scenario(QByteArray("usage: ") + word, word, logged("debug", "main", "USAGE") + good);
    scenario("list", "list", inventory({{"A", "1"}, {hidden, "2"}, {"B", hidden}}) + good);

    for (const QByteArray word : {"create", "update", "remove", "removeAll"}) {
        const QString name = word == "removeAll" ? "remove" : word;
        scenario(word, word, driver(name, {0, "two\r\nlines é\""}) + output(name, R"(two\r\nlines é\")") + good);
        scenario(word + ", restart needed", word, driver(name, {1, "done"}) + output(name, "done") + good);
        scenario(word + " fails", word, driver(name, {2, "lost"}) + fails(name) + bad);
    }
    scenario("version unknown", "create",
             logged("trace", "Tap::create") + call("winVersion", {-1}) + fails("pathDriver") +
                 devcon("[install] [] [tap0901]", {}) + output("create", "") + good);

    const auto removal = [&](const char *title, const Rows &rows, const Step &end) {
        scenario(title, "removeInterface", inventory(rows) + end + good);
    };
    const Step notRemoved = fails("removeInterface") + logged("debug", "main");
    removal("removes the one interface, restart needed", {{"A", "1"}, {kit, "7"}},
            devcon("[remove] [@7]", {1, "gone"}));
    removal("removes an interface without id", {{kit, ""}}, devcon("[remove] [@]", {}));
    removal("removal fails", {{kit, "7"}, {kit, "8"}}, devcon("[remove] [@8]", {2, "lost"}) + notRemoved);
    removal("removes no other interface", {{"halvanerelaykit", "7"}, {hidden, "1"}, {kit, hidden}}, notRemoved);

    for (const QByteArray word : {"enable", "disable"}) {
        scenario(word, word, tries(word, {{0, "\"\\\tä"}}) + output(word, R"(\"\\\t\xE4)") + good);
        scenario(word + " by netsh", word, tries(word, {{-1, "lost"}, {0, "ok"}}) + output(word, "lostok") + good);
        scenario(word + " fails", word, tries(word, {{1, "lost"}, {-1, "lost"}}) + fails(word) + bad);
    }

    const QString text = "Name Id\r\nA 1\r\n";
    // The function of the query that fails.
    const auto failing = [&](const char *function, int calls, const char *message, int releases) {
        scenario(function, "list",
                 queryFails(function, calls, message, releases) + call(wmic, {0, text}) + found(a1) + good);
    };
    failing("CoInitializeEx", 1, "Failed to initialize COM library. Error code ", 0);
    failing("CoInitializeSecurity", 2, "Failed to initialize security. Error code = ", 1);
    failing("CoCreateInstance", 3, "Failed to create IWbemLocator object. Error code = ", 1);
    failing("ConnectServer", 6, "Could not connect. Error code = ", 2);
    failing("CoSetProxyBlanket", 7, "Could not set proxy blanket. Error code = ", 3);
    failing("ExecQuery", 12, "Query for operating system name failed. Error code = ", 3);

    const Step list = started("list") + noInventory;
    run("powershell", {"list"}, list + call(powershell, {0, text}) + found(a1) + good, "no wmic");
    run("powershell fails", {"list"}, list + call(powershell, {-1}) + call(wmic, {0, text}) + found(a1) + good,
        "no wmic");
    run("wmic fails", {"list"}, list + call(wmic, {1}) + call(powershell, {0, text}) + found(a1) + good);
    scenario("wmic and powershell fail", "list",
             noInventory + call(wmic, {1}) + call(powershell, {2, "lost"}) + fails("readInterfaces") + good +
                 call("a scratch file is left"));
    const auto parsed = [&](const char *title, const QString &contents, const Rows &rows) {
        scenario(title, "list", noInventory + call(wmic, {0, contents}) + found(rows) + good);
    };
    parsed("wmic", "Name Id\r\nTap 1  ROOT\\0  \n1\n  \r\nA 2", {{"Tap 1", R"(ROOT\\0)"}, {"A", "2"}});
    parsed("no scratch file", {}, {});
    run("no temporary folder", {"list"}, list + call(QString(powershell).remove("SCRATCH")) + found({}) + good, "tmp");
    parsed("no heading", "\r\n\r\nA 1\r\nB 2\r\nC 3\r\n\r\n", {{"B", "2"}, {"C", "3"}});
    const auto check = [&](const char *title, const Step &script) { scenario(title, "check", script); };
    check("unusual names from wmic",
          checking(noInventory) +
              call(wmic, {0, "Name Id\r\n Eth  ernet\t x   ID 3 \r\nEth ernet x ID 4\r\nHalvaneRelayKit 5"}) +
              found({{"Eth ernet x ID", "3"}, {"Eth ernet x ID", "4"}, {kit, "5"}}) + updated + noInventory +
              call(wmic, {0, "\uFEFFName Id\r\nBü→ 4\r\n"}) + found({{"Bü→", "4"}}) +
              restored("Eth ernet x ID", "4", "Bü→") + present);

    const Step gaveUp = logged("ERROR", "Tap::check",
                               "Failed to update tap driver, probably a newer version is already installed. "
                               "Continuing...");
    check("update fails once", checking(inventory(own)) + updateFailed + waited + updated + inventory(own) + present);
    check("update fails twice",
          checking(inventory(own)) + updateFailed + waited + updateFailed + gaveUp + inventory(own) + present);
    check("disable fails in the end", update(own, own) + noted("Tap interface already present") +
                                          tries("disable", {{2}, {-1}}) + fails("disable") + good);
    check("names swapped", update({{"A", "1"}, {"B", "2"}, {kit, "3"}}, {{"A", "2"}, {"B", "1"}, {kit, "3"}}) +
                               restored("B", "2", "A") + restored("A", "1", "B") + present);
    const QString name = "Bü ro's %2 %1";
    check("rename fails", update({{name, "1"}, {kit, "2"}}, {{"%1", "1"}, {"Y", "2"}}) + nameLost(name, "1", "%1") +
                              renameFailed("%1", name) + fails("check") + bad);
    check("id changed", update(own, {{"X", "2"}}) + present);
    check("id twice, first name", update(twice, a1) + restored(kit, "1", "A") + present);
    check("id twice, third name", update(twice, {{"C", "1"}}) + restored("A", "1", "C") + present);

    const Step installed = none + created;
    const Step reinstalled = update(a1, a1) + created;
    const Step named = renamed("X", kit) + disabled;
    const Step notNamed = fails("check") + bad;
    const Step nothing = polled(0, {}) + waited;
    const Step x1Seen = seen(0, x1, {"1"}) + waited;
    const Step x1Confirmed = confirmed(0, x1, "1");
    check("fastest", installed + confirmed(0, {{"X Y", "1"}}, "1") + renamed("X Y", kit) + disabled);
    // The number of names before create() counts, and the name has to be there before the update.
    check("name and an id twice after the update",
          update(a1, twice) + restored("A", "1", kit) + created + confirmed(2, twice + Rows{{"X", "2"}}, "2") + named);
    check("final rename fails", installed + x1Confirmed + renameFailed("X", kit) + noted("") + disabled);
    // In the first polls, the interface is hidden, and WMI fails.
    check("confirmed in the last poll", installed + inventory({{hidden, "1"}}) + counts(0, 0) + waited + noInventory +
                                            call(wmic, {}) + found({}) + counts(0, 0) + waited + 6 * nothing +
                                            x1Confirmed + named);
    check("two new ids", reinstalled + seen(1, abx, {"3", "2"}) + notNamed);
    check("known id, new name", reinstalled + seen(1, {{"A", "1"}, {"X", "1"}}, {}) + notNamed);
    check("new id twice", installed + confirmed(0, {{"X", "1"}, {"Y", "1"}}, "1") + named);
    check("another id between",
          installed + x1Seen + seen(0, {{"Y", "2"}}, {"2"}) + waited + x1Seen + 7 * nothing + notNamed);
    check("fewer between", update(ab, ab) + created + seen(2, abx, {"3"}) + waited + polled(2, a1) + waited +
                               seen(2, abx, {"3"}) + named);
    check("replaced without a rise", reinstalled + 10 * (polled(1, {{"X", "2"}}) + waited) + notNamed);
    check("empty id", installed + 10 * (seen(0, {{"X", ""}}, {""}) + waited) + notNamed);
    const Rows ignored{{Value(VT_I4), "1"}, {Value(VT_BSTR, 0x80041002L), "1"}, {"no id", Value(VT_EMPTY)}};
    const Rows three{{"same", "early"}, {" a  b ", ""}, {QString(), "null BSTR"}, {"same", "late"}};
    check("unusual rows",
          installed + inventory(ignored + three) + counts(0, 3) + newIds({"", "late", "null BSTR"}) + notNamed);
}

void UnitTest::scenarios()
{
    QFETCH(QByteArrayList, words);
    QFETCH(Step, script);
    QFETCH(QString, file);
    verifyScript(script, [&] {
        QVERIFY(QFile(file).open(QIODevice::WriteOnly));
        runMain(words);
    });
}

/// enable() and disable() use the name that they get, in both tries.
void UnitTest::names()
{
    const Step script = tries("enable", {{2}, {}}, "Bü \"%1\"") + output("enable") + tries("disable", {{3}, {}}, "") +
                        output("disable");
    verifyScript(script, [] {
        QCOMPARE(ZELK::Tap().enable("Bü \"%1\""), 0);
        QCOMPARE(ZELK::Tap().disable(""), 0);
    });
}

void UnitTest::paths()
{
    const QStringList drivers[] = {{"x86", "5.2", "win2k/x86/OemWin2k.inf"},
                                   {"x64", "5.2", "win2k/x64/OemWin2k.inf"},
                                   {"x86", "6.0", "vista/x86/OemVista.inf"},
                                   {"x64", "9.9", "vista/x64/OemVista.inf"},
                                   {"x86", "10.0", "win10/x86/OemVista.inf"}};
    for (const QStringList &each : drivers) {
        const Step version = logged("debug", "Tap::pathDriver", "Detected OS version " + each[1]);
        verifyScript(call("winVersion", {0, each[1]}) + version, [&] {
            ARCH = each[0];
            qputenv("ProgramFiles", "D:\\Bür");
            QCOMPARE(ZELK::Tap().pathDriver(), "D:\\Bür//HalvaneRelayKit/driver/" + each[2]);
            qunsetenv("ProgramFiles");
            QCOMPARE(ZELK::Tap().pathDevcon(), "//HalvaneRelayKit/bin/devcon-" + ARCH + ".exe");
        });
    }
}

QTEST_APPLESS_MAIN(UnitTest)
#include "unit_test.moc"
