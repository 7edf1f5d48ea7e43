// The COM runtime: initialising a thread, finding class objects, making objects, securing a connection.
//
//   CoInitializeEx(nullptr, COINIT_MULTITHREADED);
//   IWbemLocator* locator = nullptr;
//   HRESULT hr = CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(&locator));
//   ...
//   CoUninitialize();
//
// A class object is looked for among those that this process has registered (the latest registration of a
// class wins), then in the management service's module, libmgmt_service.so. The module is loaded on first
// need and stays until the process ends; it is the file that the environment variable MGMT_SERVICE_MODULE
// names, else the one next to this library's own file, else what the loader finds by that name. The variable
// is not read in a process that runs with raised privileges.
//
// Every function may be called on any thread, also by several at once. No lock is held while a class object
// or the module is called. Objects are called directly on the calling thread: there are no proxies and
// apartments do not constrain who calls what.
#pragma once

#include <platform_api.h>
#include <unknwn.h>
#include <windef.h>
#include <wtypes.h>

// Where a server may run. The service's module is asked only for contexts with CLSCTX_INPROC_SERVER.
enum CLSCTX : DWORD {
    CLSCTX_INPROC_SERVER = 0x1,
    CLSCTX_INPROC_HANDLER = 0x2,
    CLSCTX_LOCAL_SERVER = 0x4,
    CLSCTX_REMOTE_SERVER = 0x10,
    CLSCTX_INPROC = CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER,
    CLSCTX_SERVER = CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER,
    CLSCTX_ALL = CLSCTX_INPROC_HANDLER | CLSCTX_SERVER,
};

enum COINIT : DWORD {
    COINIT_MULTITHREADED = 0x0,
    COINIT_APARTMENTTHREADED = 0x2,
    COINIT_DISABLE_OLE1DDE = 0x4,
    COINIT_SPEED_OVER_MEMORY = 0x8,
};

enum REGCLS : DWORD {
    REGCLS_SINGLEUSE = 0,
    REGCLS_MULTIPLEUSE = 1,
    REGCLS_MULTI_SEPARATE = 2,
};

// Allows the calling thread to use COM until it has called CoUninitialize as often. S_FALSE where it was
// allowed already; RPC_E_CHANGED_MODE, which is not to be undone, where that was with the other apartment
// model. `pvReserved` must be null and `dwCoInit` made of COINIT_ values, else E_INVALIDARG.
MGMT_PLATFORM_API HRESULT STDAPICALLTYPE CoInitializeEx(LPVOID pvReserved, DWORD dwCoInit) noexcept;
// The same with COINIT_APARTMENTTHREADED.
MGMT_PLATFORM_API HRESULT STDAPICALLTYPE CoInitialize(LPVOID pvReserved) noexcept;
// Takes one successful initialisation back; more calls than those are ignored.
MGMT_PLATFORM_API void STDAPICALLTYPE CoUninitialize() noexcept;

// `*ppv` receives the class object with a reference that the caller releases, or null on any failure.
// `pvReserved` (a server's machine) must be null.
// CO_E_NOTINITIALIZED: the thread has not initialised COM. E_INVALIDARG: the context names no server, or
// `pvReserved` is not null. E_POINTER: `ppv` is null. REGDB_E_CLASSNOTREG: no registered class object, and
// the module is missing or not wanted by the context; CO_E_ERRORINDLL: the module has no DllGetClassObject.
// For a fault of the module the thread's error object says which file was tried and why it failed. Else the
// result is the class object's or the module's own (E_NOINTERFACE, CLASS_E_CLASSNOTAVAILABLE).
MGMT_PLATFORM_API HRESULT STDAPICALLTYPE CoGetClassObject(REFCLSID rclsid, DWORD dwClsContext,
                                                          LPVOID pvReserved, REFIID riid,
                                                          LPVOID* ppv) noexcept;
// Makes one object through its class object; `pUnkOuter` is handed on. Results as above.
MGMT_PLATFORM_API HRESULT STDAPICALLTYPE CoCreateInstance(REFCLSID rclsid, IUnknown* pUnkOuter,
                                                          DWORD dwClsContext, REFIID riid,
                                                          LPVOID* ppv) noexcept;

// Registers `pUnk`, of which a reference is kept, as the class object of `rclsid` until its cookie is
// revoked. Any context and any REGCLS_ value is accepted; a class object serves every caller in the process
// as often as it is asked. E_INVALIDARG for a null argument or a context without a server,
// CO_E_NOTINITIALIZED, E_OUTOFMEMORY.
MGMT_PLATFORM_API HRESULT STDAPICALLTYPE CoRegisterClassObject(REFCLSID rclsid, IUnknown* pUnk,
                                                               DWORD dwClsContext, DWORD flags,
                                                               LPDWORD lpdwRegister) noexcept;
