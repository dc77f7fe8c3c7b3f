// Tests of the program's functions with a fake host that answers as a script says. scenarios_data() is the table of
// scenarios, steps.h contains the steps that they consist of, and scripted_host.h the fake host.
// To run one scenario, build with ./test, then:
//     build/default/tests/unit_test 'scenarios:restores swapped names'
// To add a scenario, add a row to the table: title, command word, expected steps. CONTRIBUTING.md shows how.
#include "main.h"
#include "steps.h"
#include "tap.h"

#include <QDir>
#include <QTest>
#include <QTextCodec>

using namespace steps;

/// The file that exists before a scenario. With the name of a folder, it prevents that folder.
const QString wmicExists = R"(C:\Windows\System32\wbem\WMIC.exe)", noWmic = "another file", noLog = "log",
              oldLog = "log/tap-log.txt", noTemporaryFolder = "tmp";

/// The usage text, without the spaces that pad each line to 67 characters.
const char usageLines[] = R"(Usage: Mordwell <command>, where COMMAND is one of:

    help                   this help
    list                   list all tap ids
    update                 update driver
    create                 install driver
    enable                 enable tap device
    disable                disable tap device
    check                  check tap device
                           (+install driver/create if missing)
    remove | removeAll     remove driver and ALL tap devices
    removeInterface        remove SINGLE tap interface

 If no COMMAND is specified, 'check' is assumed)";

class UnitTest : public QObject
{
    Q_OBJECT

private slots:
    void scenarios_data();
    void scenarios();
    void operations();
};

