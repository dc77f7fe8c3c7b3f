/// For runs of the Windows program without the real tools: acts as the tool under whose name it was started
/// (devcon-x64, devcon-x86, powershell, netsh or wmic) on the machine file that MORDWELL_MACHINE names. Started from
/// where no tool of Windows is, it acts as none: it is a decoy, and leaves a file behind that says so.
#include "machine.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <windows.h>

int main(int argc, char **argv)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    arguments.removeFirst();
    wchar_t path[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    const QString self = QString::fromWCharArray(path, int(length)).toLower();
    const QString tool = QFileInfo(self).completeBaseName();

    const QString file = qEnvironmentVariable("MORDWELL_MACHINE");
    if (!self.startsWith(R"(c:\windows\system32\)") && !self.startsWith(R"(c:\program files\)")) {
        QFile(file + ".decoy").open(QIODevice::WriteOnly);
        return 0;
    }
    Machine machine(file);
    QByteArray output;
    int exitCode = 0;
    if (tool.startsWith("devcon")) {
        exitCode = machine.devcon(arguments, output);
    } else {
        // As it stands: powershell and netsh have rules of their own for quotes.
        exitCode = machine.run(
            tool, QString::fromWCharArray(GetCommandLineW()).remove(QRegularExpression(R"(^("[^"]*"|\S+)\s+)")),
            output);
    }
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), output.constData(), DWORD(output.size()), &written, nullptr);
    return exitCode;
}
