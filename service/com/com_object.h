// ComObject: the reference count and the interfaces of a COM object. Only for service/com.
//
//   class Locator final : public ComObject<IWbemLocator> { ... };
//   CComPtr<IWbemLocator> locator = MakeCom<Locator>();
//
// The object deletes itself with its last reference. The count may be changed on any thread.
#pragma once

#include <atomic>
#include <memory>
#include <tuple>
#include <utility>

#include <atlbase.h>
#include <unknwn.h>

namespace service {

// How many objects of the module live, for DllCanUnloadNow.
inline std::atomic<long> g_live_objects{0};

template <typename... Interfaces>
class ComObject : public Interfaces... {
 public:
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) override {
        if (!ppvObject) return E_POINTER;
        *ppvObject = nullptr;
        using First = std::tuple_element_t<0, std::tuple<Interfaces...>>;
        if (riid == IID_IUnknown) *ppvObject = static_cast<First*>(this);
        ((riid == __uuidof(Interfaces) ? void(*ppvObject = static_cast<Interfaces*>(this)) : void()), ...);
        if (!*ppvObject) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }

    ULONG STDMETHODCALLTYPE AddRef() override { return count_.fetch_add(1, std::memory_order_relaxed) + 1; }

    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = count_.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (left == 0) delete this;
        return left;
    }

 protected:
    ComObject() noexcept { g_live_objects.fetch_add(1, std::memory_order_relaxed); }
    virtual ~ComObject() { g_live_objects.fetch_sub(1, std::memory_order_relaxed); }

 private:
    std::atomic<ULONG> count_{1};
};

// A new object, held by the one reference that it is made with.
template <typename Object, typename... Arguments>
CComPtr<Object> MakeCom(Arguments&&... arguments) {
    CComPtr<Object> object;
    object.Attach(new Object(std::forward<Arguments>(arguments)...));
    return object;
}

}  // namespace service
