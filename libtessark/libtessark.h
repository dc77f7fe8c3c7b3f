#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#ifdef tessark_EXPORTS
#define TESSARK_API Q_DECL_EXPORT
#else
#define TESSARK_API Q_DECL_IMPORT
#endif

/// What the package's programs need of the host: starting processes, and facts about the system. All of it
/// works without a QCoreApplication, also during static construction.
namespace libtessark
{

/// The folder for the log files of all users, or the folder `subdir` in it unless that is empty. Gives a
/// path that need not exist yet, the same at each call; never fails.
TESSARK_API QString getCommonLogDir(QString subdir);

namespace utils
{

/// Whether the system is a 64-bit one, whatever the bitness of the program.
TESSARK_API bool win64Sys();

/// Puts the system's true version into `major` and `minor` and gives 0; any other result is a failure and
/// leaves them alone.
TESSARK_API int winVersion(int *major, int *minor);

/// Runs a program with the given arguments, without a window and with an empty standard input, and waits
/// until it has ended, without a limit. Replaces `output` by all that it wrote, standard error included.
/// Gives its exit code; a value other than 0 as well when it could not be started or crashed.
/// With `oneMeansRestart`, exit code 1 is the tool's "done, but a restart is needed": the result is 0 then. A tool
/// that was killed from outside with code 1 looks the same. `restartNeeded`, unless null, is told in every case
/// whether it came to that.
TESSARK_API int execute(const QString &program, const QStringList &arguments, QString &output, bool oneMeansRestart,
                        bool *restartNeeded);

/// Runs one whole command line, which the command gets exactly as written. Its first word is the name of a program
/// of the system folder; with any other it fails and starts nothing. Whatever the program starts in turn by name
/// comes from the system's folders too: they alone are its PATH, the system folder is its current one. The rest of
/// the environment is handed on. Puts what the command wrote in place of what `output`, never null, holds; standard
/// input, waiting and result are as with execute(). The last parameter is for other callers and stays null.
TESSARK_API int executeSync(const QString &commandLine, QByteArray *output, QByteArray *);

} // namespace utils
} // namespace libtessark
