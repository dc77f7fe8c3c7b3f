/// The program from its command word to its exit code, on the simulated machines of program.json. MORDWELL_COMMAND, a
/// line for the shell, starts it: the native one, or the Windows one under Wine. In the second case MORDWELL_NATIVE is
/// the native one, whose log the other has to equal.
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

class ProgramTest : public QObject
{
    Q_OBJECT

private slots:
    void roads_data();
    void roads();
    void machineFiles();
};

namespace
{

/// What came of a run: the lines of the log without date and thread, and the machine file.
struct Run {
    int exitCode;
    QString errors;
    QStringList log;
    QByteArray machine;
};

Run runProgram(const QString &command, const QString &word, const QByteArray &machine)
{
    const QTemporaryDir folder;
    QFile file(folder.filePath("machine.json"));
    file.open(QIODevice::WriteOnly);
    file.write(machine);
    file.close();
    qputenv("MORDWELL_MACHINE", QFile::encodeName(file.fileName()));
    qputenv("ProgramFiles", R"(C:\Program Files)");
    qputenv("LC_ALL", "C.UTF-8");
    // Neither this nor the file that Wine's prefix holds silences the log.
    qputenv("QT_LOGGING_RULES", "*.debug=false");
    QProcess process;
    process.start("/bin/sh", {"-c", command + " " + word});
    process.waitForFinished(-1);

    Run run{process.exitCode(), process.readAllStandardError(), {}, {}};
    file.open(QIODevice::ReadOnly);
    run.machine = file.readAll();
    QFile log(file.fileName() + ".files/log/tap-log.txt");
    const QByteArray bytes = log.open(QIODevice::ReadOnly) ? log.readAll() : QByteArray();
    // Wine's log is in the ANSI code page and has the line ends of Windows.
    const bool crlf = bytes.contains("\r\n");
    const QString text = crlf ? QString::fromLatin1(bytes) : QString::fromUtf8(bytes);
    for (QString line : text.split(crlf ? "\r\n" : "\n", Qt::SkipEmptyParts))
        run.log << line.remove(QRegularExpression(R"(^[\w :]+ \[0x[0-9a-f]+\] (?=\[))"));
    return run;
}

} // namespace

void ProgramTest::roads_data()
{
    QTest::addColumn<QJsonObject>("given");
    QFile table(QFINDTESTDATA("program.json"));
    QVERIFY(table.open(QIODevice::ReadOnly));
    for (const QJsonValue row : QJsonDocument::fromJson(table.readAll()).array()) {
        if (!qEnvironmentVariableIsSet("MORDWELL_NATIVE") || !row["native"].toBool())
            QTest::newRow(qPrintable(row["title"].toString())) << row.toObject();
    }
}

void ProgramTest::roads()
{
    QFETCH(QJsonObject, given);
    const auto start = [&](const char *command) {
        return runProgram(qEnvironmentVariable(command), given.value("word").toString(),
                          QJsonDocument(given.value("machine").toObject()).toJson());
    };
    Run run = start("MORDWELL_COMMAND");
    QVERIFY2(!run.errors.contains("decoy"), qPrintable(run.errors));
    if (qEnvironmentVariableIsSet("MORDWELL_NATIVE")) {
        const QStringList expected = start("MORDWELL_NATIVE").log;
        if (run.log != expected) {
            qWarning("Once in some thousand starts Wine cannot start a process. If all is well now, it was that. "
                     "Before:\n%s",
                     qPrintable(run.log.join('\n')));
            run = start("MORDWELL_COMMAND");
        }
        QCOMPARE(run.log, expected);
    }
    QVERIFY2(run.exitCode == given.value("exit").toInt(), qPrintable(run.errors + run.log.join('\n')));
    QCOMPARE(run.log.isEmpty(), given.contains("log"));
    QStringList found;
    for (const QJsonValue entry : QJsonDocument::fromJson(run.machine)["interfaces"].toArray()) {
        const QString number = entry["id"].toString().section('\\', -1);
        found << entry["name"].toString() + "=" + number + (entry["enabled"].toBool(true) ? "+" : "-");
    }
    QCOMPARE(found.join(", "), given.value("interfaces").toString());
}

/// Nothing is lost of a file that is not understood, or that cannot be replaced.
void ProgramTest::machineFiles()
{
    const QString program = qEnvironmentVariable("MORDWELL_NATIVE", qEnvironmentVariable("MORDWELL_COMMAND"));
    const struct {
        QString command;
        QByteArray file;
        QString message;
    } runs[] = {{program, R"({"faults": {"wmi": {"ExecQery": -1}}})", "faults.wmi.ExecQery: unknown key"},
                {program, R"({"faults": {"updateRenames": {"*": 1}}})", "faults.updateRenames.*: expected a text"},
                {program, R"({"interfaces": [{}, {"listedFromRead": 1001}]})",
                 "interfaces[1].listedFromRead: expected an integer"},
                {program, "{\n{", "line 2, column 2: "},
                {program, "\n", "the file is empty"},
                // As on a full disk.
                {"trap '' XFSZ; ulimit -f 2; " + program, R"({"faults": {"createAtOnce": 40}})", ""}};
    for (const auto &each : runs) {
        const Run run = runProgram(each.command, "create", each.file);
        QVERIFY2(run.errors.contains("machine.json: " + each.message), qPrintable(run.errors));
        QCOMPARE(run.exitCode, 2);
        QCOMPARE(run.machine, each.file);
    }
}

QTEST_APPLESS_MAIN(ProgramTest)
#include "program_test.moc"