void UnitTest::scenarios_data()
{
    QTest::addColumn<QByteArrayList>("words");
    QTest::addColumn<Step>("script");
    QTest::addColumn<QString>("file");
    const auto scenario = [](QByteArray title, QByteArrayList words, Step script, QString file = wmicExists) {
        const QString word = words.size() == 1 ? words[0] : "check";
        const Step started =
            line(R"(not in the log: Logging to: "log/tap-log.txt")") + logged("debug", "main", "arg: '" + word + "'");
        QTest::newRow(title) << words << started + script << file;
    };
    const auto update = [](Rows before, Rows after) { return checking + wmi(before) + driver("update") + wmi(after); };
    const Rows own{{kit, "1"}};
    const Rows a1{{"A", "1"}};
    const Step checked = update(own, own) + present;
    const Step checkFails = logged("ERROR", "check") + bad;
    const QVector<Answer> bothFail{{1, "lost"}, {-1, "lost"}};

    QTest::newRow("fails if the log cannot be opened") << QByteArrayList{"create"} << bad << noLog;
    scenario("replaces the log of the run before", {"list"}, wmi({}) + good, oldLog);
    scenario("checks without a word", {}, checked);
    scenario("checks with two words", {"list", "x"}, checked);
    QString usage;
    for (const QString &each : QString(usageLines).split('\n'))
        usage += each.leftJustified(67) + R"(\r\n)";
    for (const char *word : {"help", "Create", "lis", ""})
        scenario(QByteArray("logs the usage: ") + word, {word}, logged("debug", "main", '"' + usage + '"') + good);
    const Rows unreadable{{Value("A", 0x80041002L), "1"}, {"B", Value("2", -1)}};
    scenario("a property is empty if Get() fails", {"list"}, wmi(unreadable) + good);

    for (const QByteArray word : {"create", "update", "remove", "removeAll"}) {
        const QString name = word == "removeAll" ? "remove" : word;
        scenario(word + " succeeds", {word}, driver(name, {0, "two\r\nlines é\"\n"}, R"(two\r\nlines é\"\n)") + good);
        scenario(word + " succeeds if a restart is needed", {word}, driver(name, {1, "done"}, "done") + good);
        scenario(word + " fails", {word}, driver(name, {2, "lost"}) + bad);
    }
    scenario("create continues if the version is unknown", {"create"},
             logged("trace", "create") + line("winVersion", {1}) + logged("ERROR", "pathDriver") +
                 line(devcon + "[install] [] [tap0901]", {}) + logged("debug", "create", "\"\"") + good);

    const auto removal = [&](const char *title, Step script) { scenario(title, {"removeInterface"}, script + good); };
    const Step notRemoved = logged("ERROR", "removeInterface") + logged("debug", "main");
    removal("removes the interface even if a restart is needed",
            wmi({{"A", "1"}, {kit, "7"}}) + line(devcon + "[remove] [@7]", {1}));
    removal("removes the last of two ids of a name in wmic's list",
            wmiFails + line(wmic, {0, "Name Id\r\nHalvaneRelayKit 1\r\nHalvaneRelayKit 2\r\n"}) +
                found({{kit, "1"}, {kit, "2"}}) + line(devcon + "[remove] [@2]", {}));
    removal("only logs a failed removal", wmi(own) + line(devcon + "[remove] [@1]", {-1, "lost"}) + notRemoved);
    removal("removes no interface with another name", wmi({{"halvanerelaykit", "7"}, {kit, hidden}}) + notRemoved);

    for (const QByteArray word : {"enable", "disable"}) {
        const auto tries = [&](const char *title, QVector<Answer> answers, QString output, const Step &end) {
            scenario(word + title, {word}, adapter(word, answers, output, kit) + end);
        };
        tries(" works with powershell", {{0, "\"\\\tä\r\n"}}, R"(\"\\\t\xE4\r\n)", good);
        tries(" works with netsh", {{-1, "lost"}, {0, "ok"}}, "lostok", good);
        tries(" fails", bothFail, "", bad);
    }

    const QString list = "Name Id\r\nA 1\r\n";
    const Step listed = found(a1) + good;
    // `wmiFails` is the failure of CoInitializeSecurity().
    const auto failing = [&](const char *function, const char *message, const Step &end) {
        scenario(QByteArray("tries wmic after a failed ") + function, {"list"},
                 queryFails(function, message, end) + line(wmic, {0, list}) + listed);
    };
    const Step uninitialized = line("CoUninitialize()");
    const Step locatorReleased = line("Release(locator)") + uninitialized;
    const Step servicesReleased = line("Release(services)") + locatorReleased;
    failing("CoInitializeEx", "Failed to initialize COM library. Error code ", {});
    failing("CoCreateInstance", "Failed to create IWbemLocator object. Error code = ", uninitialized);
    failing("ConnectServer", "Could not connect. Error code = ", locatorReleased);
    failing("CoSetProxyBlanket", "Could not set proxy blanket. Error code = ", servicesReleased);
    failing("ExecQuery", "Query for operating system name failed. Error code = ", servicesReleased);

    scenario("tries powershell first if wmic is missing", {"list"},
             wmiFails + line(powershell, {-1}) + line(wmic, {0, list}) + listed, noWmic);
    scenario("lists nothing without a temporary folder", {"list"},
             wmiFails + line(QString(powershell).remove("SCRATCH")) + found({}) + good, noTemporaryFolder);
    scenario("lists nothing if wmic and powershell fail", {"list"},
             wmiFails + line(wmic, {1}) + line(powershell, {-1, "lost"}) + logged("ERROR", "readInterfaces") + good +
                 line("a scratch file is left"));
    const auto parsed = [&](const char *title, const QString &contents, const Rows &rows) {
        scenario(title, {"list"}, wmiFails + line(wmic, {0, contents}) + found(rows) + good);
    };
    parsed("takes the last field as the id", "Name Id\r\nTap  1\t x   ROOT\\0  \n1\n  \r\nA 2",
           {{"Tap 1 x", R"(ROOT\\0)"}, {"A", "2"}});
    parsed("takes the first line as the heading", "\r\n\r\nA 1\r\nB 2\r\nC 3\r\n\r\n", {{"B", "2"}, {"C", "3"}});

    const auto check = [&](const char *title, const Step &script) { scenario(title, {"check"}, script); };
    const Step none = checking + wmi({}) + noInterfaces;
    const Step createFails = driver("create", {3}) + checkFails;
    const Step updateFails = driver("update", {2, "lost"});
    const Step failedOnce = checking + wmi(own) + updateFails + waited;
    const Step gaveUp = logged(
        "ERROR", "check", "Failed to update tap driver, probably a newer version is already installed. Continuing...");
    check("ignores a row without two strings",
          checking + wmi({{hidden, "1"}, {"no", Value(VT_EMPTY)}, {Value(VT_I4), "1"}}) + noInterfaces + createFails);
    check("tries a failed update again", failedOnce + driver("update") + wmi(own) + present);
    check("only logs two failed updates", failedOnce + updateFails + gaveUp + wmi(own) + present);
    check("ignores a failed disable", update(own, own) + alreadyPresent + adapter("disable", bothFail, "", kit) + good);
    check("restores swapped names", update({{"A", "1"}, {kit, "2"}}, {{"A", "2"}, {kit, "1"}}) +
                                        restored(kit, "2", "A") + restored("A", "1", kit) + present);
    check("ends if a rename fails",
          update({{"A", "1"}, {kit, "2"}}, {{"X", "1"}, {"Y", "2"}}) + restored("A", "1", "X", bothFail) + checkFails);
    // Two names can have the same id, as in simulation/cases/two-names-one-id.json.
    const Rows twice{{"A", "1"}, {kit, "1"}};
    check("restores the one of two names that is lost", update(twice, a1) + restored(kit, "1", "A") + present);
    check("restores the first of two names that are lost",
          update(twice, {{"C", "1"}}) + restored("A", "1", "C") + present);

    const auto confirmed = [](int before, const Rows &rows, const QString &id, const Step &between = waited) {
        return polled(before, rows, {id}) + between + polled(before, rows, {id});
    };
    const Step installed = none + driver("create");
    const Step reinstalled = update(a1, a1) + driver("create");
    const Step named = renamed("X", kit) + disabled;
    const Step x1Confirmed = confirmed(0, {{"X", "1"}}, "1");
    const Rows a1x2{{"A", "1"}, {"X", "2"}};
    check("renames the first of two new names",
          installed + confirmed(0, {{"X  Y", "1"}, {"Z", "1"}}, "1") + renamed("X  Y", kit) + disabled);
    check("a name from the update does not count as present",
          update(a1, own) + restored("A", "1", kit) + driver("create") + confirmed(1, a1x2, "2") + named);
    const Rows abc{{"A", "1"}, {"B", "2"}, {"C", "2"}};
    check("counts the old names, not their ids",
          update(a1, abc) + driver("create") + confirmed(3, abc + Rows{{"X", "3"}}, "3") + named);
    check("counts a name once, with its last id", update(a1, {{"A", "1"}, {"B", "2"}, {"B", "3"}}) + driver("create") +
                                                      confirmed(2, {{"A", "1"}, {"B", "3"}, {"X", "4"}}, "4") + named);
    check("only logs a failed final rename",
          installed + x1Confirmed + renamed("X", kit, bothFail) + logged("debug", "check") + disabled);
    check("confirms an id in the tenth poll", installed + 8 * (polled(0, {}) + waited) + x1Confirmed + named);
    check("fails if a new name has no new id", reinstalled + polled(1, {{"A", "1"}, {"X", "1"}}) + checkFails);
    check("fails if two ids are new", installed + polled(0, {{"X", "1"}, {"Y", "2"}}, {"1", "2"}) + checkFails);
    check("fails if two new ids alternate",
          installed + 5 * (polled(0, {{"X", "1"}}, {"1"}) + waited + polled(0, {{"X", "2"}}, {"2"}) + waited) +
              checkFails);
    check("ignores a poll with fewer names",
          reinstalled + confirmed(1, a1x2, "2", waited + polled(1, {}) + waited) + named);
    check("never confirms an empty id", installed + 10 * (polled(0, {{QString(), ""}}, {""}) + waited) + checkFails);
}

