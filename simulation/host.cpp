/// The host of the native program: libtessark and Sleep() on the simulated machine in the file MORDWELL_MACHINE. The
/// folder "<file>.files" next to that file is the current folder of the run. It contains the log and, in a file whose
/// name is a Windows path, wmic. Nothing here depends on the time, so Sleep() returns at once.
#include "libtessark.h"
#include "machine.h"
#include "wmi.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <cstdio>

namespace
{

/// Changes to the machine's folder and reads the machine.
Machine openMachine(const QString &path)
{
    const QString folder = path + ".files";
    if (!QDir().mkpath(folder) || !QDir::setCurrent(folder))
        stop(folder + ": cannot be used");
    return Machine(path);
}

struct Host : WmiHost {
    Host()
    {
        if (machine.system()["wmic"].toBool())
            QFile(R"(C:\Windows\System32\wbem\WMIC.exe)").open(QIODevice::WriteOnly);
        wmiHost = this;
    }
    HRESULT comCall(const QString &function, const QString &) override { return machine.nextFault(function).toInt(); }
    QVector<WmiRow> wmiRows() override { return machine.wmiRows(); }

    const QString path = QFileInfo(qEnvironmentVariable("MORDWELL_MACHINE", "machine.json")).absoluteFilePath();
    Machine machine = openMachine(path);
};

/// The host of this process. The program's first call comes during static construction.
Host &host()
{
    static Host host;
    return host;
}

/// The program does not log what a failing tool wrote, so it goes to standard error. Returns `exitCode`.
int shown(const QString &tool, int exitCode, const QByteArray &output)
{
    if (exitCode != 0)
        std::fprintf(stderr, "%s: exit code %d: %s\n", qPrintable(tool), exitCode, output.trimmed().constData());
    return exitCode;
}

} // namespace

QString libtessark::getCommonLogDir(QString subdir)
{
    // No folder can be created below a file.
    const QString folder = host().machine.system()["logFolder"].toBool() ? QDir::currentPath() : host().path;
    return folder + "/log" + (subdir.isEmpty() ? "" : "/" + subdir);
}

bool libtessark::utils::win64Sys()
{
    return host().machine.system()["x64"].toBool();
}

int libtessark::utils::winVersion(int *major, int *minor)
{
    *major = 10;
    *minor = 0;
    return 0;
}

int libtessark::utils::execute(const QString &program, const QStringList &arguments, QString &output,
                               bool oneMeansRestart, bool *restartNeeded)
{
    const QJsonObject system = host().machine.system();
    const QString devcon = QString("devcon-%1.exe").arg(system["x64"].toBool() ? "x64" : "x86");
    const bool exists = program == R"(C:\Program Files//HalvaneRelayKit/bin/)" + devcon && system["devcon"].toBool();
    QByteArray bytes = "No such program: " + program.toUtf8();
    const int exitCode = exists ? host().machine.devcon(devcon, arguments, bytes) : -1;
    output = QString::fromUtf8(bytes);
    const bool restart = oneMeansRestart && exitCode == 1;
    if (restartNeeded)
        *restartNeeded = restart;
    shown("devcon", exitCode, bytes);
    return restart ? 0 : exitCode;
}

int libtessark::utils::executeSync(const QString &commandLine, QByteArray *output, QByteArray *)
{
    const QRegularExpression form(R"re(^(?:cmd /c (powershell|wmic)|(netsh)\.exe) (.*?)(?:> "([^"]*)" ?)?$)re");
    const QRegularExpressionMatch match = form.match(commandLine);
    const QString tool = match.captured(1) + match.captured(2);
    const bool redirected = !match.captured(4).isNull();
    QFile target(match.captured(4));
    if (!match.hasMatch() || (redirected && !target.open(QIODevice::WriteOnly))) {
        *output = "No such command or file: " + commandLine.toUtf8();
        return shown("cmd", 1, *output);
    }
    const int exitCode = host().machine.run(tool, match.captured(3), *output);
    // What a failing tool writes goes to standard error, which is not redirected.
    if (redirected && exitCode == 0) {
        target.write(*output);
        output->clear();
    }
    return shown(tool, exitCode, *output);
}

void Sleep(DWORD) {}
