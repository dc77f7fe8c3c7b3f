#pragma once

#include "host.h"

#include <QDebug>
#include <QFile>
#include <QList>
#include <QPair>
#include <QRegularExpression>
#include <QTemporaryDir>

/// A host that hands out prepared results and logs what it is asked for between the statements of the program.
/// Time stands still.
struct ScriptedHost : Host {
    /// Exit code and output of each run; when none is left, runs succeed and write nothing.
    using Runs = QList<QPair<int, QByteArray>>;

    Runs tools;
    Runs commandLines;
    QList<QVector<WmiRow>> inventories; ///< One for each WMI query; the last one stays.
    QMap<QString, HRESULT> comResults;  ///< By COM function.
    int version = 0;                    ///< What winVersion() gives.
    int major = 10;
    QTemporaryDir folder;
    QString logFolder = folder.filePath("log");

    QStringList journal; ///< What was logged, statements as "level function: message".
    bool journalCom = false;

    static void record(const QString &call) { qDebug().noquote() << call; }

    /// An inventory from a text such as "name=id, name=id".
    static QVector<WmiRow> inventory(const QString &text)
    {
        QVector<WmiRow> rows;
        for (const QString &entry : text.split(", ", Qt::SkipEmptyParts)) {
            rows.append({{"NetConnectionID", {0, VT_BSTR, entry.section('=', 0, 0)}},
                         {"PNPDeviceID", {0, VT_BSTR, entry.section('=', 1)}}});
        }
        return rows;
    }

    static QPair<int, QByteArray> take(Runs &runs) { return runs.isEmpty() ? Runs{{0, ""}}[0] : runs.takeFirst(); }

    int runTool(const QString &program, const QStringList &arguments, QString &output) override
    {
        record(program + " [" + arguments.join("] [") + "]");
        const auto run = take(tools);
        output = QString::fromUtf8(run.second);
        return run.first;
    }

    int runCommandLine(const QString &commandLine, QByteArray &output) override
    {
        const auto run = take(commandLines);
        const QString target = QRegularExpression("> \"([^\"]+)\"").match(commandLine).captured(1);
        QFile file(target);
        if (file.exists() && journal.filter("SCRATCH").isEmpty())
            record("The scratch file is there before a command has run");
        record(target.isEmpty() ? commandLine : QString(commandLine).replace(target, "SCRATCH"));
        if (target.isEmpty())
            output += run.second;
        else if (!run.second.isNull() && file.open(QIODevice::WriteOnly))
            file.write(run.second);
        return run.first;
    }

    HRESULT comCall(const QString &function, const QString &arguments) override
    {
        if (journalCom)
            record(function + "(" + arguments + ")");
        return comResults.value(function);
    }

    QVector<WmiRow> wmiRows() override
    {
        if (!journalCom)
            record("read");
        return inventories.size() > 1 ? inventories.takeFirst() : inventories.value(0);
    }

    bool win64Sys() override { return true; }
    int winVersion(int *majorOut, int *minorOut) override
    {
        *majorOut = major;
        *minorOut = 3;
        return version;
    }

    QString commonLogDir(const QString &subdir) override
    {
        record("getCommonLogDir");
        return logFolder + subdir;
    }
    void sleep(unsigned milliseconds) override
    {
        const QFile log(logFolder + "/tap-log.txt");
        record(QString("Sleep %1").arg(milliseconds) + (log.exists() && log.size() == 0 ? ", nothing flushed" : ""));
    }
};

/// The host of the test that runs.
ScriptedHost *scripted = nullptr;

// ARCH asks during static construction, before any test has made its host.
Host &host()
{
    static ScriptedHost first;
    return scripted ? *scripted : first;
}

/// Gives a line of the log without what is the same in all of them.
QString shortened(QString line)
{
    const QRegularExpression prefix(R"(^\w{3} \w{3} +\d+ [\d:]{8} \d{4} \[0x[1-9a-f][0-9a-f]*\] \[(\w+)\] )"
                                    R"(\[Halvane Relay Kit:\.\\(main:|tap:ZELK::(?:Tap::)?)(\w+)\(\):(\d+)\] )");
    // No two statements share a source line, so each line has one level.
    static QMap<QString, QString> levels;
    const auto match = prefix.match(line);
    QString &level = levels[match.captured(2).left(4) + match.captured(4)];
    if (level.isEmpty())
        level = match.captured(1);
    return level == match.captured(1) ? line.replace(prefix, "\\1 \\3: ") : line;
}

/// What is logged goes to the journal from now on, until main() opens its log.
void captureLog()
{
    qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext &, const QString &line) { scripted->journal << shortened(line); });
}
