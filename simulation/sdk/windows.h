/// The part of the Windows headers that the program uses, with the names, signatures and values of the real ones.
/// simulation/com.cpp implements COM, each executable Sleep().
#pragma once

using DWORD = unsigned int;
using ULONG = unsigned int;
using HRESULT = long;
using LPVOID = void *;
using OLECHAR = wchar_t;
using BSTR = OLECHAR *;
using LPCWSTR = const wchar_t *;
using VARTYPE = unsigned short;

struct GUID {
    unsigned int Data1;
    unsigned short Data2, Data3;
    unsigned char Data4[8];
};
using REFCLSID = const GUID &;
using REFIID = const GUID &;

enum { VT_EMPTY = 0, VT_NULL = 1, VT_I4 = 3, VT_BSTR = 8 };

struct VARIANT {
    VARTYPE vt;
    union {
        int lVal;
        BSTR bstrVal;
    };
};

#define STDMETHODCALLTYPE
struct IUnknown {
    virtual HRESULT QueryInterface(REFIID iid, void **object) = 0;
    virtual ULONG AddRef() = 0;
    virtual ULONG Release() = 0;

protected:
    ~IUnknown() = default;
};

constexpr HRESULT E_NOINTERFACE = static_cast<int>(0x80004002);
enum { COINIT_MULTITHREADED = 0 };
enum { CLSCTX_INPROC_SERVER = 1 };
enum { EOAC_NONE = 0 };
enum { RPC_C_AUTHN_LEVEL_DEFAULT = 0, RPC_C_AUTHN_LEVEL_CALL = 3 };
enum { RPC_C_AUTHN_WINNT = 10, RPC_C_AUTHZ_NONE = 0, RPC_C_IMP_LEVEL_IMPERSONATE = 3 };

HRESULT CoInitializeEx(LPVOID reserved, DWORD model);
HRESULT CoInitializeSecurity(void *descriptor, int services, void *serviceList, void *reserved1, DWORD authnLevel,
                             DWORD impLevel, void *authnList, DWORD capabilities, void *reserved3);
HRESULT CoCreateInstance(REFCLSID clsid, IUnknown *outer, DWORD context, REFIID iid, LPVOID *object);
HRESULT CoSetProxyBlanket(IUnknown *proxy, DWORD authnService, DWORD authzService, OLECHAR *principal, DWORD authnLevel,
                          DWORD impLevel, void *identity, DWORD capabilities);
void CoUninitialize();
BSTR SysAllocString(const OLECHAR *text);
void SysFreeString(BSTR text);
HRESULT VariantClear(VARIANT *value);
void Sleep(DWORD milliseconds);
