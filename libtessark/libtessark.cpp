#include "libtessark.h"

#include <QFileInfo>
#include <QProcess>
#include <QProcessEnvironment>

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

QString systemFolder()
{
    wchar_t folder[MAX_PATH];
    const UINT length = GetSystemDirectoryW(folder, MAX_PATH);
    return length < MAX_PATH ? QString::fromWCharArray(folder, int(length)) : QString();
}

/// The path of the program in `folder` that bears this name, with or without ".exe"; an empty text if there is none.
QString programIn(const QString &folder, const QString &name)
{
    // With a path for a name, the search would not stay in the folder.
    if (QFileInfo(name).fileName() != name)
        return QString();
    wchar_t path[MAX_PATH];
    const DWORD length =
        SearchPathW(folder.toStdWString().c_str(), name.toStdWString().c_str(), L".exe", MAX_PATH, path, nullptr);
    return length < MAX_PATH ? QString::fromWCharArray(path, int(length)) : QString();
}

/// This process's environment, but for the places where programs are looked for: they are those that only
/// administrators can write to.
QProcessEnvironment systemEnvironment(const QString &folder)
{
    wchar_t windows[MAX_PATH];
    const UINT length = qMin<UINT>(GetSystemWindowsDirectoryW(windows, MAX_PATH), MAX_PATH);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("PATH", QStringList{folder, QString::fromWCharArray(windows, int(length)), folder + "\\Wbem",
                                           folder + "\\WindowsPowerShell\\v1.0"}
                                   .join(';'));
    environment.insert("NoDefaultCurrentDirectoryInExePath", "1");
    return environment;
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

int libtessark::utils::execute(const QString &program, const QStringList &arguments, QString &output,
                               bool oneMeansRestart, bool *restartNeeded)
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
    const bool restart = oneMeansRestart && exitCode == 1;
    if (restartNeeded)
        *restartNeeded = restart;
    return restart ? 0 : exitCode;
}

int libtessark::utils::executeSync(const QString &commandLine, QByteArray *output, QByteArray *)
{
    output->clear();
    const QString folder = systemFolder();
    const QString program = programIn(folder, commandLine.section(' ', 0, 0));
    if (folder.isEmpty() || program.isEmpty())
        return -1;
    const std::wstring path = program.toStdWString();
    // CreateProcess() gets the line itself: splitting it and joining it again could change its quotes.
    std::wstring line = commandLine.toStdWString();
    return run(
        [&](QProcess &process) {
            process.setCreateProcessArgumentsModifier([&](QProcess::CreateProcessArguments *created) {
                created->flags |= CREATE_NO_WINDOW;
                // Without it, the current folder would be searched before the system's.
                created->applicationName = path.c_str();
                created->arguments = line.data();
            });
            process.setWorkingDirectory(folder);
            process.setProcessEnvironment(systemEnvironment(folder));
            process.start(program, QStringList());
        },
        *output);
}
