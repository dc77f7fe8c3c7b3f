/// The program from its command word to its exit code, on the simulated machines of program.json. MORDWELL_COMMAND
/// starts it: the native one, or the Windows one under Wine. In the second case MORDWELL_NATIVE is the native one,
/// whose log the other has to equal.
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
    void initTestCase();
    void roads_data();
    void roads();
    void machineFiles_data();
    void machineFiles();

private:
    const QString m_command = qEnvironmentVariable("MORDWELL_COMMAND");
    const QString m_native = qEnvironmentVariable("MORDWELL_NATIVE");
};

namespace
{

/// What came of a run: the machine file afterwards, and the lines of the log without date and thread.
struct Run {
    int exitCode;
    QString errors;
    bool hasLog;
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
    QProcess process;
    QStringList arguments = command.split(' ') << word;
    const QString program = arguments.takeFirst();
    process.start(program, arguments);
    process.waitForFinished(-1);

    QFile log(file.fileName() + ".files/log/tap-log.txt");
    log.open(QIODevice::ReadOnly);
    file.open(QIODevice::ReadOnly);
    Run run{process.exitCode(), process.readAllStandardError(), log.isOpen(), {}, file.readAll()};
    // Wine's log is in the ANSI code page and has the line ends of Windows.
    const bool native = !command.contains(' ');
    const QByteArray bytes = log.isOpen() ? log.readAll() : QByteArray();
    const QString text = native ? QString::fromUtf8(bytes) : QString::fromLatin1(bytes);
    const QRegularExpression form(R"(^\w{3} \w{3} [\d: ]+ \[0x[0-9a-f]+\] (\[(?:ERROR|debug|trace|LOG)\] )"
                                  R"(\[Halvane Relay Kit:\.\\(?:main:main|tap:ZELK::[\w:]+)\(\):\d+\] [^\r\n]*)$)");
    for (const QString &line : text.split(native ? "\n" : "\r\n", Qt::SkipEmptyParts)) {
        const auto match = form.match(line);
        run.log << (match.hasMatch() ? match.captured(1) : "not a statement: " + line);
    }
    return run;
}

} // namespace

void ProgramTest::initTestCase()
{
    qputenv("LC_ALL", "C.UTF-8");
    qputenv("ProgramFiles", R"(C:\Program Files)");
    // Neither this nor the file that Wine's prefix holds silences the log.
    qputenv("QT_LOGGING_RULES", "*.debug=false");
}

void ProgramTest::roads_data()
{
    QTest::addColumn<QJsonObject>("given");
    QFile table(QFINDTESTDATA("program.json"));
    QVERIFY(table.open(QIODevice::ReadOnly));
    for (const QJsonValue row : QJsonDocument::fromJson(table.readAll()).array()) {
        if (m_native.isEmpty() || !row["native"].toBool())
            QTest::newRow(qPrintable(row["title"].toString())) << row.toObject();
    }
}

void ProgramTest::roads()
{
    QFETCH(QJsonObject, given);
    const QByteArray machine = QJsonDocument(given["machine"].toObject()).toJson();
    const QString word = given["word"].toString();
    Run run = runProgram(m_command, word, machine);
    if (!m_native.isEmpty()) {
        QVERIFY2(!run.errors.contains("decoy"), qPrintable(run.errors));
        const QStringList expected = runProgram(m_native, word, machine).log;
        if (run.log != expected) {
            qWarning("Once in some thousand starts Wine cannot start a process. If it comes out well now, it was that; "
                     "what it had logged:\n%s",
                     qPrintable(run.log.join('\n')));
            run = runProgram(m_command, word, machine);
        }
        QCOMPARE(run.log, expected);
    }
    QVERIFY2(run.exitCode == given["exit"].toInt(), qPrintable(run.errors + run.log.join('\n')));
    QStringList messages = given["log"].toVariant().toStringList();
    QCOMPARE(run.hasLog, !messages.isEmpty());
    for (const QString &line : run.log) {
        QVERIFY2(!line.startsWith("not a statement"), qPrintable(line));
        QVERIFY2(!given.contains("without") || !line.contains(given["without"].toString()), qPrintable(line));
        if (!messages.isEmpty() && line.contains(messages.first()))
            messages.removeFirst();
    }
    QVERIFY2(messages.isEmpty(), qPrintable(messages.join('\n') + "\nnot found in this order:\n" + run.log.join('\n')));

    QStringList found;
    for (const QJsonValue entry : QJsonDocument::fromJson(run.machine)["interfaces"].toArray()) {
        const QString number = entry["id"].toString().section('\\', -1);
        found << entry["name"].toString() + "=" + number + (entry["enabled"].toBool(true) ? "+" : "-");
    }
    QCOMPARE(found.join(", "), given["interfaces"].toString());
}

void ProgramTest::machineFiles_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("message");
    QTest::newRow("unknown key") << QByteArray(R"({"faults": {"wmi": {"ExecQery": -1}}})")
                                 << "machine.json: faults.wmi.ExecQery: unknown key";
    QTest::newRow("wrong type") << QByteArray(R"({"interfaces": [{"name": "A"}, {"name": 7}]})")
                                << "machine.json: interfaces[1].name: expected a text";
    QTest::newRow("not JSON") << QByteArray("{") << "machine.json: line 1, column 2: ";
}

void ProgramTest::machineFiles()
{
    QFETCH(QByteArray, file);
    QFETCH(QString, message);
    const Run run = runProgram(m_native.isEmpty() ? m_command : m_native, "list", file);
    QCOMPARE(run.exitCode, 2);
    QVERIFY2(run.errors.contains(message), qPrintable(run.errors));
    QCOMPARE(run.machine, file);
}

QTEST_APPLESS_MAIN(ProgramTest)
#include "program_test.moc"
