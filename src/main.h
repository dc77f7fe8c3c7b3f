#pragma once

#include <QFile>
#include <QString>
#include <QTextStream>

/// The run log and the stream that writes to it.
extern QFile logFile;
extern QTextStream logStream;

/// "x64" or "x86": the bitness of the system, whatever that of the program. Known before main() runs.
extern QString ARCH;

/// The message handler that writes each message to the run log as one line and flushes it. Takes what
/// qInstallMessageHandler() asks for and uses the message alone. A failed write is not noticed.
void logHandler(QtMsgType type, const QMessageLogContext &context, const QString &message);
