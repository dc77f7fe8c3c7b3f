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

int libtessark::utils::execute(const QString &program, const QStringList &arguments, QString &output, bool, bool *)
{
    return host().runTool(program, arguments, output);
}

int libtessark::utils::executeSync(const QString &commandLine, QByteArray *output, QByteArray *)
{
    return host().runCommandLine(commandLine, *output);
}
