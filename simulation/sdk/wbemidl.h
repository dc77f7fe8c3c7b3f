/// The WMI interfaces of the query, with the methods that it calls at their published places in the tables of
/// methods: what implements them serves a program that was built with the published headers, too.
#pragma once

#include <windows.h>

enum { WBEM_FLAG_RETURN_IMMEDIATELY = 0x10, WBEM_FLAG_FORWARD_ONLY = 0x20 };
enum : unsigned int { WBEM_INFINITE = 0xFFFFFFFF };

constexpr GUID CLSID_WbemLocator{0x4590f811, 0x1d3a, 0x11d0, {0x89, 0x1f, 0x00, 0xaa, 0x00, 0x4b, 0x2e, 0x24}};
constexpr GUID IID_IWbemLocator{0xdc12a687, 0x737f, 0x11cf, {0x88, 0x4d, 0x00, 0xaa, 0x00, 0x4b, 0x2e, 0x24}};

using CIMTYPE = long;
struct IWbemContext;

/// IUnknown and so many methods behind it that nobody calls.
template <int count>
struct Behind : Behind<count - 1> {
    virtual void uncalled(Behind *) {}
    using Behind<count - 1>::uncalled;
};

template <>
struct Behind<0> : IUnknown {
    void uncalled() {}
};

struct IWbemClassObject : Behind<1> {
    virtual HRESULT STDMETHODCALLTYPE Get(LPCWSTR name, long flags, VARIANT *value, CIMTYPE *type, long *flavor) = 0;
};

struct IEnumWbemClassObject : Behind<1> {
    virtual HRESULT STDMETHODCALLTYPE Next(long timeout, ULONG count, IWbemClassObject **objects, ULONG *returned) = 0;
};

struct IWbemServices : Behind<17> {
    virtual HRESULT STDMETHODCALLTYPE ExecQuery(const BSTR language, const BSTR query, long flags,
                                                IWbemContext *context, IEnumWbemClassObject **enumerator) = 0;
};

struct IWbemLocator : Behind<0> {
    virtual HRESULT STDMETHODCALLTYPE ConnectServer(const BSTR resource, const BSTR user, const BSTR password,
                                                    const BSTR locale, long flags, const BSTR authority,
                                                    IWbemContext *context, IWbemServices **services) = 0;
};
