#include "tap.h"
#include "main.h"

#include <QFile>
#include <QRegExp>
#include <QScopeGuard>
#include <QSet>
#include <QStringList>
#include <QTemporaryFile>
#include <QTextCodec>

#include <windows.h>

#include <comdef.h>
#include <libtessark.h>
#include <wbemidl.h>

#define STATEMENT(level, function) logStatement(level, ".\\tap", function, __LINE__)

namespace
{

using ZELK::InterfaceMap;

const char wmicTool[] = R"(C:\Windows\System32\wbem\WMIC.exe)";

// %1 is the scratch file.
const char wmicInventory[] =
    R"(cmd /c wmic nic where Description='TAP-Windows Adapter V9' get NetConnectionID, PNPDeviceID > "%1")";
const char powershellInventory[] =
    R"(cmd /c powershell -NonInteractive -Command "& { Get-WmiObject -Class Win32_NetworkAdapter )"
    R"(-Filter """Description='TAP-Windows Adapter V9'""" | Format-Table  -HideTableHeaders )"
    R"(-Property  'NetConnectionID', 'PNPDeviceID' } "> "%1" )";

// HRESULT is a long. Where long has 64 bits, a failing code can be positive, so only its lower 32 bits count.
long errorCode(HRESULT result)
{
    return static_cast<qint32>(result);
}

/// Owns a COM pointer, null at first, and releases it. The smart pointers of the SDK do more than that: they need ATL
/// or WRL, or throw exceptions as _com_ptr_t does.
template <typename T>
struct ComPointer {
    ComPointer() = default;
    Q_DISABLE_COPY(ComPointer)
    ~ComPointer()
    {
        if (pointer)
            pointer->Release();
    }
    T *operator->() const { return pointer; }

    T *pointer = nullptr;
};

/// Returns whether a step of the WMI query failed. If so, logs `text` and the code.
bool logIfFailed(HRESULT result, const char *text)
{
    const long code = errorCode(result);
    if (code >= 0)
        return false;
    STATEMENT("ERROR", "ZELK::readInterfacesProgrammatically") << text << code;
    return true;
}

/// Reads one property of a row into `text` by means of `value`, logs it after `label` and clears `value`. Returns
/// whether the property is a string. If it is not, as with the NULL name of a hidden adapter, `text` is empty.
bool readProperty(IWbemClassObject *row, const wchar_t *property, VARIANT *value, const char *label, QString *text)
{
    const HRESULT result = row->Get(property, 0, value, nullptr, nullptr);
    const auto owner = qScopeGuard([value] { VariantClear(value); });
    const bool isString = errorCode(result) >= 0 && value->vt == VT_BSTR;
    *text = isString ? QString::fromWCharArray(value->bstrVal, -1) : QString();
    STATEMENT("LOG", "ZELK::readInterfacesProgrammatically") << label << *text;
    return isString;
}

/// Returns the name of a temporary file that does not exist any more.
QString makeScratchName()
{
    QTemporaryFile file;
    file.open();
    return file.fileName();
}

/// Reads the rows after the heading: the last field is the id, the fields before it are the words of the name. The
/// first line counts as the heading whichever tool wrote it, although powershell is asked to write none.
void parseInventory(const QString &text, InterfaceMap &interfaces)
{
    const QStringList lines = text.trimmed().split(QChar('\n'), Qt::SkipEmptyParts);
    STATEMENT("debug", "ZELK::Tap::readInterfaces") << "Reading interfaces";
    for (int i = 1; i < lines.size(); ++i) {
        QStringList fields = lines[i].split(QRegExp("\\s+"), Qt::SkipEmptyParts);
        if (fields.size() < 2)
            continue;
        const QString id = fields.takeLast();
        const QString name = fields.join(" ");
        STATEMENT("debug", "ZELK::Tap::readInterfaces") << "Found device name: " << name << ", id: " << id;
        interfaces[name] = id;
    }
}

/// Runs devcon and logs what it wrote. The caller logs the trace line, which comes first: building the arguments can
/// log too.
int runDevcon(const char *function, ZELK::Tap &tap, const QStringList &arguments)
{
    QString output;
    if (libtessark::utils::execute(tap.pathDevcon(), arguments, output, true, nullptr) != 0) {
        STATEMENT("ERROR", function);
        return -1;
    }
    STATEMENT("debug", function) << output;
    return 0;
}

/// Runs the powershell command line and, if it fails, the netsh command line.
int runAdapterCommand(const char *function, const QString &powershell, const char *fallback, const QString &netsh)
{
    STATEMENT("trace", function);
    QByteArray output;
    if (libtessark::utils::executeSync(powershell, &output, nullptr) != 0) {
        STATEMENT("ERROR", function) << fallback;
        if (libtessark::utils::executeSync(netsh, &output, nullptr) != 0) {
            STATEMENT("ERROR", function);
            return -1;
        }
    }
    STATEMENT("debug", function) << output;
    return 0;
}

QString packageFolder()
{
    // Inside a path, Windows treats two slashes as one.
    return QString::fromUtf8(qgetenv("ProgramFiles") + "//HalvaneRelayKit");
}

QSet<QString> ids(const InterfaceMap &interfaces)
{
    return QSet<QString>(interfaces.begin(), interfaces.end());
}

} // namespace

int ZELK::readInterfacesProgrammatically(InterfaceMap &interfaces)
{
    HRESULT result = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    if (logIfFailed(result, "Failed to initialize COM library. Error code "))
        return 1;

    // Destruction releases in reverse order: services, locator, enumerator, and the apartment last.
    const auto apartment = qScopeGuard([] { CoUninitialize(); });
    ComPointer<IEnumWbemClassObject> enumerator;
    ComPointer<IWbemLocator> locator;
    ComPointer<IWbemServices> services;

    // This fails with RPC_E_TOO_LATE as long as anything else in the process holds COM, such as a DLL that a security
    // product injects. That is a failure like any other: the caller falls back to the commands.
    result = CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT, RPC_C_IMP_LEVEL_IMPERSONATE,
                                  nullptr, EOAC_NONE, nullptr);
    if (logIfFailed(result, "Failed to initialize security. Error code = "))
        return 1;

    result = CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                              reinterpret_cast<LPVOID *>(&locator.pointer));
    if (logIfFailed(result, "Failed to create IWbemLocator object. Error code = "))
        return 1;

    result = locator->ConnectServer(_bstr_t(L"ROOT\\CIMV2"), nullptr, nullptr, nullptr, 0, nullptr, nullptr,
                                    &services.pointer);
    if (logIfFailed(result, "Could not connect. Error code = "))
        return 1;

    result = CoSetProxyBlanket(services.pointer, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                               RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
    if (logIfFailed(result, "Could not set proxy blanket. Error code = "))
        return 1;

    result = services->ExecQuery(_bstr_t(L"WQL"),
                                 _bstr_t(L"SELECT NetConnectionID, PNPDeviceID FROM Win32_NetworkAdapter "
                                         L"WHERE Description = 'TAP-Windows Adapter V9'"),
                                 WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY, nullptr, &enumerator.pointer);
    if (logIfFailed(result, "Query for operating system name failed. Error code = "))
        return 1;

    VARIANT value{};
    for (;;) {
        ComPointer<IWbemClassObject> row;
        ULONG returned = 0;
        enumerator->Next(static_cast<long>(WBEM_INFINITE), 1, &row.pointer, &returned);
        if (returned == 0)
            return 0;

        QString name;
        QString id;
        const bool hasName = readProperty(row.pointer, L"NetConnectionID", &value, "NetConnectionID : ", &name);
        const bool hasId = readProperty(row.pointer, L"PNPDeviceID", &value, "PNPDeviceID : ", &id);
        if (hasName && hasId)
            interfaces[name] = id;
    }
}

QString ZELK::Tap::logDir()
{
    return libtessark::getCommonLogDir("");
}

QString ZELK::Tap::logPath()
{
    return logDir() + "/tap-log.txt";
}

ZELK::InterfaceMap ZELK::Tap::readInterfaces()
{
    STATEMENT("trace", "ZELK::Tap::readInterfaces");
    InterfaceMap interfaces;
    if (readInterfacesProgrammatically(interfaces) == 0)
        return interfaces;

    STATEMENT("ERROR", "ZELK::Tap::readInterfaces") << "Failed to read interfaces programmatically";
    const QString scratchName = makeScratchName();
    QString first = QString(wmicInventory).arg(scratchName);
    QString second = QString(powershellInventory).arg(scratchName);
    if (!QFile::exists(wmicTool))
        first.swap(second);

    QByteArray output;
    if (libtessark::utils::executeSync(first, &output, nullptr) != 0 &&
        libtessark::utils::executeSync(second, &output, nullptr) != 0) {
        STATEMENT("ERROR", "ZELK::Tap::readInterfaces");
        return interfaces;
    }

    // Qt would log warnings about a file that does not exist, has no name because there is no temporary folder, or is
    // read although it did not open.
    QFile scratch(scratchName);
    output.clear();
    if (scratch.exists()) {
        if (scratch.open(QIODevice::ReadOnly))
            output = scratch.readAll();
        scratch.close();
        scratch.remove();
    }

    // When redirected, wmic writes UTF-16LE. The output of powershell is decoded in the same way.
    parseInventory(QTextCodec::codecForName("UTF-16LE")->toUnicode(output), interfaces);
    return interfaces;
}

int ZELK::Tap::create()
{
    STATEMENT("trace", "ZELK::Tap::create");
    return runDevcon("ZELK::Tap::create", *this, {"install", pathDriver(), "tap0901"});
}

int ZELK::Tap::update()
{
    STATEMENT("trace", "ZELK::Tap::update");
    return runDevcon("ZELK::Tap::update", *this, {"update", pathDriver(), "tap0901"});
}

int ZELK::Tap::remove()
{
    STATEMENT("trace", "ZELK::Tap::remove");
    return runDevcon("ZELK::Tap::remove", *this, {"remove", "tap0901"});
}

int ZELK::Tap::removeInterface()
{
    const InterfaceMap interfaces = readInterfaces();
    if (!interfaces.contains(tapName)) {
        STATEMENT("ERROR", "ZELK::Tap::removeInterface");
        return -1;
    }
    const QStringList arguments{"remove", "@" + interfaces[tapName]};
    QString output;
    if (libtessark::utils::execute(pathDevcon(), arguments, output, true, nullptr) != 0) {
        STATEMENT("ERROR", "ZELK::Tap::removeInterface");
        return -1;
    }
    return 0;
}

int ZELK::Tap::enable(QString name)
{
    return runAdapterCommand(
        "ZELK::Tap::enable",
        QString(R"(cmd /c powershell -NonInteractive -Command  "Enable-NetAdapter -Name '%1' -Confirm:$False ")")
            .arg(name),
        "Failed to enable interface using powershell, trying netsh...",
        QString("netsh.exe interface set interface name='%1' admin=ENABLED").arg(name));
}

int ZELK::Tap::disable(QString name)
{
    return runAdapterCommand(
        "ZELK::Tap::disable",
        QString(R"(cmd /c powershell -NonInteractive -Command  "Disable-NetAdapter -Name '%1' -Confirm:$False ")")
            .arg(name),
        "Failed to disable interface using powershell, trying netsh...",
        QString("netsh.exe interface set interface name='%1' admin=DISABLED").arg(name));
}

// One arg() call inserts both names: the second of two calls would replace a "%2" in the first name.
int ZELK::Tap::rename(QString from, QString to)
{
    return runAdapterCommand(
        "ZELK::Tap::rename",
        QString(R"(cmd /c powershell -NonInteractive -Command  "Rename-NetAdapter -Name '%1' -NewName '%2' ")")
            .arg(from, to),
        "Failed to rename using powershell, trying netsh...",
        QString("netsh.exe interface set interface name='%1' newname='%2'").arg(from, to));
}

int ZELK::Tap::check()
{
    STATEMENT("trace", "ZELK::Tap::check");
    InterfaceMap oldInterfaces = readInterfaces();
    InterfaceMap newInterfaces;
    if (oldInterfaces.isEmpty()) {
        STATEMENT("debug", "ZELK::Tap::check") << "No tap interfaces/drivers detected";
    } else {
        if (update() != 0) {
            Sleep(1000);
            if (update() != 0) {
                STATEMENT("ERROR", "ZELK::Tap::check")
                    << "Failed to update tap driver, probably a newer version is already installed. "
                       "Continuing...";
            }
        }
        newInterfaces = readInterfaces();
        if (restoreNames(oldInterfaces, newInterfaces) != 0)
            return -1;
    }

    if (oldInterfaces.contains(tapName)) {
        STATEMENT("debug", "ZELK::Tap::check") << "Tap interface already present";
    } else {
        // Its names are those that the update left, but addInterface() uses only the ids and the number of names.
        oldInterfaces = newInterfaces;
        if (addInterface(oldInterfaces) != 0)
            return -1;
    }
    disable(tapName);
    return 0;
}

int ZELK::Tap::restoreNames(const InterfaceMap &oldInterfaces, const InterfaceMap &newInterfaces)
{
    for (auto newEntry = newInterfaces.begin(); newEntry != newInterfaces.end(); ++newEntry) {
        for (auto oldEntry = oldInterfaces.begin(); oldEntry != oldInterfaces.end(); ++oldEntry) {
            if (oldEntry.value() != newEntry.value() || oldEntry.key() == newEntry.key())
                continue;
            STATEMENT("debug", "ZELK::Tap::check")
                << "Rename required! Old key: " << oldEntry.key() << " old val: " << oldEntry.value()
                << " new key: " << newEntry.key() << " new val: " << newEntry.value();
            if (rename(newEntry.key(), oldEntry.key()) != 0) {
                STATEMENT("ERROR", "ZELK::Tap::check");
                return -1;
            }
            break;
        }
    }
    return 0;
}

int ZELK::Tap::addInterface(const InterfaceMap &oldInterfaces)
{
    if (create() != 0) {
        STATEMENT("ERROR", "ZELK::Tap::check");
        return -1;
    }

    const int oldCount = oldInterfaces.size();
    QString prevId;
    for (int pollCount = 0; pollCount < 10; ++pollCount) {
        const InterfaceMap newInterfaces = readInterfaces();
        const int newCount = newInterfaces.size();
        STATEMENT("debug", "ZELK::Tap::check")
            << "old count: " << QString::number(oldCount) << ", new count: " << QString::number(newCount);
        if (newCount > oldCount) {
            const QSet<QString> newIds = ids(newInterfaces) - ids(oldInterfaces);
            STATEMENT("debug", "ZELK::Tap::check") << "new ids: " << newIds;
            if (newIds.size() != 1) {
                STATEMENT("ERROR", "ZELK::Tap::check");
                return -1;
            }
            const QString newId = *newIds.begin();
            if (!prevId.isEmpty() && newId == prevId) {
                if (rename(newInterfaces.key(newId), tapName) != 0)
                    STATEMENT("debug", "ZELK::Tap::check");
                return 0;
            }
            prevId = newId;
        }
        Sleep(1000);
    }
    STATEMENT("ERROR", "ZELK::Tap::check");
    return -1;
}

QString ZELK::Tap::pathDevcon()
{
    return packageFolder() + "/bin/devcon-" + ARCH + ".exe";
}

QString ZELK::Tap::pathDriver()
{
    int major = -1;
    int minor = -1;
    if (libtessark::utils::winVersion(&major, &minor) != 0) {
        STATEMENT("ERROR", "ZELK::Tap::pathDriver");
        return QString();
    }
    STATEMENT("debug", "ZELK::Tap::pathDriver") << "Detected OS version " << major << "." << minor;
    const QString file = major >= 10  ? "/driver/win10/" + ARCH + "/OemVista.inf"
                         : major >= 6 ? "/driver/vista/" + ARCH + "/OemVista.inf"
                                      : "/driver/win2k/" + ARCH + "/OemWin2k.inf";
    return packageFolder() + file;
}
