/// For runs of the Windows program without the real tools: acts as the tool under whose name it was started
/// (devcon-x64, powershell, netsh or wmic) on the machine file that MORDWELL_MACHINE names.
#include "machine.h"

#include <QFileInfo>
#include <QRegularExpression>

#include <windows.h>

#include <shellapi.h>

int main()
{
    const QString commandLine = QString::fromWCharArray(GetCommandLineW());
    int count = 0;
    wchar_t **words = CommandLineToArgvW(GetCommandLineW(), &count);
    QStringList arguments;
    for (int i = 0; i < count; ++i)
        arguments << QString::fromWCharArray(words[i]);
    LocalFree(words);
    const QString tool = QFileInfo(arguments.takeFirst()).completeBaseName().toLower();

    Machine machine(qEnvironmentVariable("MORDWELL_MACHINE"));
    QByteArray output;
    int exitCode = 0;
    if (tool.startsWith("devcon")) {
        exitCode = machine.devcon(arguments, output);
    } else {
        // As it stands: powershell and netsh have rules of their own for quotes.
        const QString rest = QString(commandLine).remove(QRegularExpression(R"(^("[^"]*"|\S+)\s+)"));
        exitCode = machine.run(tool, rest, output);
    }
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), output.constData(), DWORD(output.size()), &written, nullptr);
    return exitCode;
}
