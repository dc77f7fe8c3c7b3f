#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QVector>

#include "wmi.h"

/// A simulated Windows machine as far as the program touches it, kept in a JSON file: what it is, its TAP
/// interfaces, and the faults that it is ordered to show. It knows the commands that the program issues and
/// answers any other with a failure and a message. The README
/// beside this file tells its keys.
class Machine
{
public:
    struct Interface {
        QString name;
        QString id;
        bool enabled;
        int listedFromRead; ///< 1 when it is listed; more when reads of the inventory have yet to miss it.
    };

    /// Reads the file; one that is not there stands for an empty Windows 10 x64 machine. Ends the process with
    /// 2 and a message that names the place when the file is malformed.
    explicit Machine(const QString &path);

    QJsonObject system() const { return m_state["system"].toObject(); }
    QJsonObject faults() const { return m_state["faults"].toObject(); }

    /// The HRESULT with which a step of the WMI query is to fail now; 0 when it is not.
    HRESULT wmiFault(const QString &step) const;

    /// Reads the inventory by WMI.
    QVector<WmiRow> wmiRows();

    /// Runs the device console tool: replaces `output` by what it writes and gives its exit code. A change is
    /// in the file by then.
    int devcon(const QStringList &arguments, QByteArray &output);

    /// The same for "powershell", "netsh" and "wmic", which take the rest of their command line as it stands.
    int run(const QString &tool, const QString &arguments, QByteArray &output);

private:
    int fault(const QString &tool) const { return faults()["tools"].toObject()[tool].toInt(); }
    int find(const QString &name) const;
    void createInterface();
    int changeAdapter(const QString &name, const QString &state, const QString &newName, QByteArray &output);
    QVector<Interface> listInterfaces();
    QString inventoryText(const QString &heading);
    void save();

    QString m_path;
    QJsonObject m_state;
    QVector<Interface> m_interfaces;
};
