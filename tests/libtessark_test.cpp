/// Tests tessark.dll with real processes. The child process is this program again or, because the PATH of executeSync()
/// does not contain Qt, cmd with its built-in commands.
#include "libtessark.h"

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>
#include <QThreadPool>

#include <windows.h>

#include <atomic>
#include <cstdio>

namespace
{

int failures = 0;

void compare(const QString &what, const QString &actual, const QString &expected)
{
    if (actual == expected)
        return;
    std::printf("FAIL: %s\n    actual:   %.300s\n    expected: %.300s\n", qPrintable(what), qPrintable(actual),
                qPrintable(expected));
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
    return arguments.value(0, "99").toInt();
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

/// `self` is this program, and `folder` contains a copy of it under the name cmd.exe.
void testExecute(const QString &self, const QString &folder)
{
    // As far as the system's code page contains it.
    const QString umlaut = QString::fromLocal8Bit(QString("ä").toLocal8Bit());
    const QStringList words{"0", "a b", "\"", "say \"x\"", "C:\\dir\\", "C:\\d r\\", "", "%PATH%", "'", umlaut};
    compare("arguments, and output in the OEM code page", execute(self, words), "0 [" + words.mid(1).join("][") + "]");
    compare("an exit code above 255, no output", execute(self, {"70000"}), "70000 ");
    compare("empty input, standard error", execute(self, {"0", "input"}), "0 [input]-1");
    compare("30 kB of output", execute(self, {"3", QString(30000, 'x')}), "3 [" + QString(30000, 'x') + "]");
    compare("the exit code of a crash", execute(self, {"-1073741819"}), "-1073741819 ");
    compare("1 means that a restart is needed", execute(self, {"1"}), "0 restart ");
    compare("1 is a failure", execute(self, {"1"}, false), "1 ");
    compare("a tool that runs longer than Qt waits by default", execute(self, {"0", "sleep"}), "0 [sleep]");

    // Without the rule for paths, most of the refused programs would start, some from any folder or server.
    const QString drive = folder.left(2);
    const QString program = folder.mid(2) + "/cmd.exe";
    QFile::copy(self, folder + "/a.bat");
    for (const QString &refused :
         {QString("libtessark_test.exe"), QString("cmd.exe"), drive + "cmd.exe", program, "//?/" + drive + program,
          "\\\\.\\" + drive + program, folder + "/a.bat", QString(), folder + "/none.exe"})
        compare("execute() does not start " + refused, execute(refused, {"0"}), "-1 ");
    for (const QString &started : {drive + program, drive.toLower() + QDir::toNativeSeparators(program),
                                   drive + "//no folder/.." + program.toUpper()})
        compare("execute() starts " + started, execute(started, {"0"}), "0 ");
}

/// A child inherits the error mode from its start, but not under Wine. So a thread watches the mode of this process.
void testErrorMode(const QString &self)
{
    const UINT before = SEM_NOGPFAULTERRORBOX;
    SetErrorMode(before);
    std::atomic_bool watching{true};
    std::atomic<UINT> changed{0};
    QThreadPool pool;
    pool.start([&] {
        while (watching)
            changed |= GetErrorMode() ^ before;
    });
    // On a busy machine, the thread can miss a start.
    for (int starts = 0; starts < 5 && changed == 0; ++starts)
        execute(self, {"0"});
    watching = false;
    pool.waitForDone();
    compare("flags that change during a start", QString::number(changed, 16),
            QString::number(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, 16));
    compare("error mode after a start", QString::number(GetErrorMode(), 16), QString::number(before, 16));
}

void testExecuteSync(const QString &self)
{
    compare("a line as written", executeSync(R"(cmd /c echo "a  b"  c"d e" &exit 5)"), "5 \"a  b\"  c\"d e\" \r\n");
    for (const QString &line : {QString("no-such-tool /x"), "\"" + self + "\" 0", self + " 0", QString()})
        compare("executeSync() does not start " + line, executeSync(line), "-1 ");

    const QString windows = qEnvironmentVariable("SystemRoot").toLower();
    const QString system = windows + "\\system32";
    const QString powershell = system + "\\windowspowershell\\v1.0";
    // What a user can set. Nothing that needs the first three may follow.
    for (const char *name : {"SystemRoot", "windir", "ComSpec", "CORK", "X_COR_X", "COR_X", "CoreCLR_X", "COMPlus_X",
                             "dotnet_x", "AppDomain_Manager_X"})
        qputenv(name, "own");
    const QStringList lines = executeSync("cmd.exe /c cd&set").toLower().split("\r\n");
    compare("current folder", lines[0], "0 " + system);
    for (const QString &expected :
         {"path=" + system + ';' + windows + ';' + system + "\\wbem;" + powershell, QString("pathext=.com;.exe"),
          "psmodulepath=" + powershell + "\\modules", QString("nodefaultcurrentdirectoryinexepath=1"),
          "systemroot=" + windows, "windir=" + windows, "comspec=" + system + "\\cmd.exe", QString("cork=own")})
        compare("environment", lines.filter(QRegExp('^' + expected.section('=', 0, 0) + '=')).join(' '), expected);
    compare("variables of .NET", lines.filter("_x=").join(' '), "x_cor_x=own");
}

void testSystem()
{
    int version[] = {-1, -1};
    const int known = libtessark::utils::winVersion(&version[0], &version[1]);
    compare("version", QString("%1 %2.%3").arg(known).arg(version[0]).arg(version[1]),
            "0 " + QSysInfo::kernelVersion().section('.', 0, 1));
    // The package for each architecture is tested on a system of the same one.
    compare("bitness", libtessark::utils::win64Sys() ? "64" : "32", QString::number(QSysInfo::WordSize));
    // The folder is Windows' own, whatever a user sets.
    const QByteArray programData = qgetenv("ProgramData");
    qputenv("ProgramData", "own");
    compare("log folder", libtessark::getCommonLogDir(""), programData + "/HalvaneRelayKit/log");
    compare("a folder in it", libtessark::getCommonLogDir("x"), libtessark::getCommonLogDir("") + "/x");
}

} // namespace

int main(int argc, char **argv)
{
    // A child that has lost its arguments must not start this test again.
    if (argc > 1 || !qEnvironmentVariableIsEmpty("IS_CHILD"))
        return child(QList<QByteArray>(argv + 1, argv + argc));
    qputenv("IS_CHILD", "1");
    const QString self = QCoreApplication(argc, argv).applicationFilePath();
    // The cmd.exe in the current folder, a copy of this program, is not the one to run by name.
    const QTemporaryDir folder(QDir::tempPath() + "/ä XXXXXX");
    QFile::copy(self, folder.filePath("cmd.exe"));
    QDir::setCurrent(folder.path());
    testErrorMode(self);
    testExecute(self, folder.path());
    testSystem();
    testExecuteSync(self);
    QDir::setCurrent(QDir::rootPath());
    return failures;
}
