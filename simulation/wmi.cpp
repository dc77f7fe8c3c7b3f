/// Fakes of WMI's objects. Natively com.cpp creates them, under Wine the fake locator.
#include "wmi.h"

#include <cstdlib>

namespace
{

/// The name of an object in the arguments of a call.
struct Named {
    explicit Named(const char *objectName) : name(objectName) {}
    virtual ~Named() = default;
    const char *const name;
};

template <typename Interface>
struct Object : Interface, Named {
    Object(WmiHost &host, const char *objectName) : Named(objectName), m_host(host) {}
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void **object) override
    {
        return m_host.queryInterface(iid, object);
    }
    // Nobody asks for a second reference.
    ULONG STDMETHODCALLTYPE AddRef() override { std::abort(); }
    ULONG STDMETHODCALLTYPE Release() override
    {
        comCall(m_host, "Release", {static_cast<IUnknown *>(this)});
        delete this;
        return 0;
    }

protected:
    WmiHost &m_host;
};

struct Row : Object<IWbemClassObject> {
    Row(WmiHost &host, const WmiRow &values) : Object(host, "row"), m_values(values) {}
    HRESULT STDMETHODCALLTYPE Get(LPCWSTR property, long flags, VARIANT *value, CIMTYPE *type, long *flavor) override
    {
        comCall(m_host, "Get", {property, flags, type, flavor});
        const WmiValue found = m_values.value(QString::fromWCharArray(property));
        // A call that fails sets the value too, to catch a program that uses it.
        value->vt = found.type;
        if (found.type == VT_BSTR)
            value->bstrVal = found.text.isNull() ? nullptr : makeVariantText(found.text.toStdWString().c_str());
        else
            value->lVal = 1;
        return found.result;
    }

private:
    const WmiRow m_values;
};

struct Enumerator : Object<IEnumWbemClassObject> {
    explicit Enumerator(WmiHost &host) : Object(host, "enumerator"), m_rows(host.wmiRows()) {}
    HRESULT STDMETHODCALLTYPE Next(long timeout, ULONG count, IWbemClassObject **objects, ULONG *returned) override
    {
        const HRESULT result = comCall(m_host, "Next", {static_cast<qint32>(timeout), count});
        // A failing call ends the rows and leaves `returned` alone.
        if (failed(result) && m_rows.isEmpty())
            return result;
        *returned = m_rows.isEmpty() ? 0 : 1;
        if (!m_rows.isEmpty())
            *objects = new Row(m_host, m_rows.takeFirst());
        return result;
    }

private:
    QVector<WmiRow> m_rows;
};

struct Services : Object<IWbemServices> {
    explicit Services(WmiHost &host) : Object(host, "services") {}
    HRESULT STDMETHODCALLTYPE ExecQuery(const BSTR language, const BSTR query, long flags, IWbemContext *context,
                                        IEnumWbemClassObject **enumerator) override
    {
        const HRESULT result = comCall(m_host, "ExecQuery", {language, query, flags, context});
        if (!failed(result))
            *enumerator = new Enumerator(m_host);
        return result;
    }
};

struct Locator : Object<IWbemLocator> {
    explicit Locator(WmiHost &host) : Object(host, "locator") {}
    HRESULT STDMETHODCALLTYPE ConnectServer(const BSTR resource, const BSTR user, const BSTR password,
                                            const BSTR locale, long flags, const BSTR authority, IWbemContext *context,
                                            IWbemServices **services) override
    {
        const HRESULT result =
            comCall(m_host, "ConnectServer", {resource, user, password, locale, flags, authority, context});
        if (!failed(result))
            *services = new Services(m_host);
        return result;
    }
};

} // namespace

IWbemLocator *makeLocator(WmiHost &host)
{
    return new Locator(host);
}

bool failed(HRESULT result)
{
    return static_cast<qint32>(result) < 0;
}

Argument::Argument(IUnknown *object) : text(object ? dynamic_cast<Named *>(object)->name : "null") {}

HRESULT comCall(WmiHost &host, const char *function, std::initializer_list<Argument> arguments)
{
    QStringList texts;
    for (const Argument &argument : arguments)
        texts << argument.text;
    return host.comCall(function, texts.join(", "));
}
