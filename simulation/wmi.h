#pragma once

#include <QMap>
#include <QStringList>
#include <QVector>

#include <initializer_list>

#include "sdk/wbemidl.h"

/// A property of a row of the WMI query: the HRESULT of Get(), the type of the VARIANT and, for a string, its content.
struct WmiValue {
    HRESULT result;
    VARTYPE type;
    QString text;
};

/// A row of the WMI query, by property.
using WmiRow = QMap<QString, WmiValue>;

/// Decides what the fakes of COM and WMI do.
class WmiHost
{
public:
    virtual ~WmiHost() = default;

    /// Called at every COM call before it has any effect, with its arguments as a string. Returns the call's HRESULT.
    /// A call that fails has no effect.
    virtual HRESULT comCall(const QString &function, const QString &arguments) = 0;

    /// Returns the rows that the query finds.
    virtual QVector<WmiRow> wmiRows() = 0;

    /// IUnknown::QueryInterface() of all objects.
    virtual HRESULT queryInterface(REFIID, void **) { return E_NOINTERFACE; }
};

/// The host of COM's functions in this process. It has to be set before the first COM call.
extern WmiHost *wmiHost;

/// Returns a locator whose services answer the query with the rows of `host`. The host has to outlive all objects.
IWbemLocator *makeLocator(WmiHost &host);

/// Returns a copy of `text` that VariantClear() frees.
BSTR makeVariantText(const wchar_t *text);

/// Whether `result` is a failure: HRESULT has 32 bits, whatever the size of long.
bool failed(HRESULT result);

/// An argument of a call as a string. An object of the query appears under its name.
struct Argument {
    Argument(const wchar_t *value) : text(value ? QString::fromWCharArray(value) : "null") {}
    Argument(const void *pointer) : text(pointer ? "set" : "null") {}
    Argument(IUnknown *object);
    Argument(const GUID &guid) : text(QString::number(guid.Data1, 16)) {}
    Argument(qint64 number) : text(QString::number(number)) {}
    QString text;
};

/// Reports a call to `host` and returns its answer.
HRESULT comCall(WmiHost &host, const char *function, std::initializer_list<Argument> arguments);
