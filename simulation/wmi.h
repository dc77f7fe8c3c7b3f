#pragma once

#include <QMap>
#include <QStringList>
#include <QVector>

#include <initializer_list>

#include "sdk/wbemidl.h"

/// A property of a row of the WMI query: the HRESULT of Get(), the type of the VARIANT and, for a string,
/// its text.
struct WmiValue {
    HRESULT result;
    VARTYPE type;
    QString text;
};

/// A row of the WMI query, by property.
using WmiRow = QMap<QString, WmiValue>;

/// What stands behind the objects of the WMI query.
class WmiHost
{
public:
    virtual ~WmiHost() = default;

    /// Told of every COM call before it does anything, with its arguments as text; gives the call's HRESULT.
    /// A failing call does nothing.
    virtual HRESULT comCall(const QString &function, const QString &arguments) = 0;

    /// The rows that the query finds.
    virtual QVector<WmiRow> wmiRows() = 0;

    /// As IUnknown::QueryInterface() for each of the objects.
    virtual HRESULT queryInterface(REFIID, void **) { return E_NOINTERFACE; }
};

/// Gives a locator whose services answer the query with the rows of `host`, which outlives them all.
IWbemLocator *makeLocator(WmiHost &host);

/// Gives a text that VariantClear() frees.
BSTR makeVariantText(const wchar_t *text);

bool failed(HRESULT result);

/// An argument of a call as text; an object of the query shows by its name.
struct Argument {
    Argument(const wchar_t *value) : text(value ? QString::fromWCharArray(value) : "null") {}
    Argument(const void *pointer) : text(pointer ? "set" : "null") {}
    Argument(IUnknown *object);
    Argument(const GUID &guid) : text(QString::number(guid.Data1, 16)) {}
    Argument(qint64 number) : text(QString::number(number)) {}
    QString text;
};

/// Tells `host` of a call and gives what it says.
HRESULT comCall(WmiHost &host, const char *function, std::initializer_list<Argument> arguments);
