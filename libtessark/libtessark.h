#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#ifdef tessark_EXPORTS
#define TESSARK_API Q_DECL_EXPORT
#else
#define TESSARK_API Q_DECL_IMPORT
#endif

/// What the package's programs need from the host: starting processes, and facts about the system. All functions work
/// without a QCoreApplication, also during static construction. None of them holds COM beyond the call: as long as
/// anything in the process does, CoInitializeSecurity() fails there.
namespace libtessark
{

/// Returns the folder for the log files of all users or, unless `subdir` is empty, the folder `subdir` in it: the same
/// path at each call, whether it exists or not. When Windows does not name its ProgramData folder, no folder can be
/// made and no file opened under the returned path.
TESSARK_API QString getCommonLogDir(QString subdir);

namespace utils
{

/// Returns whether the system is a 64-bit one, whatever the architecture of the program.
TESSARK_API bool win64Sys();

/// Puts the system's true version into `major` and `minor` and returns 0. Any other result is a failure, and both are
/// left untouched.
TESSARK_API int winVersion(int *major, int *minor);

/// Runs `program` with `arguments`, without a window and with an empty standard input, and waits until it has ended,
/// without a time limit. `program` is the full path of an .exe file with a drive letter, such as C:\folder\tool.exe,
/// with slashes or backslashes; with anything else, such as a network path, the call fails and starts nothing. Replaces
/// `output` by all that the program wrote, standard error included.
/// Returns the exit code of the program; a value other than 0 also when it could not be started or crashed.
/// With `oneMeansRestart`, exit code 1 means "done, but a restart is needed", and the result is then 0. A program
/// that was killed from outside with code 1 looks the same. `restartNeeded`, unless null, is set in every case: to
/// true if that happened, else to false.
TESSARK_API int execute(const QString &program, const QStringList &arguments, QString &output, bool oneMeansRestart,
                        bool *restartNeeded);

/// Runs one whole command line, which the command receives exactly as written. Its first word is the name of a program
/// in the system folder; with any other the call fails and starts nothing. The command's current folder is the system
/// folder. Its PATH, PATHEXT and PSModulePath are limited to what the system itself provides, so that whatever it
/// starts by name comes from the system's folders too. SystemRoot, windir and ComSpec have their true values. Variables
/// whose names begin with COR_, CORECLR_, COMPLUS_, DOTNET_ or APPDOMAIN_MANAGER_, in any case, are left out, because
/// some of them make powershell load a DLL. The command inherits the rest of the environment. Replaces the content of
/// `output`, never null, by what the command wrote. Standard input, waiting and result are as with execute(). The last
/// parameter is for other callers and stays null.
TESSARK_API int executeSync(const QString &commandLine, QByteArray *output, QByteArray *);

} // namespace utils
} // namespace libtessark
