// The exception classes, the lock and the record of a shared handle.
#include <stdexcept>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/platform/threads.h"
#include "utility/management/util_ManagementException.h"
#include "utility/management/util_SLock.h"

namespace {

TEST(Exception, IsCaughtAsItsBaseAndCopiesWhole) {
    OS::CException copy(0, nullptr, 0);
    try {
        throw CManagementException(MGMT_ERR_VALUE_TYPE, L"utility\\management/util_X.cpp", 57);
    } catch (const OS::CException& failure) {
        copy = failure;
    }
    EXPECT_EQ(copy.GetErrorCode(), -95006);
    EXPECT_EQ(copy.GetErrorMsg(), L"error -95006");
    EXPECT_EQ(copy.GetErrorMsgEx(), L"error -95006 at util_X.cpp:57");

    const CManagementException original(MGMT_ERR_SHARED_DATA, nullptr, 1);
    CManagementException second(original);
    EXPECT_EQ(second.GetErrorCode(), -95002);
    EXPECT_EQ(second.GetErrorMsgEx(), L"error -95002 at :1");
}

struct CountingLock {
    int Lock() {
        ++taken;
        return result;
    }
    int Unlock() {
        ++released;
        return 0;
    }
    int result = 0;
    int taken = 0;
    int released = 0;
};

TEST(Guard, ReleasesOnceAndOnlyWhatItTook) {
    // Only -1 means that the lock is not held.
    for (const auto& [result, released] : {std::pair{0, 1}, {-1, 0}, {5, 1}}) {
        CountingLock lock{result};
        try {
            const Guard<CountingLock> guard(lock);
            throw std::runtime_error("left by an exception");
        } catch (const std::runtime_error&) {
        }
        EXPECT_EQ(lock.taken, 1);
        EXPECT_EQ(lock.released, released);
    }
}

TEST(Lock, BlocksOfThreadsDoNotOverlapAndItsOwnerMayEnterAgain) {
    CSLock lock;
    long long counter = 0;  // not atomic: only the lock makes the sum right
    RunInThreads(4, [&] {
        for (int n = 0; n < 20000; ++n) {
            const Guard<CSLock> guard(lock);
            const Guard<CSLock> again(lock);
            ++counter;
        }
    });
    EXPECT_EQ(counter, 80000);
}

}  // namespace
