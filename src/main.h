#pragma once

#include <QDateTime>
#include <QDebug>
#include <QFile>
#include <QString>
#include <QTextStream>
#include <QThread>

/// The run log and the stream that writes to it.
extern QFile logFile;
extern QTextStream logStream;

/// "x64" or "x86": the architecture of the system, even when the program's own is another. Known before main() runs.
extern QString ARCH;

/// The message handler that writes each message to the run log as one line and flushes it. It has the parameters that
/// qInstallMessageHandler() asks for and uses only the message. It does not notice a failed write.
void logHandler(QtMsgType type, const QMessageLogContext &context, const QString &message);

/// Begins a line of the run log. Returns a stream in nospace() mode that already contains the line's prefix.
/// Stream the message into it; the line is written when the stream is destroyed, at the end of the full expression.
/// `level` is the level word, `file` the source file as ".\\name", `function` the function's qualified name and `line`
/// the source line. The function is a literal and not the compiler's name for it, since helpers log under the name of
/// the operation that they are part of. Cannot fail.
inline QDebug logStatement(const char *level, const char *file, const char *function, int line)
{
    QDebug stream = qDebug();
    stream.nospace() << QDateTime::currentDateTime().toString().toLocal8Bit().constData() << " ["
                     << static_cast<const void *>(QThread::currentThreadId()) << "] [" << level
                     << "] [Halvane Relay Kit:" << file << ":" << function << "():" << line << "] ";
    return stream;
}
