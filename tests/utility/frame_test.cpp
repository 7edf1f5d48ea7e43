// The exception classes, the lock and the record of a shared handle.
#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
    CountingLock lock;
    EXPECT_THROW(
        {
            const Guard<CountingLock> guard(lock);
            throw std::runtime_error("left by an exception");
        },
        std::runtime_error);
    EXPECT_EQ(lock.taken, 1);
    EXPECT_EQ(lock.released, 1);

    CountingLock refusing{-1};
    { const Guard<CountingLock> guard(refusing); }
    EXPECT_EQ(refusing.released, 0);

    CountingLock odd{5};
    { const Guard<CountingLock> guard(odd); }
    EXPECT_EQ(odd.released, 1) << "only -1 means that the lock is not held";
}

TEST(Lock, BlocksOfThreadsDoNotOverlapAndItsOwnerMayEnterAgain) {
    CSLock lock;
    long long counter = 0;  // not atomic: only the lock makes the sum right
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int n = 0; n < 20000; ++n) {
                const Guard<CSLock> guard(lock);
                const Guard<CSLock> again(lock);
                ++counter;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(counter, 80000);
}

}  // namespace
