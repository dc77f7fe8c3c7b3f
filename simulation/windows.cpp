/// Stand-ins for Sleep() and for COM, as far as the WMI query goes: they keep what they hand out, tell the
/// host of every call, and fail when it says so.
#include <comdef.h>
#include <wbemidl.h>

#include "host.h"

#include <cstdlib>
#include <wchar.h>

namespace
{

template <typename... Arguments>
HRESULT call(const char *function, const Arguments &...arguments)
{
    return comCall(host(), function, arguments...);
}

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
        *object = makeLocator(host());
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

BSTR makeVariantText(const wchar_t *text)
{
    return wcsdup(text);
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
