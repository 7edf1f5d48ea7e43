#include <objbase.h>

#include <string>

#include "tests/platform/test_module/trace.h"

namespace {

constinit ModuleLife life;

// Its constructor cannot run at compile time, so it tells whether the module's static objects were
// constructed.
class StaticObject {
 public:
    StaticObject() : text_("ready") {}
    ~StaticObject() {
        if (life.unload != nullptr) *life.unload += "destroyed ";
    }
    bool IsReady() const { return text_ == "ready"; }

 private:
    std::string text_;
};

const StaticObject static_object;

// The module's only class: its class object is also its only instance.
class Only final : public IClassFactory {
 public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** out) override {
        if (riid != IID_IUnknown && riid != IID_IClassFactory) return E_NOINTERFACE;
        *out = this;
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** out) override {
        return outer != nullptr ? CLASS_E_NOAGGREGATION : QueryInterface(riid, out);
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

constexpr CLSID CLSID_Only = {0x12345678, 0x1234, 0x1234, {1, 2, 3, 4, 5, 6, 7, 8}};

}  // namespace

bool StaticObjectIsReady() {
    return static_object.IsReady();
}

extern "C" MGMT_PLATFORM_API ModuleLife* GetModuleLife() {
    return &life;
}

HRESULT DllGetClassObject(REFCLSID clsid, REFIID riid, LPVOID* out) {
    static Only only;
    return clsid == CLSID_Only ? only.QueryInterface(riid, out) : CLASS_E_CLASSNOTAVAILABLE;
}
