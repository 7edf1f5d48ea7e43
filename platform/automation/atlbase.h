// Owning pointers, strings and variants of the template library, and the exception they throw.
//
//   CComPtr<IWbemLocator> locator;
//   HRESULT status = locator.CoCreateInstance(CLSID_WbemLocator);
//   CComBSTR language(L"WQL");
//
// Each object belongs to one thread at a time. CComBSTR and CComVariant throw CAtlException when memory is
// exhausted or a copy fails; CComPtr throws nothing.
#pragma once

#include <cstddef>
#include <utility>

#include <atlexcept.h>
#include <objbase.h>
#include <oleauto.h>
#include <unknwn.h>

// Holds one reference to an interface, or null. A raw pointer given to it gains a reference, but for Attach.
template <class T>
class CComPtr {
 public:
    CComPtr() noexcept = default;
    CComPtr(std::nullptr_t) noexcept {}
    CComPtr(T* object) noexcept : p(object) { AddReference(); }
    CComPtr(const CComPtr& other) noexcept : p(other.p) { AddReference(); }
    CComPtr(CComPtr&& other) noexcept : p(std::exchange(other.p, nullptr)) {}
    ~CComPtr() { Release(); }

    CComPtr& operator=(T* object) noexcept { return *this = CComPtr(object); }
    CComPtr& operator=(const CComPtr& other) noexcept { return *this = CComPtr(other); }
    CComPtr& operator=(CComPtr&& other) noexcept {
        CComPtr taken(std::move(other));
        std::swap(p, taken.p);
        return *this;
    }

    operator T*() const noexcept { return p; }
    T& operator*() const noexcept { return *p; }
    T* operator->() const noexcept { return p; }
    bool operator!() const noexcept { return p == nullptr; }

    // The place for a new reference; the pointer must be null, since what it held would be lost.
    T** operator&() noexcept { return &p; }

    // The pointer is null before the interface's own Release runs, which may lead back here.
    void Release() noexcept {
        T* const object = std::exchange(p, nullptr);
        if (object != nullptr) object->Release();
    }

    // Attach takes over the caller's reference, Detach hands it to the caller.
    void Attach(T* object) noexcept {
        Release();
        p = object;
    }
    [[nodiscard]] T* Detach() noexcept { return std::exchange(p, nullptr); }

    // Stores the pointer with a reference for the caller; E_POINTER for null.
    HRESULT CopyTo(T** target) const noexcept {
        if (target == nullptr) return E_POINTER;
        AddReference();
        *target = p;
        return S_OK;
    }

    // The pointer must not be null.
    template <class Other>
    HRESULT QueryInterface(Other** target) const noexcept {
        return p->QueryInterface(IID_PPV_ARGS(target));
    }

    // The pointer must be null; it is after a failure, too.
    HRESULT CoCreateInstance(REFCLSID classId, IUnknown* outer = nullptr,
                             DWORD context = CLSCTX_ALL) noexcept {
        return ::CoCreateInstance(classId, outer, context, IID_PPV_ARGS(&p));
    }

    T* p = nullptr;

 private:
    void AddReference() const noexcept {
        if (p != nullptr) p->AddRef();
    }
};

#include "platform/automation/atl_string.h"
#include "platform/automation/atl_variant.h"
