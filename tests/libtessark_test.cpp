/// Tests tessark.dll with real processes, and that the program's WMI query succeeds again and again in one process that
/// has used the library: CoInitializeSecurity() fails as long as anything else holds COM. The child process is this
/// program again or, since executeSync() hands on a PATH without Qt, cmd with its built-in commands.
#include "libtessark.h"
#include "tap.h"

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>
#include <QThreadPool>

#include <windows.h>

#include <atomic>
#include <cstdio>

QString ARCH; // Used by tap.cpp, and otherwise defined in main.cpp.

namespace
{

int failures = 0;

void compare(const QString &what, const QString &actual, const QString &expected)
{
    if (actual == expected)
        return;
    std::printf("FAIL: %s\n    actual:   %.300s\n", qPrintable(what), qPrintable(actual));
    std::printf("    expected: %.300s\n", qPrintable(expected));
    ++failures;
}

/// Writes each argument after the first in brackets, in the code page of console tools, and returns the first.
int child(const QList<QByteArray> &arguments)
{
    for (QByteArray argument : arguments.mid(1)) {
        CharToOemA(argument.data(), argument.data());
        std::printf("[%s]", argument.constData());
    }
    std::fflush(stdout);
    if (arguments.contains("input"))
        std::fprintf(stderr, "%d", std::getchar());
    if (arguments.contains("sleep"))
        Sleep(31000);
    return arguments[0].toInt();
}

/// Returns the exit code, "restart" if one is needed, and the output.
QString execute(const QString &program, const QStringList &arguments, bool oneMeansRestart = true)
{
    QString output = "old";
    bool restart = !oneMeansRestart;
    const int exitCode = libtessark::utils::execute(program, arguments, output, oneMeansRestart, &restart);
    return QString::number(exitCode) + (restart ? " restart " : " ") + output;
}

/// Returns the exit code and the output.
QString executeSync(const QString &line)
{
    QByteArray output = "old";
    const int exitCode = libtessark::utils::executeSync(line, &output, nullptr);
    return QString::number(exitCode) + " " + output;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc > 1)
        return child(QList<QByteArray>(argv + 1, argv + argc));
    // They show the log statements of a query that fails.
    qputenv("QT_FORCE_STDERR_LOGGING", "1");
    qputenv("QT_LOGGING_RULES", "*.debug=true");
    const QString self = QCoreApplication(argc, argv).applicationFilePath();
    SetErrorMode(0);
    // A child inherits the error mode of its start from Windows, but not from Wine, so it cannot report it everywhere.
    QStringList modes;
    std::atomic_bool watching{true};
    QThreadPool pool;
    pool.start([&] {
        for (; watching; modes.removeDuplicates())
            modes << QString::number(GetErrorMode(), 16);
    });

    // As far as the system's code page contains it.
    const QString umlaut = QString::fromLocal8Bit(QString("ä").toLocal8Bit());
    const QStringList words{"0", "a b", "\"", "say \"x\"", "C:\\dir\\", "C:\\d r\\", "", "%PATH%", "'", umlaut};
    compare("arguments, and output in the OEM code page", execute(self, words), "0 [" + words.mid(1).join("][") + "]");
    compare("an exit code above 255, no output", execute(self, {"70000"}), "70000 ");
    compare("empty input, standard error", execute(self, {"0", "input"}), "0 [input]-1");
    compare("30 kB of output", execute(self, {"3", QString(30000, 'x')}), "3 [" + QString(30000, 'x') + "]");
    compare("the exit code of a crash", execute(self, {"-1073741819"}), "-1073741819 ");
    SetErrorMode(SEM_NOGPFAULTERRORBOX);
    compare("1 is a restart that is needed", execute(self, {"1"}), "0 restart ");
    compare("1 is a failure", execute(self, {"1"}, false), "1 ");
    compare("2 is a failure", execute(self, {"2"}), "2 ");
    // Ended here, since Qt's functions for files change the mode too.
    watching = false;
    pool.waitForDone();
    modes.sort();
    compare("error modes", modes.join(' ') + "; " + QString::number(GetErrorMode(), 16), "0 2 8001 8003; 2");

    // Without the rule for paths, most of these would start, some from any folder or server.
    const QTemporaryDir folder(QDir::tempPath() + "/ä XXXXXX");
    const QString drive = folder.path().left(2);
    const QString program = folder.path().mid(2) + "/cmd.exe";
    QFile::copy(self, drive + program);
    QFile::copy(self, folder.filePath("a.bat"));
    QDir::setCurrent(folder.path());
    for (const QString &refused :
         {QString("libtessark_test.exe"), QString("cmd.exe"), drive + "cmd.exe", program, "//?/" + drive + program,
          "\\\\.\\" + drive + program, folder.filePath("a.bat"), QString(), folder.filePath("none.exe")})
        compare("not to be started: " + refused, execute(refused, {"0"}), "-1 ");
    for (const QString &started : {drive + program, drive.toLower() + QDir::toNativeSeparators(program),
                                   drive + "//no folder/.." + program.toUpper()})
        compare("to be started: " + started, execute(started, {"0"}), "0 ");

    // The cmd.exe in the current folder, a copy of this program, is not the one to run.
    compare("a line as written", executeSync(R"(cmd /c echo "a  b"  c"d e" &exit 5)"), "5 \"a  b\"  c\"d e\" \r\n");
    for (const QString &line : {QString("no-such-tool /x"), "\"" + self + "\" 0", self + " 0", QString()})
        compare("no program of the system folder: " + line, executeSync(line), "-1 ");
    qputenv("KEPT", "on");
    QString environment =
        executeSync("cmd.exe /c cd&echo %PATH% %PATHEXT% %PSModulePath% %NoDefaultCurrentDirectoryInExePath% %KEPT%");
    environment.replace(qEnvironmentVariable("SystemRoot"), "%", Qt::CaseInsensitive);
    compare("search paths of the system, and the rest of the environment", environment.toLower(),
            "0 %\\system32\r\n%\\system32;%;%\\system32\\wbem;%\\system32\\windowspowershell\\v1.0 .com;.exe "
            "%\\system32\\windowspowershell\\v1.0\\modules 1 on\r\n");
    QDir::setCurrent(QDir::rootPath());

    int version[] = {-1, -1};
    const int known = libtessark::utils::winVersion(&version[0], &version[1]);
    compare("version", QString("%1 %2.%3").arg(known).arg(version[0]).arg(version[1]),
            "0 " + QSysInfo::kernelVersion().section('.', 0, 1));
    // The package for each architecture is tested on a system of the same one.
    compare("bitness", libtessark::utils::win64Sys() ? "64" : "32", QString::number(QSysInfo::WordSize));
    compare("log folder", libtessark::getCommonLogDir(""), qgetenv("ProgramData") + "/HalvaneRelayKit/log");
    compare("a folder in it", libtessark::getCommonLogDir("x"), libtessark::getCommonLogDir("") + "/x");

    ZELK::InterfaceMap interfaces;
    for (const char *query : {"first WMI query", "second WMI query", "third WMI query"})
        compare(query, QString::number(ZELK::readInterfacesProgrammatically(interfaces)), "0");
    compare("a tool of 31 seconds", execute(self, {"0", "sleep"}), "0 [sleep]");
    return failures;
}
