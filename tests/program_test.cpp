/// The program from its command word to its exit code, on the simulated machines of program.json. MORDWELL_COMMAND
/// starts it: the native one, or the Windows one under Wine, whose WMI lists no interface and fails with the code that
/// stands in the table.
#include <QFileInfo>
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
    void run_data();
    void run();

private:
    const QString m_command = qEnvironmentVariable("MORDWELL_COMMAND");
    const bool m_native = QFileInfo(m_command).fileName() == "Mordwell";
};

void ProgramTest::run_data()
{
    QTest::addColumn<QJsonObject>("given");
    QFile table(QFINDTESTDATA("program.json"));
    QVERIFY(table.open(QIODevice::ReadOnly));
    for (const QJsonValue row : QJsonDocument::fromJson(table.readAll()).array()) {
        if (m_native || !row["native"].toBool())
            QTest::newRow(qPrintable(row["title"].toString())) << row.toObject();
    }
}

void ProgramTest::run()
{
    QFETCH(QJsonObject, given);
    const QTemporaryDir folder;
    QFile file(folder.filePath("machine.json"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    const QJsonValue machine = given["machine"];
    file.write(machine.isString() ? machine.toString().toUtf8() : QJsonDocument(machine.toObject()).toJson());
    file.close();
    qputenv("MORDWELL_MACHINE", QFile::encodeName(file.fileName()));
    qputenv("ProgramFiles", R"(C:\Program Files)");
    QProcess process;
    process.start(m_command, {given["word"].toString()});
    process.waitForFinished(-1);
    const int exitCode = process.exitCode();
    QCOMPARE(exitCode, given["exit"].toInt());

    QStringList messages = given["log"].toVariant().toStringList();
    QFile log(file.fileName() + ".files/log/tap-log.txt");
    QCOMPARE(log.open(QIODevice::ReadOnly), exitCode != 2 && !messages.isEmpty());
    // The log is in the system's own encoding: UTF-8, or the ANSI code page under Wine.
    const QByteArray bytes = log.isOpen() ? log.readAll() : process.readAllStandardError();
    const QString text = m_native ? QString::fromUtf8(bytes) : QString::fromLatin1(bytes);
    const QRegularExpression form(R"(^\w{3} \w{3} [\d: ]+ \[0x[0-9a-f]+\] \[(ERROR|debug|trace|LOG)\] )"
                                  R"(\[Halvane Relay Kit:\.\\(main:main|tap:ZELK::[\w:]+)\(\):\d+\] [^\r\n]*$)");
    for (const QString &line : text.split(m_native ? "\n" : "\r\n", Qt::SkipEmptyParts)) {
        QVERIFY2(!log.isOpen() || form.match(line).hasMatch(), qPrintable(line));
        QVERIFY2(!given.contains("without") || !line.contains(given["without"].toString()), qPrintable(line));
        if (!messages.isEmpty() && line.contains(messages.first()))
            messages.removeFirst();
    }
    QVERIFY2(messages.isEmpty(), qPrintable(messages.join('\n') + "\nnot found in this order:\n" + text));

    QVERIFY(file.open(QIODevice::ReadOnly));
    QStringList found;
    for (const QJsonValue entry : QJsonDocument::fromJson(file.readAll())["interfaces"].toArray()) {
        const QString number = entry["id"].toString().section('\\', -1);
        found << entry["name"].toString() + "=" + number + (entry["enabled"].toBool(true) ? "+" : "-");
    }
    QCOMPARE(found.join(", "), given["interfaces"].toString());
}

QTEST_APPLESS_MAIN(ProgramTest)
#include "program_test.moc"
