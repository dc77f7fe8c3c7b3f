/// Fakes of COM's functions, as far as the WMI query uses them. They report every call to the host, and fail when it
/// says so.
#include <comdef.h>
#include <wbemidl.h>

#include "wmi.h"

#include <cstdlib>
#include <wchar.h>

WmiHost *wmiHost = nullptr;

HRESULT CoInitializeEx(LPVOID reserved, DWORD model)
{
    return comCall(*wmiHost, "CoInitializeEx", {reserved, model});
}

HRESULT CoInitializeSecurity(void *descriptor, int services, void *serviceList, void *reserved1, DWORD authnLevel,
                             DWORD impLevel, void *authnList, DWORD capabilities, void *reserved3)
{
    return comCall(
        *wmiHost, "CoInitializeSecurity",
        {descriptor, services, serviceList, reserved1, authnLevel, impLevel, authnList, capabilities, reserved3});
}

HRESULT CoCreateInstance(REFCLSID clsid, IUnknown *outer, DWORD context, REFIID iid, LPVOID *object)
{
    const HRESULT result = comCall(*wmiHost, "CoCreateInstance", {clsid, outer, context, iid});
    if (!failed(result))
        *object = makeLocator(*wmiHost);
    return result;
}

HRESULT CoSetProxyBlanket(IUnknown *proxy, DWORD authnService, DWORD authzService, OLECHAR *principal, DWORD authnLevel,
                          DWORD impLevel, void *identity, DWORD capabilities)
{
    return comCall(*wmiHost, "CoSetProxyBlanket",
                   {proxy, authnService, authzService, principal, authnLevel, impLevel, identity, capabilities});
}

void CoUninitialize()
{
    comCall(*wmiHost, "CoUninitialize", {});
}

BSTR SysAllocString(const OLECHAR *text)
{
    comCall(*wmiHost, "SysAllocString", {});
    return wcsdup(text);
}

void SysFreeString(BSTR text)
{
    comCall(*wmiHost, "SysFreeString", {});
    free(text);
}

BSTR makeVariantText(const wchar_t *text)
{
    return wcsdup(text);
}

HRESULT VariantClear(VARIANT *value)
{
    const HRESULT result = comCall(*wmiHost, "VariantClear", {});
    if (value->vt == VT_BSTR)
        free(value->bstrVal);
    *value = {};
    return result;
}
