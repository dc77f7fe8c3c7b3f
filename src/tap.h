#pragma once

#include <QMap>
#include <QString>

namespace ZELK
{

/// The name of the one interface that the program keeps in a known state.
inline const QString tapName = QStringLiteral("HalvaneRelayKit");

/// TAP interfaces by name; the value is the PNP device id.
using InterfaceMap = QMap<QString, QString>;

/// Adds the TAP interfaces that WMI lists to `interfaces`, except those whose name or id is not a string, such as the
/// NULL name of a hidden adapter. Returns 0 when the query ran, even if it found nothing. Returns 1 when it failed;
/// `interfaces` is then unchanged.
int readInterfacesProgrammatically(InterfaceMap &interfaces);

/// The operations on the TAP driver and its interfaces. Unless stated otherwise, an operation returns 0 on success and
/// -1 on failure, logs what it did, and undoes nothing when it fails.
class Tap
{
public:
    /// Return the folder of the run log, and the path of its file.
    QString logDir();
    QString logPath();

    /// Returns the TAP interfaces that the machine has now, from WMI or, if that fails, from wmic or powershell. The
    /// map is empty both when there is no interface and when the inventory could not be read; only the log shows which.
    InterfaceMap readInterfaces();

    /// Install the driver with one new interface; update the driver of all TAP interfaces; remove all TAP interfaces,
    /// while the driver package stays in the system's driver store.
    int create();
    int update();
    int remove();

    /// Removes the interface named tapName. Fails when there is none.
    int removeInterface();

    /// Enable, disable or rename the interface named `name` or `from`, with powershell or, if that fails, with netsh.
    /// The names go into the command lines unchanged.
    int enable(QString name);
    int disable(QString name);
    int rename(QString from, QString to);

    /// Brings the machine to the wanted state: the driver is updated, the interfaces have the names from before the
    /// update, and an interface named tapName exists and is disabled. A failed update, final rename or disable is only
    /// logged.
    int check();

    /// Returns the path of devcon for the system's architecture. The file may not exist.
    QString pathDevcon();

    /// Returns the path of the driver's INF file for the system's version and architecture. The file may not exist.
    /// Returns an empty string when the system does not report its version.
    QString pathDriver();

private:
    /// Restores the name that each interface had in `oldInterfaces`. Stops at the first rename that fails.
    int restoreNames(const InterfaceMap &oldInterfaces, const InterfaceMap &newInterfaces);

    /// Creates an interface, polls the inventory until two successive new ids are the same, and renames that interface
    /// to tapName. An id is new if `oldInterfaces` does not contain it. Fails when the interface cannot be created,
    /// when a poll finds more names than `oldInterfaces` has but not exactly one new id, or when no two successive new
    /// ids are the same by the tenth poll. A failed rename is only logged.
    int addInterface(const InterfaceMap &oldInterfaces);
};

} // namespace ZELK