void UnitTest::scenarios()
{
    QFETCH(QByteArrayList, words);
    QFETCH(Step, script);
    QFETCH(QString, file);
    verifyScript(script, [&] {
        QDir().mkpath(QFileInfo(file).path());
        QFile existing(file);
        QVERIFY(existing.open(QIODevice::WriteOnly) && existing.write(QByteArray(9999, 'x')) > 0);
        existing.close();
        runMain(words);
    });
}

/// The operations with names, and on systems, that the scenarios do not have.
void UnitTest::operations()
{
    const QString name = "Bü %2 \"%1\"";
    verifyScript(adapter("enable", {{2}, {}}, "", name) + adapter("disable", {{3}, {}}, "", "") +
                     renamed(name, "%1", {{2}, {}}),
                 [&] {
                     QCOMPARE(ZELK::Tap().enable(name), 0);
                     QCOMPARE(ZELK::Tap().disable(""), 0);
                     QCOMPARE(ZELK::Tap().rename(name, "%1"), 0);
                 });
    const QStringList drivers[] = {{"x86", "5.2", "win2k/x86/OemWin2k.inf"},
                                   {"x86", "6.0", "vista/x86/OemVista.inf"},
                                   {"x64", "9.9", "vista/x64/OemVista.inf"},
                                   {"x86", "10.0", "win10/x86/OemVista.inf"}};
    for (const QStringList &each : drivers) {
        const Step version = logged("debug", "pathDriver", "Detected OS version " + each[1]);
        verifyScript(line("winVersion", {0, each[1]}) + version, [&] {
            // The variable is UTF-8, whatever the codec of the locale.
            QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
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
