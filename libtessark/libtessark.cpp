#include "libtessark.h"

#include <QProcess>

#include <windows.h>

#include <shlobj.h>

namespace
{

/// Starts a process by `start`, waits for its end and puts what it wrote into `output`.
template <typename Start>
int run(Start start, QByteArray &output)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setStandardInputFile(QProcess::nullDevice());
    start(process);
    process.waitForFinished(-1);
    output = process.readAll();
    const int exitCode = process.exitCode();
    const bool crashed = process.error() != QProcess::UnknownError || process.exitStatus() != QProcess::NormalExit;
    return crashed && exitCode == 0 ? -1 : exitCode;
}

/// Console tools write the OEM code page into a pipe, not the ANSI one that QString::fromLocal8Bit() takes.
QString fromOem(const QByteArray &bytes)
{
    QVector<wchar_t> text(bytes.size());
    const int length = MultiByteToWideChar(CP_OEMCP, 0, bytes.data(), bytes.size(), text.data(), text.size());
    return QString::fromWCharArray(text.data(), length);
}

} // namespace

QString libtessark::getCommonLogDir(QString subdir)
{
    PWSTR programData = nullptr;
    QString folder;
    if (SUCCEEDED(SHGetKnownFolderPath(FOLDERID_ProgramData, 0, nullptr, &programData)))
        folder = QString::fromWCharArray(programData);
    CoTaskMemFree(programData);
    folder += "/HalvaneRelayKit/log";
    return subdir.isEmpty() ? folder : folder + "/" + subdir;
}

bool libtessark::utils::win64Sys()
{
    SYSTEM_INFO info;
    GetNativeSystemInfo(&info);
    return info.wProcessorArchitecture != PROCESSOR_ARCHITECTURE_INTEL;
}

int libtessark::utils::winVersion(int *major, int *minor)
{
    // GetVersionEx() tells a program what its manifest claims to know; this tells the truth.
    using RtlGetVersion = LONG(WINAPI *)(OSVERSIONINFOW *);
    const auto getVersion = reinterpret_cast<RtlGetVersion>(
        reinterpret_cast<void *>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
    OSVERSIONINFOW info{};
    info.dwOSVersionInfoSize = sizeof info;
    if (!getVersion || getVersion(&info) != 0)
        return -1;
    *major = int(info.dwMajorVersion);
    *minor = int(info.dwMinorVersion);
    return 0;
}

int libtessark::utils::execute(const QString &program, const QStringList &arguments, QString &output, bool, bool *)
{
    QByteArray bytes;
    const int exitCode = run(
        [&](QProcess &process) {
            process.setCreateProcessArgumentsModifier(
                [](QProcess::CreateProcessArguments *created) { created->flags |= CREATE_NO_WINDOW; });
            process.start(program, arguments);
        },
        bytes);
    output = fromOem(bytes);
    return exitCode;
}

int libtessark::utils::executeSync(const QString &commandLine, QByteArray *output, QByteArray *)
{
    // CreateProcess() gets the line itself: splitting it and joining it again could change its quotes.
    std::wstring line = commandLine.toStdWString();
    return run(
        [&](QProcess &process) {
            process.setCreateProcessArgumentsModifier([&](QProcess::CreateProcessArguments *created) {
                created->flags |= CREATE_NO_WINDOW;
                created->arguments = line.data();
            });
            process.start(commandLine.section(' ', 0, 0), QStringList());
        },
        *output);
}
