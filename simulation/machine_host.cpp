/// The host of the program: a simulated machine in the file that MORDWELL_MACHINE names. The folder beside it,
/// "<file>.files", is the current one and holds the log and, under its Windows path, wmic.
#include "host.h"
#include "machine.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonValue>
#include <QRegularExpression>
#include <QThread>

#include <cstdio>
#include <cstdlib>
#include <sys/file.h>

namespace
{

const char wmicTool[] = R"(C:\Windows\System32\wbem\WMIC.exe)";

/// Makes the machine's folder the current one and waits until no other run is in it; gives `path`. The lock goes
/// with the process, killed or not.
const QString &enter(const QString &path)
{
    const QFileInfo file(path);
    // Nothing is made beside what the machine refuses to read.
    if (file.exists() && !file.isFile())
        Machine refused(path);
    QDir().mkdir(path + ".files");
    static QFile lock("lock");
    if (!QDir::setCurrent(path + ".files") || !lock.open(QIODevice::WriteOnly) || flock(lock.handle(), LOCK_EX) != 0) {
        std::fprintf(stderr, "%s.files: cannot be used\n", qPrintable(path));
        std::exit(2);
    }
    return path;
}

class MachineHost : public Host
{
public:
    explicit MachineHost(const QString &path) : m_path(enter(path)), m_machine(path)
    {
        if (m_machine.system()["wmic"].toBool())
            QFile(wmicTool).open(QIODevice::WriteOnly);
        else
            QFile::remove(wmicTool);
    }

    int runTool(const QString &program, const QStringList &arguments, QString &output) override
    {
        const QString bits = win64Sys() ? "x64" : "x86";
        QByteArray bytes = "No such program: " + program.toUtf8();
        int exitCode = -1;
        if (m_machine.system()["devcon"].toBool() &&
            program == R"(C:\Program Files//HalvaneRelayKit/bin/devcon-)" + bits + ".exe")
            exitCode = m_machine.devcon(arguments, bytes);
        output = QString::fromUtf8(bytes);
        return shown(exitCode, bytes);
    }

    int runCommandLine(const QString &commandLine, QByteArray &output) override
    {
        const QRegularExpression form(R"re(^(?:cmd /c (powershell|wmic)|(netsh)\.exe) (.*?)(?:> "([^"]*)" ?)?$)re");
        const QRegularExpressionMatch match = form.match(commandLine);
        QFile target(match.captured(4));
        const bool redirected = !match.captured(4).isNull();
        if (!match.hasMatch() || (redirected && !target.open(QIODevice::WriteOnly))) {
            output = "No such command or file: " + commandLine.toUtf8();
            return shown(1, output);
        }
        const int exitCode = m_machine.run(match.captured(1) + match.captured(2), match.captured(3), output);
        // What a failing tool writes goes to standard error, which is not redirected.
        if (redirected && exitCode == 0) {
            target.write(output);
            output.clear();
        }
        return shown(exitCode, output);
    }

    HRESULT comCall(const QString &function, const QString &) override { return m_machine.wmiFault(function); }

    QVector<WmiRow> wmiRows() override { return m_machine.wmiRows(); }

    bool win64Sys() override { return m_machine.system()["x64"].toBool(); }

    int winVersion(int *major, int *minor) override
    {
        *major = m_machine.system()["major"].toInt();
        *minor = m_machine.system()["minor"].toInt();
        return 0;
    }

    QString commonLogDir(const QString &subdir) override
    {
        // No folder can be made below a file.
        const QString folder = m_machine.faults()["noLogFolder"].toBool() ? m_path : QDir::currentPath();
        return folder + "/log" + (subdir.isEmpty() ? "" : "/" + subdir);
    }

    void sleep(unsigned milliseconds) override { QThread::msleep(milliseconds); }

private:
    /// The program does not log what a failing tool wrote; here it can be seen.
    static int shown(int exitCode, const QByteArray &output)
    {
        if (exitCode != 0)
            std::fprintf(stderr, "exit code %d: %s\n", exitCode, output.trimmed().constData());
        return exitCode;
    }

    QString m_path;
    Machine m_machine;
};

} // namespace

Host &host()
{
    static MachineHost machine(QFileInfo(qEnvironmentVariable("MORDWELL_MACHINE", "machine.json")).absoluteFilePath());
    return machine;
}
