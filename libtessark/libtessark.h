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
/// Gives its exit code; a value other than 0 as well when it could not be started or crashed. The last two
/// parameters are for other callers: true and null are what is understood.
TESSARK_API int execute(const QString &program, const QStringList &arguments, QString &output, bool, bool *);

/// Runs one whole command line exactly as written; the rest is as with execute(). Replaces what `output`
/// holds by the bytes that the command wrote. The last parameter is for other callers and stays null.
TESSARK_API int executeSync(const QString &commandLine, QByteArray *output, QByteArray *);

} // namespace utils
} // namespace libtessark
