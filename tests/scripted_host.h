#pragma once

#include "libtessark.h"
#include "wmi.h"

#include <windows.h>

#include <QDateTime>
#include <QDebug>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>

/// A host that gives prepared answers and logs what it is asked for, with the answer, between the statements of the
/// program. Time stands still.
struct ScriptedHost : WmiHost {
    QStringList answers; ///< To the calls, in their order, as roads.txt writes them; "0" when none is left.
    bool journalCom = false;
    QMap<QString, HRESULT> comResults; ///< By COM function; with the rows, for a journal of COM.
    QVector<WmiRow> rows;
    QString scratch; ///< The file that a command wrote last.
    int version = 0; ///< What winVersion() gives.
    int major = 10;
    QTemporaryDir folder;
    QString logFolder = folder.filePath("log");
    QStringList journal; ///< What was logged.
    const QDateTime began = QDateTime::currentDateTime();

    static void record(const QString &call) { qDebug().noquote() << call; }

    QString answered(const QString &call)
    {
        const QString answer = answers.isEmpty() ? "0" : answers.takeFirst();
        record(call + " -> " + answer);
        return answer;
    }

    /// What a command writes.
    static QString output(const QString &answer)
    {
        QString text = answer.section(' ', 1);
        text.replace("\\r", "\r").replace("\\n", "\n").replace("\\t", "\t").replace("\\uFEFF", QChar(0xfeff));
        return text;
    }

    int runTool(const QString &program, const QStringList &arguments, QString &text)
    {
        const QString answer = answered(program + " [" + arguments.join("] [") + "]");
        text = output(answer);
        return answer.section(' ', 0, 0).toInt();
    }

    int runCommandLine(const QString &commandLine, QByteArray &bytes)
    {
        const QString target = QRegularExpression("> \"([^\"]+)\"").match(commandLine).captured(1);
        QFile file(target);
        if (file.exists() && target != scratch)
            record("The scratch file is there before a command has run");
        scratch = target;
        const QString answer =
            answered(target.isEmpty() ? commandLine : QString(commandLine).replace(target, "SCRATCH"));
        const QString text = output(answer);
        if (target.isEmpty())
            bytes += text.toLatin1();
        else if (answer.contains(' ') && file.open(QIODevice::WriteOnly))
            file.write(reinterpret_cast<const char *>(text.utf16()), text.size() * 2);
        return answer.section(' ', 0, 0).toInt();
    }

    HRESULT comCall(const QString &function, const QString &arguments) override
    {
        if (journalCom) {
            record(function + "(" + arguments + ")");
            return comResults.value(function);
        }
        if (function == "CoInitializeEx") {
            rows.clear();
            const QString answer = answered("read");
            for (const QString &row : answer.split(", ").filter("="))
                rows.append({{"NetConnectionID", {0, VT_BSTR, row.section('=', 0, 0)}},
                             {"PNPDeviceID", {0, VT_BSTR, row.section('=', 1)}}});
            comResults["CoInitializeSecurity"] = answer == "fails" ? -2147417831 : 0;
        }
        return comResults.value(function);
    }

    QVector<WmiRow> wmiRows() override { return rows; }
    int winVersion(int *majorOut, int *minorOut)
    {
        *majorOut = major;
        *minorOut = 3;
        return version;
    }
    QString commonLogDir(const QString &subdir)
    {
        record("getCommonLogDir");
        return logFolder + subdir;
    }
    void sleep(unsigned milliseconds)
    {
        const QFile log(logFolder + "/tap-log.txt");
        record(QString("Sleep %1").arg(milliseconds) + (log.exists() && log.size() == 0 ? ", nothing flushed" : ""));
    }
};

/// The host of the test that runs.
ScriptedHost *scripted = nullptr;

QString libtessark::getCommonLogDir(QString subdir)
{
    return scripted->commonLogDir(subdir);
}

bool libtessark::utils::win64Sys()
{
    return true;
}

int libtessark::utils::winVersion(int *major, int *minor)
{
    return scripted->winVersion(major, minor);
}

int libtessark::utils::execute(const QString &program, const QStringList &arguments, QString &output,
                               bool oneMeansRestart, bool *)
{
    const int exitCode = scripted->runTool(program, arguments, output);
    return oneMeansRestart && exitCode == 1 ? 0 : exitCode;
}

int libtessark::utils::executeSync(const QString &commandLine, QByteArray *output, QByteArray *)
{
    return scripted->runCommandLine(commandLine, *output);
}

void Sleep(DWORD milliseconds)
{
    scripted->sleep(milliseconds);
}

/// A line of the log without date, thread, package, file and source line. One that is not as it should be stays whole.
QString shortened(const QString &line)
{
    static const QRegularExpression form(R"(^([^[]+) \[0x[1-9a-f][0-9a-f]*\] (\[\w+\]) \[Halvane Relay Kit:\.\\)"
                                         R"((main:(?=main)|tap:(?=ZELK::))([\w:]+\(\):)(\d+)\] )");
    // No two statements share a source line, so each line has one level.
    static QMap<QString, QString> levels;
    const auto match = form.match(line);
    QString &level = levels[match.captured(3) + match.captured(5)];
    if (level.isEmpty())
        level = match.captured(2);
    // The date is as the system's language writes it.
    bool dated = false;
    for (auto time = QDateTime::currentDateTime(); time > scripted->began.addSecs(-1); time = time.addSecs(-1))
        dated |= time.toString() == match.captured(1);
    const QString message = line.mid(match.capturedEnd());
    return dated && level == match.captured(2)
               ? level + ' ' + match.captured(4) + (message.isEmpty() ? "" : ' ' + message)
               : line;
}
