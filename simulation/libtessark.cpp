#include "libtessark.h"
#include "host.h"

QString libtessark::getCommonLogDir(QString subdir)
{
    return host().commonLogDir(subdir);
}

bool libtessark::utils::win64Sys()
{
    return host().win64Sys();
}

int libtessark::utils::winVersion(int *major, int *minor)
{
    return host().winVersion(major, minor);
}

int libtessark::utils::execute(const QString &program, const QStringList &arguments, QString &output,
                               bool oneMeansRestart, bool *restartNeeded)
{
    const int exitCode = host().runTool(program, arguments, output);
    const bool restart = oneMeansRestart && exitCode == 1;
    if (restartNeeded)
        *restartNeeded = restart;
    return restart ? 0 : exitCode;
}

int libtessark::utils::executeSync(const QString &commandLine, QByteArray *output, QByteArray *other)
{
    return other ? -1 : host().runCommandLine(commandLine, *output);
}
