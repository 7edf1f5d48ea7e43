// What the tests of the automation values share: strings with null units, counted objects, a leak check.
//
//   CountedObject* object = new CountedObject(live);
//   EXPECT_EQ(Units(text), std::wstring(L"a\0b", 3));
#pragma once

#include <atomic>
#include <string>

#include <atlbase.h>
#include <comdef.h>
#include <gtest/gtest.h>
#include <oleauto.h>

#include "tests/doubles/com_object.h"
#include "tests/doubles/failing_allocations.h"

class CountedObject final : public doubles::ComObject<IUnknown> {
 public:
    explicit CountedObject(std::atomic<long>& live) noexcept : ComObject(live) {}
};

inline std::wstring Units(BSTR text) {
    return std::wstring(text, SysStringLen(text));
}

inline BSTR MakeText(const std::wstring& units) {
    return SysAllocStringLen(units.data(), static_cast<UINT>(units.size()));
}

// A text that a C string would cut off.
inline const std::wstring WITH_NULL(L"a\0b", 3);

// The status that the action throws, S_OK if it throws nothing.
template <class Action>
HRESULT ComErrorOf(Action action) {
    try {
        action();
    } catch (const _com_error& error) {
        return error.Error();
    }
    return S_OK;
}

template <class Action>
HRESULT AtlErrorOf(Action action) {
    try {
        action();
    } catch (const CAtlException& failure) {
        return failure;
    }
    return S_OK;
}

// Makes every allocation of the attempt fail in turn, until one attempt passes without a failure. `attempt`
// must free what it made; what it leaves behind after a failure counts as a leak.
template <class Attempt>
void FailEachAllocation(Attempt attempt) {
    for (long number = 1;; ++number) {
        SCOPED_TRACE("allocation " + std::to_string(number));
        const long before = doubles::LiveAllocations();
        bool hasFailed = false;
        {
            doubles::FailingAllocation failing(number);
            attempt();
            hasFailed = failing.HasFailed();
        }
        EXPECT_EQ(doubles::LiveAllocations(), before);
        if (::testing::Test::HasFailure() || !hasFailed) return;
    }
}
