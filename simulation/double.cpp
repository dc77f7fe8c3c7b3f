/// For runs of the Windows program without the real tools: acts as the tool under whose name it was started
/// (devcon-x64, devcon-x86, powershell, netsh or wmic) on the machine file that MORDWELL_MACHINE names. Started from
/// where no tool of Windows is, it acts as none: it is a decoy, and leaves a file behind that says so.
#include "machine.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <windows.h>

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const QString self = application.applicationFilePath().toLower();
    const QString tool = QFileInfo(self).completeBaseName();
    const QString file = qEnvironmentVariable("MORDWELL_MACHINE");
    if (!self.startsWith("c:/windows/system32/") && !self.startsWith("c:/program files/")) {
        QFile(file + ".decoy").open(QIODevice::WriteOnly);
        return 0;
    }
    Machine machine(file);
    QByteArray output;
    // The line as it stands: powershell and netsh have rules of their own for quotes.
    QString line = QString::fromWCharArray(GetCommandLineW());
    line.remove(QRegularExpression(R"(^("[^"]*"|\S+)\s+)"));
    const int exitCode = tool.startsWith("devcon") ? machine.devcon(application.arguments().mid(1), output)
                                                   : machine.run(tool, line, output);
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), output.constData(), DWORD(output.size()), &written, nullptr);
    return exitCode;
}
