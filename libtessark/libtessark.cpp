#include "libtessark.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRegExp>

#include <windows.h>

#include <shlobj.h>

namespace
{

/// Starts the file `program`, waits until it has ended and puts what it wrote into `output`. Its command line is `line`
/// or, if that is empty, consists of `program` and `arguments`. Returns as execute() does.
int run(QProcess &process, const QString &program, const QStringList &arguments, std::wstring line, QByteArray &output)
{
    const std::wstring file = QDir::toNativeSeparators(program).toStdWString();
    process.setCreateProcessArgumentsModifier([&](QProcess::CreateProcessArguments *created) {
        created->flags |= CREATE_NO_WINDOW;
        // Without a file name, CreateProcess() would search for the first word of the line, in the current folder too.
        created->applicationName = file.c_str();
        // The line is passed as it is: splitting it and joining it again could change its quotes.
        if (!line.empty())
            created->arguments = line.data();
    });
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setStandardInputFile(QProcess::nullDevice());

    // A child inherits the error mode of the process, not that of a thread. In this mode a child with a missing DLL
    // fails instead of waiting behind a message box that nobody sees; crash reports stay on. Two threads that start
    // children at the same time could leave the mode set, but the package's programs have one thread.
    const UINT errorMode = GetErrorMode();
    SetErrorMode(errorMode | SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
    process.start(program, arguments);
    SetErrorMode(errorMode);

    process.waitForFinished(-1);
    output = process.readAll();
    const int exitCode = process.exitCode();
    const bool crashed = process.error() != QProcess::UnknownError || process.exitStatus() != QProcess::NormalExit;
    return crashed && exitCode == 0 ? -1 : exitCode;
}

/// Whether `path` is the full path of an .exe file with a drive letter. Any other path can depend on the current folder
/// or name a server, such as //server/tool.exe, and a batch file would have its arguments interpreted by cmd.
bool isProgramOnDrive(const QString &path)
{
    return QRegExp(R"([A-Z]:[/\\].*\.exe)", Qt::CaseInsensitive).exactMatch(path);
}

/// Decodes what a console tool wrote. The texts of devcon are ASCII, which is the same in all code pages. A tool that
/// writes other characters into a pipe uses the OEM code page, not the ANSI one that QString::fromLocal8Bit() decodes.
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

/// Returns the path of the program in `folder` that is named `name`, with or without ".exe"; an empty string if there
/// is none.
QString programIn(const QString &folder, const QString &name)
{
    // SearchPath() looks for a name that contains a path outside the folder.
    if (QFileInfo(name).fileName() != name)
        return QString();
    wchar_t path[MAX_PATH];
    const DWORD length =
        SearchPathW(folder.toStdWString().c_str(), name.toStdWString().c_str(), L".exe", MAX_PATH, path, nullptr);
    return length < MAX_PATH ? QString::fromWCharArray(path, int(length)) : QString();
}

/// Returns this process's environment, except for what a user could set, without being elevated, to make an elevated
/// child run other files. The search paths contain only folders in which nobody but administrators can write, and a
/// command is only a .com or .exe file. `system` is the system folder.
QProcessEnvironment systemEnvironment(const QString &system)
{
    wchar_t folder[MAX_PATH];
    const UINT length = qMin<UINT>(GetSystemWindowsDirectoryW(folder, MAX_PATH), MAX_PATH);
    const QString windows = QString::fromWCharArray(folder, int(length));
    const QString powershell = system + "\\WindowsPowerShell\\v1.0";
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("SystemRoot", windows);
    environment.insert("windir", windows);
    environment.insert("ComSpec", system + "\\cmd.exe");
    environment.insert("PATH", QStringList{system, windows, system + "\\Wbem", powershell}.join(';'));
    environment.insert("PATHEXT", ".COM;.EXE");
    environment.insert("NoDefaultCurrentDirectoryInExePath", "1");
    // PowerShell 7 hands down its own value, with which modules that both have fail to load in Windows PowerShell.
    // PowerShell itself adds the account's module folder.
    environment.insert("PSModulePath", powershell + "\\Modules");
    // With these, .NET loads the DLL of a profiler, for example, into powershell.
    const QRegExp dotNet("^(COR|CORECLR|COMPLUS|DOTNET|APPDOMAIN_MANAGER)_", Qt::CaseInsensitive);
    for (const QString &name : environment.keys().filter(dotNet))
        environment.remove(name);
    return environment;
}

} // namespace

QString libtessark::getCommonLogDir(QString subdir)
{
    // No name on Windows contains < or >. So without ProgramData the log cannot be opened on any drive, whereas an
    // ordinary folder on the current drive could have been made by any user.
    QString folder = "/<no ProgramData>";
    PWSTR programData = nullptr;
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
    // GetVersionEx() reports no newer version than the program's manifest names; RtlGetVersion() reports the true one.
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
    QProcess process;
    const int exitCode = isProgramOnDrive(program) ? run(process, program, arguments, {}, bytes) : -1;
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
    QProcess process;
    process.setWorkingDirectory(folder);
    process.setProcessEnvironment(systemEnvironment(folder));
    return run(process, program, {}, commandLine.toStdWString(), *output);
}
