#pragma once

#include "host.h"

#include <QList>
#include <QPair>
#include <QTemporaryDir>

/// A host that hands out prepared results and writes down what it is asked for, in one journal with the log
/// statements that come in between. Time stands still.
class ScriptedHost : public Host
{
public:
    /// Exit code and output of one run; when none is left, runs succeed and write nothing.
    using Runs = QList<QPair<int, QByteArray>>;

    Runs tools;
    Runs commandLines;
    /// One for each WMI query; the last one stays.
    QList<QVector<WmiRow>> inventories;
    /// HRESULTs by COM function.
    QMap<QString, HRESULT> comResults;
    int version = 0; ///< What winVersion() gives.
    int major = 10;
    QTemporaryDir folder; ///< For the log, and the current folder.
    QString logSubdir = "/log";

    QStringList journal;
    bool journalCom = false;
    QList<int> textlessLines; ///< The source lines of the statements without text.

    /// The statements go to the journal instead of a log, as "level function: message".
    void captureStatements();

    static WmiRow row(const QString &name, const QString &id);
    /// An inventory from a text such as "name=id, name=id".
    static QVector<WmiRow> inventory(const QString &text);

    int runTool(const QString &program, const QStringList &arguments, QString &output) override;
    int runCommandLine(const QString &commandLine, QByteArray &output) override;
    HRESULT comCall(const QString &function, const QString &arguments) override;
    QVector<WmiRow> wmiRows() override;
    bool win64Sys() override { return true; }
    int winVersion(int *major, int *minor) override;
    QString commonLogDir(const QString &subdir) override;
    void sleep(unsigned milliseconds) override;
};

/// The host of the test that runs; init() of the tests makes a new one.
extern ScriptedHost *scripted;
