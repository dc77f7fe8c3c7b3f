/// For runs of the Windows program without the real tools: acts as the tool under whose name it was started
/// (devcon-x64, powershell, netsh or wmic) on the machine file that MORDWELL_MACHINE names.
#include "machine.h"

#include <QFileInfo>
#include <QRegularExpression>

#include <windows.h>

int main(int argc, char **argv)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    const QString tool = QFileInfo(arguments.takeFirst()).completeBaseName().toLower();

    Machine machine(qEnvironmentVariable("MORDWELL_MACHINE"));
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
