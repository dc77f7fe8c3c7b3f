/// Stand-ins for Sleep() and for COM, as far as the WMI query goes: they keep what they hand out, tell the
/// host of every call, and fail when it says so.
#include <comdef.h>
#include <wbemidl.h>

#include "host.h"

#include <cstdlib>
#include <wchar.h>

namespace
{

/// Has a name by which calls that take or release the object show it.
struct Named {
    explicit Named(const char *objectName) : name(objectName) {}
    virtual ~Named() = default;
    const char *const name;
};

QString show(const wchar_t *text)
{
    return text ? QString::fromWCharArray(text) : "null";
}

QString show(const void *pointer)
{
    return pointer ? "set" : "null";
}

QString show(IUnknown *object)
{
    return object ? dynamic_cast<Named *>(object)->name : "null";
}

QString show(const GUID &guid)
{
    return QString::number(guid.Data1, 16);
}

QString show(qint64 number)
{
    return QString::number(number);
}

template <typename... Arguments>
HRESULT call(const char *function, const Arguments &...arguments)
{
    return host().comCall(function, QStringList{show(arguments)...}.join(", "));
}

bool failed(HRESULT result)
{
    return static_cast<qint32>(result) < 0;
}

template <typename Interface>
struct Object : Interface, Named {
    using Named::Named;
    ULONG Release() override
    {
        call("Release", static_cast<IUnknown *>(this));
        delete this;
        return 0;
    }
};

struct Row : Object<IWbemClassObject> {
    explicit Row(const WmiRow &values) : Object("row"), m_values(values) {}
    HRESULT Get(LPCWSTR property, long flags, VARIANT *value, CIMTYPE *type, long *flavor) override
    {
        call("Get", property, flags, type, flavor);
        const WmiValue found = m_values.value(QString::fromWCharArray(property));
        if (failed(found.result))
            return found.result;
        value->vt = found.type;
        if (found.type == VT_BSTR)
            value->bstrVal = found.text.isNull() ? nullptr : wcsdup(found.text.toStdWString().c_str());
        else
            value->lVal = 1;
        return found.result;
    }

private:
    const WmiRow m_values;
};

struct Enumerator : Object<IEnumWbemClassObject> {
    explicit Enumerator(const QVector<WmiRow> &rows) : Object("enumerator"), m_rows(rows) {}
    HRESULT Next(long timeout, ULONG count, IWbemClassObject **objects, ULONG *returned) override
    {
        const HRESULT result = call("Next", static_cast<qint32>(timeout), count);
        // A failing call ends the rows and leaves `returned` alone.
        if (failed(result) && m_rows.isEmpty())
            return result;
        *returned = m_rows.isEmpty() ? 0 : 1;
        if (!m_rows.isEmpty())
            *objects = new Row(m_rows.takeFirst());
        return result;
    }

private:
    QVector<WmiRow> m_rows;
};

struct Services : Object<IWbemServices> {
    Services() : Object("services") {}
    HRESULT ExecQuery(const BSTR language, const BSTR query, long flags, IWbemContext *context,
                      IEnumWbemClassObject **enumerator) override
    {
        const HRESULT result = call("ExecQuery", language, query, flags, context);
        if (!failed(result))
            *enumerator = new Enumerator(host().wmiRows());
        return result;
    }
};

struct Locator : Object<IWbemLocator> {
    Locator() : Object("locator") {}
    HRESULT ConnectServer(const BSTR resource, const BSTR user, const BSTR password, const BSTR locale, long flags,
                          const BSTR authority, IWbemContext *context, IWbemServices **services) override
    {
        const HRESULT result = call("ConnectServer", resource, user, password, locale, flags, authority, context);
        if (!failed(result))
            *services = new Services;
        return result;
    }
};

} // namespace

HRESULT CoInitializeEx(LPVOID reserved, DWORD model)
{
    return call("CoInitializeEx", reserved, model);
}

HRESULT CoInitializeSecurity(void *descriptor, int services, void *serviceList, void *reserved1, DWORD authnLevel,
                             DWORD impLevel, void *authnList, DWORD capabilities, void *reserved3)
{
    return call("CoInitializeSecurity", descriptor, services, serviceList, reserved1, authnLevel, impLevel, authnList,
                capabilities, reserved3);
}

HRESULT CoCreateInstance(REFCLSID clsid, IUnknown *outer, DWORD context, REFIID iid, LPVOID *object)
{
    const HRESULT result = call("CoCreateInstance", clsid, outer, context, iid);
    if (!failed(result))
        *object = static_cast<IWbemLocator *>(new Locator);
    return result;
}

HRESULT CoSetProxyBlanket(IUnknown *proxy, DWORD authnService, DWORD authzService, OLECHAR *principal, DWORD authnLevel,
                          DWORD impLevel, void *identity, DWORD capabilities)
{
    return call("CoSetProxyBlanket", proxy, authnService, authzService, principal, authnLevel, impLevel, identity,
                capabilities);
}

void CoUninitialize()
{
    call("CoUninitialize");
}

BSTR SysAllocString(const OLECHAR *text)
{
    call("SysAllocString", text);
    return wcsdup(text);
}

void SysFreeString(BSTR text)
{
    call("SysFreeString", text);
    free(text);
}

HRESULT VariantClear(VARIANT *value)
{
    const HRESULT result = call("VariantClear");
    if (value->vt == VT_BSTR)
        free(value->bstrVal);
    *value = {};
    return result;
}

void Sleep(DWORD milliseconds)
{
    host().sleep(milliseconds);
}
