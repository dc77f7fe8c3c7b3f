#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QVector>

#include "wmi.h"

/// Ends the process with exit code 2 and the message.
[[noreturn]] void stop(const QString &message);

/// A simulated Windows machine as far as the program uses one, kept in a JSON file: its system, its TAP interfaces,
/// and the faults that it has to show. The native program and the fakes under Wine share it. README.md in this folder
/// describes the keys of the file.
class Machine
{
public:
    struct Interface {
        QString name;
        QString id;
        bool enabled;
        bool hidden;        ///< WMI lists it without a name, and no tool finds it.
        int listedFromRead; ///< 1 when the next read of the inventory lists it, n when the n-th does.
    };

    /// Reads the file, and creates it when it does not exist: an empty Windows 10 x64 machine. Ends the process with
    /// exit code 2 and a message that names the key or the line when the file is malformed.
    explicit Machine(const QString &path);

    QJsonObject system() const { return m_state["system"].toObject(); }
    QJsonObject faults() const { return m_state["faults"].toObject(); }

    /// Returns the HRESULT with which a step of the WMI query has to fail now, or 0.
    HRESULT wmiFault(const QString &step) const;

    /// Reads the inventory through WMI.
    QVector<WmiRow> wmiRows();

    /// Runs devcon. Sets `output` to what it writes and returns its exit code. The file contains the changes by then.
    int devcon(const QStringList &arguments, QByteArray &output);

    /// Does the same for "powershell", "netsh" and "wmic". `arguments` is the rest of the command line, unparsed.
    int run(const QString &tool, const QString &arguments, QByteArray &output);

private:
    int fault(const QString &tool) const { return faults()["tools"].toObject()[tool].toInt(); }
    int find(const QString &name) const; ///< Returns -1 when there is none.
    void createInterface();
    QVector<Interface> listInterfaces();
    QByteArray inventoryText(const QString &heading, const char *codec);
    void save();

    QString m_path;
    QJsonObject m_state;
    QVector<Interface> m_interfaces;
};
