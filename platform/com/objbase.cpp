#include <objbase.h>

#include <atlbase.h>

#include "platform/com/apartment.h"
#include "platform/com/class_table.h"
#include "platform/com/service_module.h"

using mgmt_platform::ClassTable;

namespace {

HRESULT FindClassObject(REFCLSID clsid, DWORD context, REFIID riid, void** out) noexcept {
    if (const auto registration = ClassTable::OfProcess().Find(clsid)) return registration->Query(riid, out);
    if ((context & CLSCTX_INPROC_SERVER) == 0) return REGDB_E_CLASSNOTREG;
    return mgmt_platform::GetModuleClassObject(clsid, riid, out);
}

bool NamesServer(DWORD context) noexcept {
    return (context & CLSCTX_ALL) != 0;
}

}  // namespace

HRESULT STDAPICALLTYPE CoGetClassObject(REFCLSID rclsid, DWORD dwClsContext, LPVOID pvReserved, REFIID riid,
                                        LPVOID* ppv) noexcept {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    if (!mgmt_platform::IsComInitialized()) return CO_E_NOTINITIALIZED;
    if (pvReserved != nullptr || !NamesServer(dwClsContext)) return E_INVALIDARG;
    const HRESULT hr = FindClassObject(rclsid, dwClsContext, riid, ppv);
    if (FAILED(hr)) *ppv = nullptr;
    return hr;
}

HRESULT STDAPICALLTYPE CoCreateInstance(REFCLSID rclsid, IUnknown* pUnkOuter, DWORD dwClsContext, REFIID riid,
                                        LPVOID* ppv) noexcept {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    CComPtr<IClassFactory> factory;
    HRESULT hr = CoGetClassObject(rclsid, dwClsContext, nullptr, IID_PPV_ARGS(&factory));
    if (FAILED(hr)) return hr;
    hr = factory->CreateInstance(pUnkOuter, riid, ppv);
    if (FAILED(hr)) *ppv = nullptr;
    return hr;
}

HRESULT STDAPICALLTYPE CoRegisterClassObject(REFCLSID rclsid, IUnknown* pUnk, DWORD dwClsContext, DWORD,
                                             LPDWORD lpdwRegister) noexcept {
    if (lpdwRegister == nullptr) return E_INVALIDARG;
    *lpdwRegister = 0;
    if (pUnk == nullptr || !NamesServer(dwClsContext)) return E_INVALIDARG;
    if (!mgmt_platform::IsComInitialized()) return CO_E_NOTINITIALIZED;
    return ClassTable::OfProcess().Register(rclsid, pUnk, lpdwRegister);
}

HRESULT STDAPICALLTYPE CoRevokeClassObject(DWORD dwRegister) noexcept {
    if (!mgmt_platform::IsComInitialized()) return CO_E_NOTINITIALIZED;
    return ClassTable::OfProcess().Revoke(dwRegister) ? S_OK : E_INVALIDARG;
}

HRESULT STDAPICALLTYPE CoSetProxyBlanket(IUnknown* pProxy, DWORD dwAuthnSvc, DWORD dwAuthzSvc,
                                         OLECHAR* pServerPrincName, DWORD dwAuthnLevel, DWORD dwImpLevel,
                                         RPC_AUTH_IDENTITY_HANDLE pAuthInfo, DWORD dwCapabilities) noexcept {
    if (pProxy == nullptr) return E_INVALIDARG;
    CComPtr<IClientSecurity> security;
    const HRESULT hr = pProxy->QueryInterface(IID_PPV_ARGS(&security));
    if (FAILED(hr)) return hr;
    return security->SetBlanket(pProxy, dwAuthnSvc, dwAuthzSvc, pServerPrincName, dwAuthnLevel, dwImpLevel,
                                pAuthInfo, dwCapabilities);
}
