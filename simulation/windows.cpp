/// Stand-ins for Sleep() and for COM, as far as the WMI query goes: they keep what they hand out, tell the
/// host of every call, and fail when it says so.
#include <comdef.h>
#include <wbemidl.h>

#include "host.h"

#include <cstdlib>
#include <wchar.h>

HRESULT CoInitializeEx(LPVOID reserved, DWORD model)
{
    return comCall(host(), "CoInitializeEx", {reserved, model});
}

HRESULT CoInitializeSecurity(void *descriptor, int services, void *serviceList, void *reserved1, DWORD authnLevel,
                             DWORD impLevel, void *authnList, DWORD capabilities, void *reserved3)
{
    return comCall(
        host(), "CoInitializeSecurity",
        {descriptor, services, serviceList, reserved1, authnLevel, impLevel, authnList, capabilities, reserved3});
}

HRESULT CoCreateInstance(REFCLSID clsid, IUnknown *outer, DWORD context, REFIID iid, LPVOID *object)
{
    const HRESULT result = comCall(host(), "CoCreateInstance", {clsid, outer, context, iid});
    if (!failed(result))
        *object = makeLocator(host());
    return result;
}

HRESULT CoSetProxyBlanket(IUnknown *proxy, DWORD authnService, DWORD authzService, OLECHAR *principal, DWORD authnLevel,
                          DWORD impLevel, void *identity, DWORD capabilities)
{
    return comCall(host(), "CoSetProxyBlanket",
                   {proxy, authnService, authzService, principal, authnLevel, impLevel, identity, capabilities});
}

void CoUninitialize()
{
    comCall(host(), "CoUninitialize", {});
}

BSTR SysAllocString(const OLECHAR *text)
{
    comCall(host(), "SysAllocString", {text});
    return wcsdup(text);
}

void SysFreeString(BSTR text)
{
    comCall(host(), "SysFreeString", {text});
    free(text);
}

BSTR makeVariantText(const wchar_t *text)
{
    return wcsdup(text);
}

HRESULT VariantClear(VARIANT *value)
{
    const HRESULT result = comCall(host(), "VariantClear", {});
    if (value->vt == VT_BSTR)
        free(value->bstrVal);
    *value = {};
    return result;
}

void Sleep(DWORD milliseconds)
{
    host().sleep(milliseconds);
}
