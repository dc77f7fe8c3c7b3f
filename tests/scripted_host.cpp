#include "scripted_host.h"
#include "libtessark.h"
#include "main.h"

#include <QDir>
#include <QLoggingCategory>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QTextCodec>

int mordwellMain(int argc, char **argv);

namespace
{

/// Returns a log line without date, thread, package, file, namespace, class and source line. Returns the whole line if
/// one of these is wrong.
QString shortened(const QString &line)
{
    // The names of day and month are in the system's language. In main.cpp only main() logs, and in tap.cpp each
    // function but readInterfacesProgrammatically() is one of Tap.
    static const QRegularExpression prefix(
        R"(^[^[]+ \d+ [\d:]{8} 20\d\d \[0x)" + QString::number(quintptr(QThread::currentThreadId()), 16) +
        R"(\] \[(\w+)\] \[Halvane Relay Kit:\.\\)"
        R"((?|(main):(?=main)|(tap):ZELK::(?:(?=readInterfacesP)|Tap::(?!readInterfacesP)))(\w+\(\):)(\d+)\] )");
    const QRegularExpressionMatch match = prefix.match(line);
    // The source line is often all that distinguishes two failures, so it has to be that of a statement.
    QFile source(SOURCES + match.captured(2) + ".cpp");
    const QByteArrayList lines = source.open(QIODevice::ReadOnly) ? source.readAll().split('\n') : QByteArrayList();
    const QByteArray statement = lines.value(match.captured(4).toInt() - 1).trimmed();
    if (!statement.startsWith("STATEMENT(\"" + match.captured(1).toUtf8() + '"'))
        return line;
    return '[' + match.captured(1) + "] " + match.captured(3) + ' ' + line.mid(match.capturedLength());
}

struct ScriptedHost : WmiHost {
    explicit ScriptedHost(const Step &lines) : script(lines)
    {
        wmiHost = this;
        for (const Line &line : script)
            expected << line.text;
    }

    /// Adds the lines that the log file contains by now and a call to the journal. Returns the answer of the next line
    /// of the script with this call. If none follows, returns the answer of the last such line or, for a call that the
    /// script does not contain, success without output.
    Answer answer(const QString &call)
    {
        QFile log("log/tap-log.txt");
        if (log.open(QIODevice::ReadOnly))
            log.seek(logSize);
        while (!log.atEnd())
            journal << shortened(QString::fromUtf8(log.readLine()).chopped(1));
        logSize = log.size();
        journal << call;
        const int at = expected.indexOf(call, next);
        next = qMax(next, at + 1);
        return last = script.value(at < 0 ? expected.lastIndexOf(call) : at).answer;
    }
    HRESULT comCall(const QString &function, const QString &arguments) override
    {
        return answer(function + '(' + arguments + ')').result;
    }
    QVector<WmiRow> wmiRows() override { return last.rows; }

    const Step script;
    QStringList expected;
    int next = 0; ///< The line of the script after the last one that was answered.
    QStringList journal;
    Answer last;
    qint64 logSize = 0;  ///< How much of the log is in the journal.
    QString scratchName; ///< The file that the last redirected command left.
};
ScriptedHost *host = nullptr;

} // namespace

Step operator*(int count, const Step &step)
{
    return count == 0 ? Step() : step + (count - 1) * step;
}

void verifyScript(const Step &script, const std::function<void()> &test)
{
    ScriptedHost scripted(script);
    host = &scripted;
    const QTemporaryDir folder;
    QDir::setCurrent(folder.path());
    qputenv("TMPDIR", QFile::encodeName(folder.filePath("tmp")));
    qputenv("ProgramFiles", R"(C:\Program Files)");
    // The locale's encoding may lack characters of the tests.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    // A QSet has the same order in each run.
    qSetGlobalQHashSeed(0);
    // What the program logs goes straight to the journal until main() installs its own handler.
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &line) {
        host->journal << (logFile.isOpen() ? "not in the log: " : "") + shortened(line);
    });
    test();
    qInstallMessageHandler(nullptr);
    qunsetenv("TMPDIR");

    if (scripted.journal == scripted.expected)
        return;
    QProcess diff;
    diff.start("bash", {"-c", R"(diff -u <(printf '%s\n' "$0") <(printf '%s\n' "$1"))", scripted.expected.join('\n'),
                        scripted.journal.join('\n')});
    diff.waitForFinished();
    // The first two lines name the files.
    const QByteArray differences = diff.readAll().split('\n').mid(2, 60).join('\n');
    QFAIL(("calls and log lines differ from the script (- expected, + actual):\n" + differences).constData());
}

void runMain(QList<QByteArray> words)
{
    words.prepend("Mordwell");
    QVector<char *> argv;
    for (QByteArray &word : words)
        argv << word.data();
    QDir().mkdir("tmp");
    // The user's logging rules can do this. main() has to undo it.
    QLoggingCategory::defaultCategory()->setEnabled(QtDebugMsg, false);
    const int exitCode = mordwellMain(argv.size(), argv.data());
    host->answer(QString("exit code %1").arg(exitCode) + (logFile.isOpen() ? " with the log open" : ""));
    if (!QDir("tmp").entryList(QDir::Files).isEmpty())
        host->journal << "a scratch file is left";
}

QString libtessark::getCommonLogDir(QString subdir)
{
    return "log" + subdir;
}

bool libtessark::utils::win64Sys()
{
    return true;
}

int libtessark::utils::winVersion(int *major, int *minor)
{
    const Answer answer = host->answer("winVersion");
    *major = answer.output.section('.', 0, 0).toInt();
    *minor = answer.output.section('.', 1).toInt();
    return int(answer.result);
}

int libtessark::utils::execute(const QString &program, const QStringList &arguments, QString &output,
                               bool oneMeansRestart, bool *)
{
    const Answer answer = host->answer(program + " [" + arguments.join("] [") + ']');
    output = answer.output;
    return oneMeansRestart && answer.result == 1 ? 0 : int(answer.result);
}

int libtessark::utils::executeSync(const QString &commandLine, QByteArray *output, QByteArray *)
{
    // The name has a random end, since other users can write to the temporary folder.
    static const QRegularExpression redirection(R"re(> "([^"]+\.\w{6})")re");
    QFile scratch(redirection.match(commandLine).captured(1));
    if (scratch.exists() && scratch.fileName() != host->scratchName)
        host->journal << "the scratch file exists before a command";
    host->scratchName = scratch.fileName();
    const Answer answer = host->answer(QString(commandLine).replace(redirection, "> \"SCRATCH\""));
    const auto utf16 = [](const QString &text) {
        return QByteArray(reinterpret_cast<const char *>(text.utf16()), text.size() * 2);
    };
    // The real function replaces the array. This one appends on purpose, to catch a program that clears or replaces the
    // array between its two tries. Standard error is not redirected, so it is in the array too.
    *output += commandLine.contains('>') ? utf16("a warning\nof two lines") : answer.output.toLatin1();
    // cmd creates the file before it starts the command, so a command that fails leaves it, too.
    if (!scratch.fileName().isEmpty() && scratch.open(QIODevice::WriteOnly))
        scratch.write(utf16(answer.output));
    return int(answer.result);
}

void Sleep(DWORD milliseconds)
{
    host->answer(QString("Sleep %1").arg(milliseconds) + (logFile.isOpen() ? "" : " with the log closed"));
}
