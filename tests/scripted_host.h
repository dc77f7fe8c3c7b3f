/// The fake host of the unit tests. It implements libtessark's functions and Sleep(), and answers as a script says.
#pragma once

#include "wmi.h"

#include <QTemporaryDir>

/// What a call returns: a tool's exit code and output, or the result of another call. If the output is null, a command
/// that is redirected creates no file. ExecQuery() also finds rows.
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

/// Keeps a journal of the calls that the program makes and of the lines that it logs, in their order. Each host has its
/// own temporary folder, which is the current folder and contains the log. There is one host at a time.
struct ScriptedHost : WmiHost {
    explicit ScriptedHost(const Step &expected);
    ~ScriptedHost() override;

    /// Runs main() with these words on the command line. The journal ends with the exit code and with what should not
    /// have been left behind.
    void run(QList<QByteArray> words);

    /// Describes the first difference between the script and the journal, with three lines of context. Returns an
    /// empty text if there is none.
    QByteArray difference() const;

    /// Adds a call to the journal, after the lines that the log file contains by now. Returns the script's answer, or
    /// success without output if the script has another line there.
    Answer answer(const QString &call);

    HRESULT comCall(const QString &name, const QString &args) override
    {
        return answer(name + '(' + args + ')').result;
    }
    QVector<WmiRow> wmiRows() override { return last.rows; }

    const Step script;
    QStringList journal;
    Answer last;
    qint64 logSize = 0; ///< How much of the log is in the journal.
    const QTemporaryDir folder;
};
