/// tessark.dll by itself, with real processes: this program starts itself as the child that answers.
#include "libtessark.h"

#include <QVector>

#include <windows.h>

#include <cstdio>

using namespace libtessark;

namespace
{

int failures = 0;

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
    if (arguments.contains("input"))
        std::fprintf(stderr, "%d", std::getchar());
    if (arguments.contains("flood"))
        std::printf("%s", QByteArray(1024 * 1024, 'x').constData());
    if (arguments.contains("crash"))
        TerminateProcess(GetCurrentProcess(), 0xC0000005);
    return arguments[0].toInt();
}

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
    const auto execute = [&](const QStringList &list) { return utils::execute(self, list, output, true, nullptr); };
    verify(execute(words) == 0 && output == "[" + words.mid(1).join("][") + "]", "arguments arrive as they are");
    verify(execute({"70000"}) == 70000 && output.isEmpty(), "an exit code above 255, and no output");
    verify(execute({"0", "input"}) == 0 && output == "[input]-1", "empty input, standard error");
    verify(execute({"3", "flood"}) == 3 && output.size() == 7 + 1024 * 1024, "1 MB of output");
    verify(execute({"0", "crash"}) != 0, "a crash is a failure");
    verify(execute({"0", QString::fromUtf8("ä")}) == 0 && output != QString::fromUtf8("[ä]") && output.size() == 3,
           "the output is decoded from the OEM code page, not the ANSI one");
    verify(utils::execute("C:\\no such tool.exe", {}, output, true, nullptr) != 0 && output.isEmpty(),
           "a missing program is a failure");

    const QString line = "\"" + self + "\" 5  \"a  b\"  c\"d e\"";
    verify(utils::executeSync(line, &bytes, nullptr) == 5 && bytes == "[a  b][cd e]", "a line as written");
    verify(utils::executeSync("cmd /c exit 9 ", &bytes, nullptr) == 9 && bytes.isEmpty(), "cmd, and no output");
    verify(utils::executeSync("no-such-tool /x", &bytes, nullptr) != 0, "a missing command is a failure");

    int major = -1;
    int minor = -1;
    verify(utils::winVersion(&major, &minor) == 0 && major >= 6 && minor >= 0, "version");
    verify(utils::win64Sys(), "bitness");
    verify(getCommonLogDir("") == getCommonLogDir("") && getCommonLogDir("").endsWith("/HalvaneRelayKit/log") &&
               getCommonLogDir("x") == getCommonLogDir("") + "/x",
           "log folder");
    std::printf("%d failed\n", failures);
    return failures == 0 ? 0 : 1;
}
