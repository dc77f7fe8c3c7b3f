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
        bool hidden;        ///< It is not present: WMI lists it without a name, and devcon leaves it alone.
        bool hasDriver;     ///< Without one, no inventory lists it. A failed installation leaves such a device.
        int listedFromRead; ///< 1 when the next read of the inventory lists it, n when the n-th does.
    };

    /// Reads the file. If it does not exist, the machine is an empty Windows 10 x64 machine. Ends the process with exit
    /// code 2 and a message that names the key or the line when the file is malformed.
    explicit Machine(const QString &path);

    QJsonObject system() const { return m_state["system"].toObject(); }

    /// Returns the value of a fault for this call, and no value for a key that is not a fault. If the fault is a list,
    /// it has a value for each call: this function moves on to the next one. The last one counts for all further calls.
    QJsonValue nextFault(const QString &key);

    /// Reads the inventory through WMI.
    QVector<WmiRow> wmiRows();

    /// Runs devcon, whose file is named `program`. Sets `output` to what it writes and returns its exit code. The file
    /// contains the changes by then.
    int devcon(const QString &program, const QStringList &arguments, QByteArray &output);

    /// Does the same for "powershell", "netsh" and "wmic". `arguments` is the rest of the command line, unparsed.
    int run(const QString &tool, const QString &arguments, QByteArray &output);

private:
    int removeDevices(const QString &operand, QByteArray &output);
    void createDevice();
    void installDriver(Interface &device);
    int find(const QString &name) const; ///< Returns -1 when there is none.
    QVector<Interface> listInterfaces();
    QByteArray inventoryText(const QString &heading, const char *codec);
    void save();

    QString m_path;
    QJsonObject m_state;
    QVector<Interface> m_interfaces;
};
