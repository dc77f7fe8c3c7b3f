#pragma once

#include <QMap>
#include <QString>

namespace ZELK
{

/// The name of the one interface that is kept in the wanted state.
inline const QString tapName = QStringLiteral("HalvaneRelayKit");

/// TAP interfaces by name; the value is the PNP device id.
using InterfaceMap = QMap<QString, QString>;

/// Adds the TAP interfaces that WMI lists to `interfaces`. One whose name or id is no string, such as the NULL name
/// of a hidden adapter, is left out.
/// Gives 0 when the query ran, also when it found nothing; 1 when it failed, and `interfaces` is untouched.
int readInterfacesProgrammatically(InterfaceMap &interfaces);

/// The operations on the TAP driver and its interfaces. Where nothing else is said, an operation gives 0 on
/// success and -1 on failure, logs what it did, and undoes nothing when it fails.
class Tap
{
public:
    /// The folder of the run log, and the file itself.
    QString logDir();
    QString logPath();

    /// The TAP interfaces that the machine has now, from WMI or else from wmic or powershell. An empty map
    /// stands for no interface and for an inventory that could not be read; only the log tells them apart.
    InterfaceMap readInterfaces();

    /// Installs the driver with one new interface; updates the driver of all TAP interfaces; removes the
    /// driver with all of them.
    int create();
    int update();
    int remove();

    /// Removes the interface named tapName; fails when there is none.
    int removeInterface();

    /// Enables, disables or renames the interface of the given name, by powershell or else by netsh. The
    /// name goes into their command lines as it is.
    int enable(QString name);
    int disable(QString name);
    int rename(QString from, QString to);

    /// Takes the machine to the wanted state: driver updated, names as they were before the update, an
    /// interface named tapName there and disabled. A failed update, final rename or disable is only logged.
    int check();

    /// The device console tool for the system's bitness. Whether it exists is not tested, nor with pathDriver().
    QString pathDevcon();

    /// The driver's INF file for the system's version and bitness; an empty string when the system does not
    /// tell its version.
    QString pathDriver();

private:
    /// Gives every interface that bore another name in `oldInterfaces` this name back; stops at the first
    /// rename that fails.
    int restoreNames(const InterfaceMap &oldInterfaces, const InterfaceMap &newInterfaces);

    /// Creates an interface, waits until the inventory shows the same one twice that `oldInterfaces` does
    /// not hold, and names it tapName. Fails when it cannot be created, or when none or more than one shows up.
    int addInterface(const InterfaceMap &oldInterfaces);
};

} // namespace ZELK
