// What the module exports: the class objects that the COM runtime asks it for.
#include <objbase.h>
#include <wbemidl.h>

#include "service/com/boundary.h"
#include "service/com/com_object.h"
#include "service/com/context.h"
#include "service/com/locator.h"
#include "service/com/mof_compiler.h"
#include "service/com/object_text_source.h"
#include "service/com/store_admin.h"

namespace service {
namespace {

std::atomic<long> g_locks{0};

template <typename Object>
class ClassFactory final : public ComObject<IClassFactory> {
 public:
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) override {
        if (!ppvObject) return E_POINTER;
        *ppvObject = nullptr;
        if (pUnkOuter) return CLASS_E_NOAGGREGATION;
        try {
            return MakeCom<Object>()->QueryInterface(riid, ppvObject);
        } catch (...) {
            ReportCurrentException();
            return E_OUTOFMEMORY;
        }
    }

    HRESULT STDMETHODCALLTYPE LockServer(BOOL fLock) override {
        g_locks.fetch_add(fLock ? 1 : -1, std::memory_order_relaxed);
        return S_OK;
    }
};

template <typename Object>
HRESULT MakeFactory(REFIID riid, void** ppv) noexcept {
    try {
        return MakeCom<ClassFactory<Object>>()->QueryInterface(riid, ppv);
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace
}  // namespace service

extern "C" __attribute__((visibility("default"))) HRESULT DllGetClassObject(REFCLSID rclsid, REFIID riid,
                                                                            LPVOID* ppv) {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (rclsid == CLSID_WbemLocator) return service::MakeFactory<service::Locator>(riid, ppv);
    if (rclsid == CLSID_MofCompiler) return service::MakeFactory<service::MofCompiler>(riid, ppv);
    if (rclsid == CLSID_WbemContext) return service::MakeFactory<service::Context>(riid, ppv);
    if (rclsid == CLSID_WbemObjectTextSrc) return service::MakeFactory<service::ObjectTextSource>(riid, ppv);
    if (rclsid == CLSID_MgmtStore) return service::MakeFactory<service::StoreAdmin>(riid, ppv);
    return CLASS_E_CLASSNOTAVAILABLE;
}

extern "C" __attribute__((visibility("default"))) HRESULT DllCanUnloadNow() {
    const bool is_in_use = service::g_live_objects.load() != 0 || service::g_locks.load() != 0;
    return is_in_use ? S_FALSE : S_OK;
}
