/// The WMI interfaces of the query. Each method that the query calls has its real place in the vtable, so a program
/// built with the real SDK headers can call these objects too. The other methods only hold their places.
#pragma once

#include <windows.h>

enum { WBEM_FLAG_RETURN_IMMEDIATELY = 0x10, WBEM_FLAG_FORWARD_ONLY = 0x20 };
enum : unsigned int { WBEM_INFINITE = 0xFFFFFFFF };

constexpr GUID CLSID_WbemLocator{0x4590f811, 0x1d3a, 0x11d0, {0x89, 0x1f, 0x00, 0xaa, 0x00, 0x4b, 0x2e, 0x24}};
constexpr GUID IID_IWbemLocator{0xdc12a687, 0x737f, 0x11cf, {0x88, 0x4d, 0x00, 0xaa, 0x00, 0x4b, 0x2e, 0x24}};

using CIMTYPE = long;
struct IWbemContext;

struct IWbemClassObject : IUnknown {
    virtual void GetQualifierSet() {}
    virtual HRESULT STDMETHODCALLTYPE Get(LPCWSTR name, long flags, VARIANT *value, CIMTYPE *type, long *flavor) = 0;
};

struct IEnumWbemClassObject : IUnknown {
    virtual void Reset() {}
    virtual HRESULT STDMETHODCALLTYPE Next(long timeout, ULONG count, IWbemClassObject **objects, ULONG *returned) = 0;
};

struct IWbemServices : IUnknown {
    virtual void OpenNamespace() {}
    virtual void CancelAsyncCall() {}
    virtual void QueryObjectSink() {}
    virtual void GetObject() {}
    virtual void GetObjectAsync() {}
    virtual void PutClass() {}
    virtual void PutClassAsync() {}
    virtual void DeleteClass() {}
    virtual void DeleteClassAsync() {}
    virtual void CreateClassEnum() {}
    virtual void CreateClassEnumAsync() {}
    virtual void PutInstance() {}
    virtual void PutInstanceAsync() {}
    virtual void DeleteInstance() {}
    virtual void DeleteInstanceAsync() {}
    virtual void CreateInstanceEnum() {}
    virtual void CreateInstanceEnumAsync() {}
    virtual HRESULT STDMETHODCALLTYPE ExecQuery(const BSTR language, const BSTR query, long flags,
                                                IWbemContext *context, IEnumWbemClassObject **enumerator) = 0;
};

struct IWbemLocator : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE ConnectServer(const BSTR resource, const BSTR user, const BSTR password,
                                                    const BSTR locale, long flags, const BSTR authority,
                                                    IWbemContext *context, IWbemServices **services) = 0;
};