// E_INVALIDARG for a cookie that is not registered; CO_E_NOTINITIALIZED.
MGMT_PLATFORM_API HRESULT STDAPICALLTYPE CoRevokeClassObject(DWORD dwRegister) noexcept;

// What a server's module defines; the declarations here make it exported. DllGetClassObject answers
// CLASS_E_CLASSNOTAVAILABLE for a class that it does not have. This runtime never asks DllCanUnloadNow.
extern "C" MGMT_PLATFORM_API HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID rclsid, REFIID riid,
                                                                      LPVOID* ppv);
extern "C" MGMT_PLATFORM_API HRESULT STDAPICALLTYPE DllCanUnloadNow();

#define RPC_C_AUTHN_NONE 0
#define RPC_C_AUTHN_WINNT 10
#define RPC_C_AUTHN_DEFAULT 0xFFFFFFFFU

#define RPC_C_AUTHZ_NONE 0
#define RPC_C_AUTHZ_NAME 1
#define RPC_C_AUTHZ_DCE 2
#define RPC_C_AUTHZ_DEFAULT 0xFFFFFFFFU

#define RPC_C_AUTHN_LEVEL_DEFAULT 0
#define RPC_C_AUTHN_LEVEL_NONE 1
#define RPC_C_AUTHN_LEVEL_CONNECT 2
#define RPC_C_AUTHN_LEVEL_CALL 3
#define RPC_C_AUTHN_LEVEL_PKT 4
#define RPC_C_AUTHN_LEVEL_PKT_INTEGRITY 5
#define RPC_C_AUTHN_LEVEL_PKT_PRIVACY 6

#define RPC_C_IMP_LEVEL_DEFAULT 0
#define RPC_C_IMP_LEVEL_ANONYMOUS 1
#define RPC_C_IMP_LEVEL_IDENTIFY 2
#define RPC_C_IMP_LEVEL_IMPERSONATE 3
#define RPC_C_IMP_LEVEL_DELEGATE 4

enum EOLE_AUTHENTICATION_CAPABILITIES : DWORD {
    EOAC_NONE = 0,
    EOAC_MUTUAL_AUTH = 0x1,
    EOAC_STATIC_CLOAKING = 0x20,
    EOAC_DYNAMIC_CLOAKING = 0x40,
    EOAC_DEFAULT = 0x800,
};

#define SEC_WINNT_AUTH_IDENTITY_ANSI 0x1
#define SEC_WINNT_AUTH_IDENTITY_UNICODE 0x2

// Who a caller wants to be. Lengths are in characters without the terminator; a null string has length 0. The
// strings stay the caller's and must outlive the call.
struct COAUTHIDENTITY {
    OLECHAR* User;
    ULONG UserLength;
    OLECHAR* Domain;
    ULONG DomainLength;
    OLECHAR* Password;
    ULONG PasswordLength;
    ULONG Flags;
};

using RPC_AUTH_IDENTITY_HANDLE = void*;

// Offered by an object that lets its caller say how calls on it are authenticated.
struct IClientSecurity : IUnknown {
    // Each out argument may be null. `*pServerPrincName` is the caller's to free.
    virtual HRESULT STDMETHODCALLTYPE QueryBlanket(IUnknown* pProxy, DWORD* pAuthnSvc, DWORD* pAuthzSvc,
                                                   OLECHAR** pServerPrincName, DWORD* pAuthnLevel,
                                                   DWORD* pImpLevel, void** pAuthInfo,
                                                   DWORD* pCapabilities) = 0;
    // `pAuthInfo` points to a COAUTHIDENTITY or is null; an implementation that needs it later copies it.
    virtual HRESULT STDMETHODCALLTYPE SetBlanket(IUnknown* pProxy, DWORD dwAuthnSvc, DWORD dwAuthzSvc,
                                                 OLECHAR* pServerPrincName, DWORD dwAuthnLevel,
                                                 DWORD dwImpLevel, void* pAuthInfo, DWORD dwCapabilities) = 0;
    virtual HRESULT STDMETHODCALLTYPE CopyProxy(IUnknown* pProxy, IUnknown** ppCopy) = 0;

 protected:
    ~IClientSecurity() = default;
};
MGMT_DEFINE_IID(IClientSecurity, 0x0000013d, 0x0000, 0x0000, 0xc0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46);

// Asks `pProxy` for IClientSecurity and hands it the settings, `pProxy` first. E_INVALIDARG for a null
// `pProxy`, E_NOINTERFACE where it offers no IClientSecurity, else SetBlanket's own result.
MGMT_PLATFORM_API HRESULT STDAPICALLTYPE CoSetProxyBlanket(IUnknown* pProxy, DWORD dwAuthnSvc,
                                                           DWORD dwAuthzSvc, OLECHAR* pServerPrincName,
                                                           DWORD dwAuthnLevel, DWORD dwImpLevel,
                                                           RPC_AUTH_IDENTITY_HANDLE pAuthInfo,
                                                           DWORD dwCapabilities) noexcept;
