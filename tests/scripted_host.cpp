#include "scripted_host.h"
#include "main.h"

#include <QFile>
#include <QRegularExpression>

ScriptedHost *scripted = nullptr;

// ARCH asks during static construction, before any test has made its host.
Host &host()
{
    static ScriptedHost first;
    return scripted ? *scripted : first;
}

void ScriptedHost::captureStatements()
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &line) {
        const QRegularExpression form(R"(\[(\w+)\] \[Halvane Relay Kit:(\.\\\w+:[\w:]+)\(\):(\d+)\] (.*)$)");
        const QRegularExpressionMatch match = form.match(line);
        const QString place = match.captured(2).remove(QRegularExpression("^.*:"));
        scripted->journal << (match.hasMatch() ? match.captured(1) + " " + place + ": " + match.captured(4) : line);
        if (match.captured(4).isEmpty())
            scripted->textlessLines << match.captured(3).toInt();
    });
}

WmiRow ScriptedHost::row(const QString &name, const QString &id)
{
    return {{"NetConnectionID", {0, VT_BSTR, name}}, {"PNPDeviceID", {0, VT_BSTR, id}}};
}

QVector<WmiRow> ScriptedHost::inventory(const QString &text)
{
    QVector<WmiRow> rows;
    for (const QString &entry : text.split(", ", Qt::SkipEmptyParts))
        rows << row(entry.section('=', 0, 0), entry.section('=', 1));
    return rows;
}

int ScriptedHost::runTool(const QString &program, const QStringList &arguments, QString &output)
{
    journal << program + " [" + arguments.join("] [") + "]";
    const auto run = tools.isEmpty() ? qMakePair(0, QByteArray()) : tools.takeFirst();
    output = QString::fromUtf8(run.second);
    return run.first;
}

int ScriptedHost::runCommandLine(const QString &commandLine, QByteArray &output)
{
    const auto run = commandLines.isEmpty() ? qMakePair(0, QByteArray()) : commandLines.takeFirst();
    const QString target = QRegularExpression("> \"([^\"]+)\"").match(commandLine).captured(1);
    if (target.isEmpty()) {
        journal << commandLine;
        output = run.second;
        return run.first;
    }
    if (QFile::exists(target) && journal.filter("SCRATCH").isEmpty())
        journal << "The scratch file is there before a command has run";
    journal << QString(commandLine).replace(target, "SCRATCH");
    if (!run.second.isNull()) {
        QFile file(target);
        file.open(QIODevice::WriteOnly);
        file.write(run.second);
    }
    return run.first;
}

HRESULT ScriptedHost::comCall(const QString &function, const QString &arguments)
{
    if (journalCom)
        journal << function + "(" + arguments + ")";
    return comResults.value(function);
}

QVector<WmiRow> ScriptedHost::wmiRows()
{
    if (!journalCom)
        journal << "read";
    if (inventories.isEmpty())
        return {};
    return inventories.size() > 1 ? inventories.takeFirst() : inventories.first();
}

int ScriptedHost::winVersion(int *majorOut, int *minorOut)
{
    *majorOut = major;
    *minorOut = 3;
    return version;
}

QString ScriptedHost::commonLogDir(const QString &subdir)
{
    return folder.path() + logSubdir + subdir;
}

void ScriptedHost::sleep(unsigned milliseconds)
{
    journal << QString("Sleep %1").arg(milliseconds) + (logFile.isOpen() ? ", log open" : "");
}
