#include "main.h"
#include "tap.h"

#include <QDir>
#include <QLoggingCategory>

#include <libtessark.h>
#include <windows.h>

#define STATEMENT(level) logStatement(level, ".\\main", "main", __LINE__)

// One source file defines all three, so they are constructed in this order.
QFile logFile;
QTextStream logStream;
QString ARCH = libtessark::utils::win64Sys() ? "x64" : "x86";

void logHandler(QtMsgType, const QMessageLogContext &, const QString &message)
{
    logStream << message << Qt::endl;
}

namespace
{

using ZELK::Tap;

const char usage[] = "Usage: Mordwell <command>, where COMMAND is one of:                \r\n"
                     "                                                                   \r\n"
                     "    help                   this help                               \r\n"
                     "    list                   list all tap ids                        \r\n"
                     "    update                 update driver                           \r\n"
                     "    create                 install driver                          \r\n"
                     "    enable                 enable tap device                       \r\n"
                     "    disable                disable tap device                      \r\n"
                     "    check                  check tap device                        \r\n"
                     "                           (+install driver/create if missing)     \r\n"
                     "    remove | removeAll     remove driver and ALL tap devices       \r\n"
                     "    removeInterface        remove SINGLE tap interface             \r\n"
                     "                                                                   \r\n"
                     " If no COMMAND is specified, 'check' is assumed                    \r\n";

int logUsage(Tap &)
{
    // QDebug escapes the line ends of a QString, so the whole text is one line of the log.
    STATEMENT("debug") << QString(usage);
    return 0;
}

int list(Tap &tap)
{
    tap.readInterfaces();
    return 0;
}

// A failure is only logged, whether the interface is missing or could not be removed: this command always succeeds.
int removeInterface(Tap &tap)
{
    if (tap.removeInterface() != 0)
        STATEMENT("debug");
    return 0;
}

struct Command {
    const char *word;
    int (*run)(Tap &tap);
};

const Command commands[] = {
    {"help", logUsage},
    {"list", list},
    {"create", [](Tap &tap) { return tap.create(); }},
    {"enable", [](Tap &tap) { return tap.enable(ZELK::tapName); }},
    {"disable", [](Tap &tap) { return tap.disable(ZELK::tapName); }},
    {"update", [](Tap &tap) { return tap.update(); }},
    {"remove", [](Tap &tap) { return tap.remove(); }},
    {"removeAll", [](Tap &tap) { return tap.remove(); }},
    {"removeInterface", removeInterface},
    {"check", [](Tap &tap) { return tap.check(); }},
};

int run(Tap &tap, const char *word)
{
    for (const Command &command : commands) {
        if (qstrcmp(word, command.word) == 0)
            return command.run(tap);
    }
    return logUsage(tap);
}

bool openLog(Tap &tap)
{
    QDir(QString()).mkpath(tap.logDir());
    logFile.setFileName(tap.logPath());
    if (!logFile.open(QIODevice::WriteOnly | QIODevice::Text))
        return false;
    logStream.setDevice(&logFile);
    // This line goes to Qt's default output, not to the log: it is for whoever looks for the log.
    qDebug().nospace() << "Logging to: " << tap.logPath();
    qInstallMessageHandler(logHandler);
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    // Qt reads logging rules from the environment and from files that any user can create. They must not silence the
    // log.
    QLoggingCategory::defaultCategory()->setEnabled(QtDebugMsg, true);
    Tap tap;
    // Only the source line distinguishes the log lines of the two failures.
    if (!openLog(tap)) {
        STATEMENT("ERROR");
        logFile.close();
        return -1;
    }

    const char *word = argc == 2 ? argv[1] : "check";
    STATEMENT("debug") << "arg: '" << word << "'";
    if (run(tap, word) != 0) {
        STATEMENT("ERROR");
        logFile.close();
        return -1;
    }
    Sleep(1000);
    logFile.close();
    return 0;
}
