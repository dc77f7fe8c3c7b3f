/// tessark.dll by itself, with real processes: this program starts itself as the child that answers.
#include "libtessark.h"

#include <QThread>
#include <QVector>

#include <windows.h>

#include <atomic>
#include <cstdio>

using namespace libtessark;

namespace
{

std::atomic_int failures{0};

void verify(bool holds, const char *what)
{
    std::printf("%s: %s\n", holds ? "PASS" : "FAIL", what);
    failures += holds ? 0 : 1;
}

/// Writes each argument behind the first in brackets, and gives the first as exit code.
int child(const QList<QByteArray> &arguments)
{
    for (const QByteArray &argument : arguments.mid(1))
        std::printf("[%s]", argument.constData());
    if (arguments.contains("place")) {
        wchar_t folder[MAX_PATH];
        GetCurrentDirectoryW(MAX_PATH, folder);
        std::printf("%ls", folder);
        for (const char *name : {"PATH", "NoDefaultCurrentDirectoryInExePath", "KEPT"})
            std::printf(" %s", qgetenv(name).constData());
    }
    if (arguments.contains("sleep"))
        Sleep(31000);
    if (arguments.contains("input"))
        std::fprintf(stderr, "%d", std::getchar());
    if (arguments.contains("flood"))
        std::printf("%s", QByteArray(1024 * 1024, 'x').constData());
    if (arguments.contains("crash"))
        TerminateProcess(GetCurrentProcess(), 0xC0000005);
    return arguments[0].toInt();
}

/// A tool may take its time. This one takes it while the rest is tested.
struct Patient : QThread {
    explicit Patient(const QString &program) : m_program(program) {}
    void run() override
    {
        QString output;
        verify(utils::execute(m_program, {"0", "sleep"}, output, true, nullptr) == 0, "a tool of 31 seconds");
    }

private:
    const QString m_program;
};

} // namespace

int main(int argc, char **argv)
{
    QList<QByteArray> arguments;
    for (int i = 1; i < argc; ++i)
        arguments << argv[i];
    if (!arguments.isEmpty())
        return child(arguments);

    wchar_t path[MAX_PATH];
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    const QString self = QString::fromWCharArray(path);
    const QStringList words{"0", "a b", "\"", "say \"x\"", "C:\\dir\\", "C:\\d r\\", "", "%PATH%", "'"};
    QString output = "old";
    QByteArray bytes = "old";
    Patient patient(self);
    patient.start();
    const auto execute = [&](const QStringList &list) { return utils::execute(self, list, output, true, nullptr); };
    verify(execute(words) == 0 && output == "[" + words.mid(1).join("][") + "]", "arguments arrive as they are");
    verify(execute({"70000"}) == 70000 && output.isEmpty(), "an exit code above 255, and no output");
    verify(execute({"0", "input"}) == 0 && output == "[input]-1", "empty input, standard error");
    verify(execute({"3", "flood"}) == 3 && output.size() == 7 + 1024 * 1024, "1 MB of output");
    verify(execute({"0", "crash"}) != 0, "a crash is a failure");
    verify((execute({"0", QString::fromUtf8("ä")}) == 0 && GetACP() == GetOEMCP()) ||
               (output != QString::fromUtf8("[ä]") && output.size() == 3),
           "the output is decoded from the OEM code page, not the ANSI one");
    verify(utils::execute("C:\\no such tool.exe", {}, output, true, nullptr) != 0 && output.isEmpty(),
           "a missing program is a failure");

    bool restart = true;
    verify(execute({"1"}) == 0 && utils::execute(self, {"1"}, output, true, &restart) == 0 && restart,
           "1 is a restart that is needed");
    verify(utils::execute(self, {"1"}, output, false, &restart) == 1 && !restart, "1 is a failure like any other");
    verify(utils::execute(self, {"2"}, output, true, &restart) == 2 && !restart, "2 is a failure");

    const QString line = "cmd /c \"\"" + self + "\" 5  \"a  b\"  c\"d e\"\" ";
    verify(utils::executeSync(line, &bytes, nullptr) == 5 && bytes == "[a  b][cd e]", "a line as written");
    verify(utils::executeSync("cmd /c exit 9 ", &bytes, nullptr) == 9 && bytes.isEmpty(), "cmd, and no output");
    qputenv("KEPT", "on");
    verify(utils::executeSync("cmd.exe /c \"\"" + self + "\" 0 place\"", &bytes, nullptr) == 0 &&
               bytes.toLower().replace(qgetenv("SystemRoot").toLower(), "%") ==
                   "[place]%\\system32 %\\system32;%;%\\system32\\wbem;%\\system32\\windowspowershell\\v1.0 1 on",
           "the system's folders alone, and the rest of the environment");
    for (const QString &name : {QString("no-such-tool /x"), "\"" + self + "\" 0", self + " 0", QString()})
        verify(utils::executeSync(name, &bytes, nullptr) != 0 && bytes.isEmpty(), "no program of the system folder");

    int major = -1;
    int minor = -1;
    verify(utils::winVersion(&major, &minor) == 0 && major >= 6 && minor >= 0, "version");
    // Each kind of the package is tested on a system of its own kind.
    verify(utils::win64Sys() == (sizeof(void *) == 8), "bitness");
    verify(getCommonLogDir("") == getCommonLogDir("") && getCommonLogDir("").endsWith("/HalvaneRelayKit/log") &&
               getCommonLogDir("x") == getCommonLogDir("") + "/x",
           "log folder");
    patient.wait();
    std::printf("%d failed\n", failures.load());
    return failures == 0 ? 0 : 1;
}
