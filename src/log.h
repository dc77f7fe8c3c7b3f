#pragma once

#include <QDateTime>
#include <QDebug>
#include <QThread>

/// Begins a statement of the run log: gives a stream in nospace() mode that holds the line's prefix already.
/// What is streamed into it is the message; the line goes out when the stream is destroyed, at the end of
/// the full expression. Takes the level word, the source file as ".\\name", the qualified name of the
/// function and the source line; it cannot fail.
inline QDebug logStatement(const char *level, const char *file, const char *function, int line)
{
    QDebug stream = qDebug();
    stream.nospace() << QDateTime::currentDateTime().toString().toLocal8Bit().constData() << " ["
                     << static_cast<const void *>(QThread::currentThreadId()) << "] [" << level
                     << "] [Halvane Relay Kit:" << file << ":" << function << "():" << line << "] ";
    return stream;
}
