#pragma once

#include <QString>
#include <QStringList>

#include "wmi.h"

/// All that the stand-ins for Windows and libtessark ask of the machine that they run on. One thread calls it.
class Host : public WmiHost
{
public:
    /// Runs the device console tool; puts what it wrote into `output` and gives its exit code.
    virtual int runTool(const QString &program, const QStringList &arguments, QString &output) = 0;

    /// Runs a command line, redirection included; the rest is as above.
    virtual int runCommandLine(const QString &commandLine, QByteArray &output) = 0;

    /// As the functions of libtessark.
    virtual bool win64Sys() = 0;
    virtual int winVersion(int *major, int *minor) = 0;
    virtual QString commonLogDir(const QString &subdir) = 0;

    virtual void sleep(unsigned milliseconds) = 0;
};

/// The host of this process; every executable brings the definition. It is asked for during static
/// construction already.
Host &host();
