// Tests of the program's functions with a fake host that answers as a script says. scenarios_data() is the table of
// scenarios, steps.h contains the steps that they consist of, and scripted_host.h the fake host.
// To run one scenario, build with ./test, then:
//     build/default/tests/unit_test 'scenarios:names swapped'
// To add a scenario, add a row to the table: title, command word, expected steps. CONTRIBUTING.md shows how.
#include "main.h"
#include "steps.h"
#include "tap.h"

#include <QTest>

#include <csignal>
#include <cstdio>

class UnitTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void scenarios_data();
    void scenarios();
    void operations();
};

/// Makes a crash print which test was running. QTest's own handler prints a debugger's output instead, and its message
/// goes into the program's log.
void UnitTest::initTestCase()
{
    for (const int signal : {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV}) {
        std::signal(signal, [](int received) {
            const char *title = QTest::currentDataTag();
            std::fprintf(stderr, "crashed: %s(%s)\n", QTest::currentTestFunction(), title ? title : "");
            std::signal(received, SIG_DFL);
            std::raise(received);
        });
    }
}

void UnitTest::scenarios_data()
{
    QTest::addColumn<QByteArrayList>("words");
    QTest::addColumn<Step>("script");
    QTest::addColumn<QString>("file");
    // An empty file with this name exists before the run: by default wmic. `log` and `tmp` prevent folders with these
    // names, and with `other`, wmic is missing.
    const auto run = [](const QByteArray &title, const QByteArrayList &words, const Step &script,
                        const QString &file = R"(C:\Windows\System32\wbem\WMIC.exe)") {
        QTest::newRow(title) << words << script << file;
    };
    const auto scenario = [&](const QByteArray &title, const QByteArray &word, const Step &script) {
        run(title, {word}, started(word) + script);
    };
    const Rows own{{kit, "1"}};
    const Rows a1{{"A", "1"}};
    const Rows twice{{"A", "1"}, {kit, "1"}};
    const Step notDone = fails("check") + bad;

    run("log cannot be opened", {"create"}, bad, "log");
    run("two words", {"list", "x"}, started("check") + none + driver("create", {3}) + fails("create") + notDone);
    run("no word", {}, started("check") + update(own, own) + present);
    for (const char *word : {"help", "Create", "lis", ""})
        scenario(QByteArray("usage: ") + word, word, logged("debug", "main", "USAGE") + good);
    scenario("list", "list", wmi({{"A", "1"}, {hidden, "2"}, {"B", hidden}}) + good);

    for (const QByteArray word : {"create", "update", "remove", "removeAll"}) {
        const QString name = word == "removeAll" ? "remove" : word;
        scenario(word, word, driver(name, {0, "two\r\nlines é\""}) + output(name, R"(two\r\nlines é\")") + good);
        scenario(word + ", restart needed", word, driver(name, {1, "done"}) + output(name, "done") + good);
        scenario(word + " fails", word, driver(name, {2, "lost"}) + fails(name) + bad);
    }
    scenario("version unknown", "create",
             logged("trace", "create") + call("winVersion", {-1}) + fails("pathDriver") +
                 devcon("[install] [] [tap0901]", {}) + output("create", "") + good);

    const auto removal = [&](const char *title, const Rows &rows, const Step &end) {
        scenario(title, "removeInterface", wmi(rows) + end + good);
    };
    const Step notRemoved = fails("removeInterface") + logged("debug", "main");
    removal("removes one, restart needed", {{"A", "1"}, {kit, "7"}}, devcon("[remove] [@7]", {1, "gone"}));
    removal("removes an interface without id", {{kit, ""}}, devcon("[remove] [@]", {}));
    removal("removal fails", {{kit, "7"}, {kit, "8"}}, devcon("[remove] [@8]", {2, "lost"}) + notRemoved);
    removal("removes no other interface", {{"halvanerelaykit", "7"}, {hidden, "1"}, {kit, hidden}}, notRemoved);

    for (const QByteArray word : {"enable", "disable"}) {
        scenario(word, word, tries(word, {{0, "\"\\\tä"}}) + output(word, R"(\"\\\t\xE4)") + good);
        scenario(word + " by netsh", word, tries(word, {{-1, "lost"}, {0, "ok"}}) + output(word, "lostok") + good);
        scenario(word + " fails", word, tries(word, {{1, "lost"}, {-1, "lost"}}) + fails(word) + bad);
    }

    const QString text = "Name Id\r\nA 1\r\n";
    // The title is the function that fails. `noWmi` covers CoInitializeSecurity().
    const auto failing = [&](const char *function, int calls, const char *message, int releases) {
        scenario(function, "list",
                 queryFails(function, calls, message, releases) + call(wmic, {0, text}) + found(a1) + good);
    };
    failing("CoInitializeEx", 1, "Failed to initialize COM library. Error code ", 0);
    failing("CoCreateInstance", 3, "Failed to create IWbemLocator object. Error code = ", 1);
    failing("ConnectServer", 6, "Could not connect. Error code = ", 2);
    failing("CoSetProxyBlanket", 7, "Could not set proxy blanket. Error code = ", 3);
    failing("ExecQuery", 12, "Query for operating system name failed. Error code = ", 3);

    const Step listNoWmi = started("list") + noWmi;
    run("powershell", {"list"}, listNoWmi + call(powershell, {0, text}) + found(a1) + good, "other");
    run("powershell fails", {"list"}, listNoWmi + call(powershell, {-1}) + call(wmic, {0, text}) + found(a1) + good,
        "other");
    scenario("wmic and powershell fail", "list",
             noWmi + call(wmic, {1}) + call(powershell, {2, "lost"}) + fails("readInterfaces") + good +
                 call("a scratch file is left"));
    const auto parsed = [&](const char *title, const QString &contents, const Rows &rows) {
        scenario(title, "list", noWmi + call(wmic, {0, contents}) + found(rows) + good);
    };
    parsed("wmic", "Name Id\r\nTap 1  ROOT\\0  \n1\n  \r\nA 2", {{"Tap 1", R"(ROOT\\0)"}, {"A", "2"}});
    run("no temporary folder", {"list"}, listNoWmi + call(QString(powershell).remove("SCRATCH")) + found({}) + good,
        "tmp");
    parsed("no heading", "\r\n\r\nA 1\r\nB 2\r\nC 3\r\n\r\n", {{"B", "2"}, {"C", "3"}});
    const auto check = [&](const char *title, const Step &script) { scenario(title, "check", script); };
    check("unusual names from wmic",
          checking(noWmi) +
              call(wmic, {0, "Name Id\r\n Eth  ernet\t x   ID 3 \r\nEth ernet x ID 4\r\nHalvaneRelayKit 5"}) +
              found({{"Eth ernet x ID", "3"}, {"Eth ernet x ID", "4"}, {kit, "5"}}) + updated + noWmi +
              call(wmic, {0, "\uFEFFName Id\r\nBü→ 4\r\n"}) + found({{"Bü→", "4"}}) +
              restored("Eth ernet x ID", "4", "Bü→") + present);

    const Step gaveUp =
        fails("check", "Failed to update tap driver, probably a newer version is already installed. Continuing...");
    check("update fails once", checking(wmi(own)) + updateFailed + waited + updated + wmi(own) + present);
    check("update fails twice",
          checking(wmi(own)) + updateFailed + waited + updateFailed + gaveUp + wmi(own) + present);
    check("disable fails in the end", update(own, own) + noted("Tap interface already present") +
                                          tries("disable", {{2}, {-1}}) + fails("disable") + good);
    check("names swapped", update({{"A", "1"}, {kit, "2"}}, {{"A", "2"}, {kit, "1"}}) + restored(kit, "2", "A") +
                               restored("A", "1", kit) + present);
    const Step renameNeeded = noted(R"(Rename required! Old key: "Bü %2 %1" old val: "1" new key: "%1" new val: "1")");
    check("rename fails", update({{"Bü %2 %1", "1"}, {kit, "2"}}, {{"%1", "1"}, {"Y", "2"}}) + renameNeeded +
                              renameFailed("%1", "Bü %2 %1") + notDone);
    check("id twice, first name", update(twice, a1) + restored(kit, "1", "A") + present);
    check("id twice, third name", update(twice, {{"C", "1"}}) + restored("A", "1", "C") + present);

    const Step installed = none + created;
    const Step reinstalled = update(a1, a1) + created;
    const Step named = renamed("X", kit) + disabled;
    const Step nothing = polled(0, {}) + waited;
    const Step x1Seen = seen(0, {{"X", "1"}}, {"1"}) + waited;
    const Step x1Confirmed = confirmed(0, {{"X", "1"}}, "1");
    check("new id, two names",
          installed + confirmed(0, {{"X  Y", "1"}, {"Z", "1"}}, "1") + renamed("X  Y", kit) + disabled);
    // The number of names before create() counts, and the name has to be there before the update.
    check("name and an id twice after the update",
          update(a1, twice) + restored("A", "1", kit) + created + confirmed(2, twice + Rows{{"X", "2"}}, "2") + named);
    check("final rename fails", installed + x1Confirmed + renameFailed("X", kit) + noted("") + disabled);
    // In the first polls, the interface is hidden, and WMI fails.
    check("confirmed in the last poll", installed + wmi({{hidden, "1"}}) + counts(0, 0) + waited + noWmi +
                                            call(wmic, {}) + found({}) + counts(0, 0) + waited + 6 * nothing +
                                            x1Confirmed + named);
    check("known id, new name", reinstalled + seen(1, {{"A", "1"}, {"X", "1"}}, {}) + notDone);
    check("another id between",
          installed + x1Seen + seen(0, {{"Y", "2"}}, {"2"}) + waited + x1Seen + 7 * nothing + notDone);
    const Step x2Seen = seen(1, {{"A", "1"}, {"X", "2"}}, {"2"});
    check("fewer between", reinstalled + x2Seen + waited + polled(1, {}) + waited + x2Seen + named);
    check("empty id", installed + 10 * (seen(0, {{"X", ""}}, {""}) + waited) + notDone);
    // Two of these rows count: a name that occurs twice, and an empty one.
    const Rows rows{{Value(VT_I4), "1"}, {"no", Value(VT_EMPTY)}, {"X", "old"}, {QString(), "null BSTR"}, {"X", "new"}};
    check("unusual rows", installed + wmi(rows) + counts(0, 2) + newIds({"new", "null BSTR"}) + notDone);
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

/// The operations with names, and on systems, that the scenarios do not have.
void UnitTest::operations()
{
    const QString name = "Bü \"%1\"";
    verifyScript(
        tries("enable", {{2}, {}}, name) + output("enable") + tries("disable", {{3}, {}}, "") + output("disable"), [&] {
            QCOMPARE(ZELK::Tap().enable(name), 0);
            QCOMPARE(ZELK::Tap().disable(""), 0);
        });
    const QStringList drivers[] = {{"x86", "5.2", "win2k/x86/OemWin2k.inf"},
                                   {"x86", "6.0", "vista/x86/OemVista.inf"},
                                   {"x64", "9.9", "vista/x64/OemVista.inf"},
                                   {"x86", "10.0", "win10/x86/OemVista.inf"}};
    for (const QStringList &each : drivers) {
        const Step version = logged("debug", "pathDriver", "Detected OS version " + each[1]);
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
