/// A fake of WMI's locator: a COM server that a Wine prefix registers under the locator's class id. It answers the
/// query from the machine file that MORDWELL_MACHINE names.
#include "machine.h"

#include <objidl.h>
#include <unknwn.h>

namespace
{

/// The class factory, the IClientSecurity that CoSetProxyBlanket() asks the services for, and the host of the query, in
/// one object that is never deleted. It reads the machine anew at each call, since the fake tools change it in between.
struct Server : WmiHost, IClassFactory, IClientSecurity {
    HRESULT comCall(const QString &function, const QString &) override { return machine().nextFault(function).toInt(); }
    QVector<WmiRow> wmiRows() override { return machine().wmiRows(); }
    HRESULT queryInterface(REFIID iid, void **object) override { return QueryInterface(iid, object); }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void **object) override
    {
        *object = iid == IID_IClassFactory     ? static_cast<IClassFactory *>(this)
                  : iid == IID_IClientSecurity ? static_cast<void *>(static_cast<IClientSecurity *>(this))
                                               : nullptr;
        return *object ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown *, REFIID, void **object) override
    {
        const HRESULT result = comCall("CoCreateInstance", "");
        *object = failed(result) ? nullptr : makeLocator(*this);
        return result;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }

    HRESULT STDMETHODCALLTYPE SetBlanket(IUnknown *, DWORD, DWORD, OLECHAR *, DWORD, DWORD, void *, DWORD) override
    {
        return comCall("CoSetProxyBlanket", "");
    }
    HRESULT STDMETHODCALLTYPE QueryBlanket(IUnknown *, DWORD *, DWORD *, OLECHAR **, DWORD *, DWORD *, void **,
                                           DWORD *) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE CopyProxy(IUnknown *, IUnknown **) override { return E_NOTIMPL; }

private:
    static Machine machine() { return Machine(qEnvironmentVariable("MORDWELL_MACHINE", "machine.json")); }
};

} // namespace

BSTR makeVariantText(const wchar_t *text)
{
    return SysAllocString(text);
}

STDAPI DllGetClassObject(REFCLSID, REFIID iid, void **object)
{
    static Server server;
    return server.QueryInterface(iid, object);
}

STDAPI DllCanUnloadNow()
{
    return S_FALSE;
}
