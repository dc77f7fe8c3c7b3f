/// A fake of the tools that the Windows program starts. Under the name devcon-x64, devcon-x86, powershell, netsh or
/// wmic it does what that tool does, on the machine file that MORDWELL_MACHINE names. Started from a folder that
/// contains no tools of Windows it is a decoy: it only leaves a file "<machine file>.decoy", which fails the test.
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
    // The command line as written: powershell and netsh have their own rules for quotes.
    QString line = QString::fromWCharArray(GetCommandLineW());
    line.remove(QRegularExpression(R"(^("[^"]*"|\S+)\s+)"));
    const int exitCode = tool.startsWith("devcon")
                             ? machine.devcon(tool + ".exe", application.arguments().mid(1), output)
                             : machine.run(tool, line, output);
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), output.constData(), DWORD(output.size()), &written, nullptr);
    return exitCode;
}
