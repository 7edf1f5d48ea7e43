// The reference counting that every double needs, with a count of those alive.
//
//   class FakeLocator : public doubles::ComObject<IWbemLocator> { ... };
//   CComPtr<IWbemLocator> locator(new FakeLocator(live));
//
// Made with a count of 0; deletes itself with the last reference. AddRef and Release may come on any thread.
#pragma once

#include <atomic>

#include <unknwn.h>

#include "tests/doubles/failing_allocations.h"

namespace doubles {

template <typename First, typename... Others>
class ComObject : public First, public Others... {
 public:
    HRESULT QueryInterface(REFIID riid, void** ppvObject) override {
        *ppvObject = nullptr;
        if (riid == __uuidof(IUnknown) || riid == __uuidof(First)) *ppvObject = static_cast<First*>(this);
        ((riid == __uuidof(Others) ? void(*ppvObject = static_cast<Others*>(this)) : void()), ...);
        if (*ppvObject == nullptr) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }

    ULONG AddRef() override { return static_cast<ULONG>(++m_References); }

    ULONG Release() override {
        const long left = --m_References;
        if (left == 0) {
            const SparedAllocations spared;
            delete this;
        }
        return static_cast<ULONG>(left);
    }

 protected:
    explicit ComObject(std::atomic<long>& live) noexcept : m_Live(live) { ++m_Live; }
    virtual ~ComObject() { --m_Live; }
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

 private:
    std::atomic<long>& m_Live;
    std::atomic<long> m_References{0};
};

}  // namespace doubles
