// A process that uses the library forks: both sides go on, also when other threads were inside the service.
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/service/child_process.h"
#include "tests/system/system_fixture.h"

namespace {

class ForkTest : public SystemTest {
 protected:
    ForkTest() {
        EXPECT_TRUE(Import("class Policy { [key] string INSTANCE_ID; uint32 Days = 7; string Text; };"));
    }

    static bool PutDays(const std::wstring& id, long days) {
        CMgmtObject policy(L"Policy", id.c_str(), nullptr);
        policy.SetPropertyValue(L"INSTANCE_ID", id.c_str());
        policy.SetPropertyValue(L"Days", days);
        policy.SetPropertyValue(L"Text", TextFor(days).c_str());
        return policy.Put(true);
    }

    static long DaysOf(const std::wstring& id) {
        CMgmtObject policy(L"Policy", id.c_str(), nullptr);
        return policy.Get() ? NumberOf(policy, L"Days") : -2;
    }

    // A child that waits for a lock which nobody will release must not wait for ever.
    static void LimitTime() { alarm(60); }
};

TEST_F(ForkTest, ChildAndParentGoOn) {
    ASSERT_TRUE(PutDays(L"before", 1));
    CMgmtObject held(L"Policy", L"before", nullptr);
    ASSERT_TRUE(held.Get());
    Signal child_wrote, parent_wrote;
    ChildProcess child([&] {
        LimitTime();
        if (DaysOf(L"before") != 1) return 1;
        held.SetPropertyValue(L"Days", 2L);
        if (!held.Put(false)) return 2;
        child_wrote.Give();
        parent_wrote.Take();
        if (DaysOf(L"before") != 3) return 3;
        // A child of the child.
        return RunInChild([] { return PutDays(L"grandchild", 4) ? 0 : 1; });
    });
    child_wrote.Take();
    EXPECT_EQ(DaysOf(L"before"), 2);
    EXPECT_EQ(NumberOf(held, L"Days"), 1);
    held.SetPropertyValue(L"Days", 3L);
    EXPECT_TRUE(held.Put(false));
    parent_wrote.Give();
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_EQ(DaysOf(L"grandchild"), 4);
}

// The child ends as programs do, with destructors and the unloading of libraries.
TEST_F(ForkTest, AChildMayExit) {
    ASSERT_TRUE(PutDays(L"before", 1));
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        LimitTime();
        const bool is_well = DaysOf(L"before") == 1 && PutDays(L"child", 5);
        MgmtUninitialize();
        std::exit(is_well ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(DaysOf(L"child"), 5);
    EXPECT_TRUE(PutDays(L"before", 6));
}

TEST_F(ForkTest, OtherThreadsMayBeInside) {
    std::atomic<bool> is_done{false};
    std::atomic<int> faults{0};
    if (kIsSanitized) GTEST_SKIP() << "a sanitizer's own allocator does not survive such a fork";
    ASSERT_TRUE(PutDays(L"thread-0", 0));
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            const ComThread own;
            const std::wstring id = L"thread-" + Digits(i);
            for (long days = 0; !is_done; ++days) {
                if (!PutDays(id, days) || DaysOf(id) != days) ++faults;
                // New connections too, so that forks meet the opening of stores and the loading of classes.
                CMgmtScope scope;
                scope.Connect();
                if (!scope.IsConnected()) ++faults;
            }
        });
    }
    const int forks = 60;
    for (int i = 0; i < forks; ++i) {
        EXPECT_EQ(RunInChild([i] {
                      LimitTime();
                      const std::wstring id = L"child-" + Digits(i);
                      if (!PutDays(id, i) || DaysOf(id) != i) return 1;
                      CMgmtScope scope;
                      scope.Connect();
                      return scope.IsConnected() && DaysOf(L"thread-0") >= 0 ? 0 : 2;
                  }),
                  0)
            << "fork " << i;
        if (HasFailure()) break;
    }
    is_done = true;
    threads.clear();
    EXPECT_EQ(faults, 0);
    for (int i = 0; i < forks && !HasFailure(); ++i)
        EXPECT_EQ(DaysOf(L"child-" + Digits(i)), i);
}

}  // namespace
