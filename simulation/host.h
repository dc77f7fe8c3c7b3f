#pragma once

#include <QMap>
#include <QString>
#include <QStringList>
#include <QVector>

#include "sdk/windows.h"

/// A property of a row of the WMI query: the HRESULT of Get(), the type of the VARIANT and, for a string,
/// its text.
struct WmiValue {
    HRESULT result;
    VARTYPE type;
    QString text;
};

/// A row of the WMI query, by property.
using WmiRow = QMap<QString, WmiValue>;

/// All that the stand-ins for Windows and libtessark ask of the machine that they run on. One thread calls it.
class Host
{
public:
    virtual ~Host() = default;

    /// Runs the device console tool; puts what it wrote into `output` and gives its exit code.
    virtual int runTool(const QString &program, const QStringList &arguments, QString &output) = 0;

    /// Runs a command line, redirection included; the rest is as above.
    virtual int runCommandLine(const QString &commandLine, QByteArray &output) = 0;

    /// Told of every COM call before it does anything, with its arguments as text; gives the call's HRESULT.
    /// A failing call does nothing.
    virtual HRESULT comCall(const QString &function, const QString &arguments) = 0;

    /// The rows that the WMI query finds.
    virtual QVector<WmiRow> wmiRows() = 0;

    /// As the functions of libtessark.
    virtual bool win64Sys() = 0;
    virtual int winVersion(int *major, int *minor) = 0;
    virtual QString commonLogDir(const QString &subdir) = 0;

    virtual void sleep(unsigned milliseconds) = 0;
};

/// The host of this process; every executable brings the definition. It is asked for during static
/// construction already.
Host &host();
