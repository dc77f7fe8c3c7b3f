/// The fake host of the unit tests. It implements libtessark's functions and Sleep(), and answers as a script says.
#pragma once

#include "wmi.h"

#include <QMetaType>

#include <functional>

/// What a call returns: a tool's exit code and output, or the result of another call. For ExecQuery(), it also has the
/// rows that the query finds.
struct Answer {
    HRESULT result = 0;
    QString output = {};
    QVector<WmiRow> rows = {};
};

/// An expected line of the journal. A call has an answer.
struct Line {
    QString text;
    Answer answer = {};
};
Q_DECLARE_METATYPE(Line)

/// A part of a script, or all of it. Steps add up with `+` and repeat with `10 * step`.
using Step = QVector<Line>;
Step operator*(int count, const Step &step);

/// Performs the test in an empty temporary folder. The fake host keeps a journal of the calls that the program makes
/// and of the lines that it logs, in their order. Fails the running test if the journal differs from the script, and
/// prints the first differences as `diff -u` does.
void verifyScript(const Step &script, const std::function<void()> &test);

/// Runs main() with these words on the command line. Call it only inside the `test` that verifyScript() performs. The
/// journal ends with the exit code and with what should not have been left behind.
void runMain(QList<QByteArray> words);
