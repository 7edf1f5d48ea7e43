// What the tests share that make allocations fail within the library.
#pragma once

#include <new>

#include <atlbase.h>
#include <comdef.h>

#include "tests/platform/automation_values.h"
#include "utility/management/util_ManagementException.h"

// Runs the action; false when it told that memory is exhausted, in one of the ways that the library names.
// `sharedDataFailures` counts how often that was a CManagementException.
template <typename Action>
bool Succeeds(const Action& action, int* sharedDataFailures = nullptr) {
    try {
        action();
        return true;
    } catch (const CManagementException& failure) {
        const doubles::SparedAllocations spared;
        EXPECT_EQ(failure.GetErrorCode(), MGMT_ERR_SHARED_DATA);
        if (sharedDataFailures != nullptr) ++*sharedDataFailures;
    } catch (const _com_error& failure) {
        EXPECT_EQ(failure.Error(), E_OUTOFMEMORY);
    } catch (const CAtlException& failure) {
        EXPECT_EQ(failure.m_hr, E_OUTOFMEMORY);
    } catch (const std::bad_alloc&) {
    }
    return false;
}
