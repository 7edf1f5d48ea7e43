// IUnknown and IClassFactory, and how an interface is tied to its identifier.
//
//   struct IThing : IUnknown { virtual HRESULT STDMETHODCALLTYPE Do() = 0; protected: ~IThing() = default; };
//   MGMT_DEFINE_IID(IThing, 0xdc12a687, 0x737f, 0x11cf, 0x88, 0x4d, 0x00, 0xaa, 0x00, 0x4b, 0x2e, 0x24);
//   object->QueryInterface(IID_PPV_ARGS(&thing));
//
// An interface's slots stand in the published order and its destructor is protected and not virtual: who
// holds an interface releases it and never deletes it. AddRef and Release may be called on any thread; what
// else may be called where is the object's own matter.
#pragma once

#include <type_traits>

#include <guiddef.h>
#include <windef.h>
#include <winerror.h>

// ComUuid<Interface>::value is the interface's identifier; MGMT_DEFINE_IID supplies it.
template <class Interface>
struct ComUuid;

#define __uuidof(Interface) (ComUuid<Interface>::value)

// Used at namespace scope: defines IID_<Interface> and what __uuidof(Interface) yields.
#define MGMT_DEFINE_IID(Interface, ...)                      \
    DEFINE_GUID(IID_##Interface, __VA_ARGS__);               \
    template <>                                              \
    struct ComUuid<Interface> {                              \
        static constexpr const IID& value = IID_##Interface; \
    }

struct IUnknown {
    // `*ppvObject` receives the interface with a reference that the caller releases, or null with
    // E_NOINTERFACE.
    virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) = 0;
    // Both return the new count, which is good for diagnostics only.
    virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
    virtual ULONG STDMETHODCALLTYPE Release() = 0;

 protected:
    ~IUnknown() = default;
};
MGMT_DEFINE_IID(IUnknown, 0x00000000, 0x0000, 0x0000, 0xc0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46);

struct IClassFactory : IUnknown {
    // Makes one object of the class. CLASS_E_NOAGGREGATION where `pUnkOuter` is not null and the class cannot
    // be a part of another object.
    virtual HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) = 0;
    // TRUE keeps the server loaded, FALSE takes one such call back.
    virtual HRESULT STDMETHODCALLTYPE LockServer(BOOL fLock) = 0;

 protected:
    ~IClassFactory() = default;
};
MGMT_DEFINE_IID(IClassFactory, 0x00000001, 0x0000, 0x0000, 0xc0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46);

// An out argument of QueryInterface and its like: checks that the pointer is one to an interface.
template <class Interface>
void** IID_PPV_ARGS_Helper(Interface** out) noexcept {
    static_assert(std::is_base_of_v<IUnknown, Interface>, "only an interface pointer can be asked for");
    return reinterpret_cast<void**>(out);
}

#define IID_PPV_ARGS(out) __uuidof(std::remove_cvref_t<decltype(**(out))>), IID_PPV_ARGS_Helper(out)
