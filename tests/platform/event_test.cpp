#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <list>
#include <set>
#include <string>
#include <thread>

#include <pthread.h>

#include <windows.h>

#include "tests/doubles/failing_allocations.h"
#include "tests/platform/events.h"
#include "tests/platform/threads.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::IsEmpty;

// Threads that sleep at an event until it lets them through.
class Sleepers {
 public:
    Sleepers(HANDLE event, int count) {
        for (int i = 0; i < count; ++i) {
            std::atomic<pid_t>& id = ids_.emplace_back(0);
            threads_.emplace_back([this, event, &id] {
                id = gettid();
                if (WaitForSingleObject(event, INFINITE) == WAIT_OBJECT_0) ++released_;
            });
        }
        for (const auto& id : ids_)
            AwaitSleeper(id);
    }

    int Released() const { return released_; }
    void Await(int released) const {
        while (released_ < released)
            std::this_thread::sleep_for(milliseconds(1));
    }

 private:
    std::atomic<int> released_{0};
    std::list<std::atomic<pid_t>> ids_;
    std::list<std::jthread> threads_;
};

Handle Unnamed(bool is_manual, bool is_set = false) {
    return Handle(CreateEventW(nullptr, is_manual, is_set, nullptr));
}

TEST(EventTest, AutomaticOneLetsOneWaitThroughAManualOneAllUntilItIsReset) {
    for (const bool is_manual : {false, true}) {
        const Handle event = Unnamed(is_manual, true);
        EXPECT_TRUE(IsLetThrough(event));
        EXPECT_EQ(IsLetThrough(event), is_manual);
        EXPECT_TRUE(SetEvent(event.get()));
        EXPECT_TRUE(SetEvent(event.get()));
        EXPECT_TRUE(IsLetThrough(event, INFINITE));
        EXPECT_EQ(IsLetThrough(event), is_manual);
        EXPECT_TRUE(SetEvent(event.get()));
        EXPECT_TRUE(ResetEvent(event.get()));
        EXPECT_TRUE(ResetEvent(event.get()));
        EXPECT_FALSE(IsLetThrough(event));
    }
}

TEST(EventTest, EachSetReleasesOneSleeperEvenIfNoneHasRunYet) {
    const Handle event = Unnamed(false);
    Sleepers sleepers(event.get(), 4);
    SetEvent(event.get());
    SetEvent(event.get());
    sleepers.Await(2);
    EXPECT_FALSE(IsLetThrough(event, 20));
    EXPECT_EQ(sleepers.Released(), 2);
    SetEvent(event.get());
    SetEvent(event.get());
    SetEvent(event.get());
    sleepers.Await(4);
    EXPECT_TRUE(IsLetThrough(event)) << "nobody slept at the last set";
}

TEST(EventTest, ResetTakesNothingFromThoseWhoSleptWhenItWasSet) {
    for (const bool is_manual : {false, true}) {
        const Handle event = Unnamed(is_manual);
        Sleepers sleepers(event.get(), is_manual ? 3 : 1);
        SetEvent(event.get());
        ResetEvent(event.get());
        sleepers.Await(is_manual ? 3 : 1);
        EXPECT_FALSE(IsLetThrough(event));
    }
}

// Every way into the word at once: sets, sleeps with and without end, looks, resets. What the event guards is
// handed out exactly once and never forgotten: a wake-up that is lost leaves the test waiting.
TEST(EventTest, NoWakeUpIsLostAndNoThreadRaces) {
    constexpr long ROUNDS = 4'000;
    for (const bool is_manual : {false, true}) {
        const Handle event = Unnamed(is_manual);
        std::atomic<long> waiting = 0, taken = 0;
        const auto take = [&] { taken += waiting.exchange(0); };
        std::list<std::jthread> threads;
        for (const DWORD time : {INFINITE, INFINITE, DWORD{1}, DWORD{0}})
            threads.emplace_back([&, time] {
                while (taken < 2 * ROUNDS) {
                    if (is_manual) ResetEvent(event.get());
                    // After the reset, so that what came before it is not forgotten.
                    take();
                    if (taken < 2 * ROUNDS && IsLetThrough(event, time)) take();
                }
                SetEvent(event.get());
            });
        RunInThreads(2, [&] {
            for (long round = 0; round < ROUNDS; ++round) {
                ++waiting;
                SetEvent(event.get());
                if (round % 16 == 0) std::this_thread::sleep_for(std::chrono::microseconds(50));
            }
        });
        threads.clear();
        EXPECT_EQ(taken, 2 * ROUNDS);
    }
}

// In lockstep, so that each thread goes to sleep just when the other sets: a single set that is lost leaves
// both asleep.
TEST(EventTest, WhatWasDoneBeforeTheSetIsSeenBehindTheWait) {
    constexpr int ROUNDS = 30'000;
    for (const bool is_manual : {false, true}) {
        const Handle asked = Unnamed(false);
        const Handle answered = Unnamed(is_manual);
        // Not atomic: the thread sanitizer watches that the events alone order the accesses.
        int value = 0;
        std::jthread other([&] {
            for (int round = 0; round < ROUNDS; ++round) {
                WaitForSingleObject(asked.get(), INFINITE);
                ++value;
                SetEvent(answered.get());
            }
        });
        for (int round = 0; round < ROUNDS; ++round) {
            ASSERT_EQ(value, round);
            SetEvent(asked.get());
            ASSERT_TRUE(IsLetThrough(answered, INFINITE));
            if (is_manual) ResetEvent(answered.get());
        }
    }
}

TEST(EventTest, TimeOutIsNeverShort) {
    struct sigaction action = {}, before = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, &before);
    {
        const Handle event = Unnamed(false);
        std::jthread disturber([sleeper = pthread_self()](const std::stop_token& stop) {
            while (!stop.stop_requested()) {
                pthread_kill(sleeper, SIGUSR1);
                std::this_thread::sleep_for(milliseconds(5));
            }
        });
        const auto start = steady_clock::now();
        EXPECT_EQ(WaitForSingleObject(event.get(), 1060), WAIT_TIMEOUT);
        EXPECT_GE(steady_clock::now() - start, milliseconds(1060));
    }
    sigaction(SIGUSR1, &before, nullptr);
}

TEST(EventTest, OnlyOpenHandlesAreHandles) {
    Handle event = Unnamed(true, true);
    const HANDLE closed = event.get();
    event.Close();
    const Handle next = Unnamed(true, true);
    int local = 0;
    const HANDLE beside = static_cast<char*>(next.get()) + 1;
    for (const HANDLE handle : {HANDLE{closed}, HANDLE{nullptr}, HANDLE{&local}, beside})
        for (const auto call : {CloseHandle, SetEvent, ResetEvent}) {
            SetLastError(ERROR_SUCCESS);
            EXPECT_FALSE(call(handle));
            EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
            SetLastError(ERROR_SUCCESS);
            EXPECT_EQ(WaitForSingleObject(handle, INFINITE), WAIT_FAILED);
            EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
        }
    EXPECT_TRUE(IsLetThrough(next));
}

TEST(EventTest, HandleGivesTheRightsItWasOpenedWith) {
    const std::wstring name = TestName();
    const Handle event = CreateManual(name);
    const Handle setter = Open(name, EVENT_MODIFY_STATE);
    const Handle waiter = Open(name, SYNCHRONIZE);
    EXPECT_TRUE(SetEvent(setter.get()));
    EXPECT_TRUE(IsLetThrough(waiter));
    EXPECT_EQ(WaitForSingleObject(setter.get(), 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    SetLastError(ERROR_SUCCESS);
    EXPECT_FALSE(ResetEvent(waiter.get()));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_FALSE(Open(name, 0x40));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
}

TEST(EventTest, ClosedHandleIsUsedByWhoWaitsOnIt) {
    const std::wstring name = TestName();
    Handle event = CreateAutomatic(name);
    Sleepers sleepers(event.get(), 2);
    event.Close();
    Handle other = Open(name);
    ASSERT_TRUE(other);
    SetEvent(other.get());
    sleepers.Await(1);
    SetEvent(other.get());
    sleepers.Await(2);
    other.Close();
    while (OpenError(name) == ERROR_SUCCESS)
        std::this_thread::yield();
    EXPECT_THAT(FilesOf(name), IsEmpty());
}

TEST(EventTest, CreateSaysWhetherTheEventIsNew) {
    const std::wstring name = TestName();
    SetLastError(ERROR_FILE_NOT_FOUND);
    Handle first(CreateEventW(nullptr, TRUE, TRUE, name.c_str()));
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    Handle second = CreateAutomatic(name);
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    first.Close();
    EXPECT_TRUE(IsLetThrough(second) && IsLetThrough(second)) << "it is the manual one, which is set";
    second.Close();
    EXPECT_EQ(OpenError(name), ERROR_FILE_NOT_FOUND);
    EXPECT_THAT(FilesOf(name), IsEmpty());
    EXPECT_FALSE(IsLetThrough(CreateManual(name)));
}

TEST(EventTest, NamesAreToldApartByEveryUnit) {
    const std::wstring base = TestName();
    const std::wstring filler(MAX_PATH - base.size() - 1, L'n');
    std::list<Handle> events;
    for (const std::wstring& name :
         {base, base + L"A", base + L"a", base + L"/a", base + L"_a", base + L"\x1F600", base + L"\xD800",
          base + filler + L"1", base + filler + L"2"}) {
        events.push_back(CreateManual(name));
        EXPECT_TRUE(events.back() && GetLastError() == ERROR_SUCCESS);
    }
    EXPECT_EQ(OpenError(L"Global\\" + base), ERROR_SUCCESS);
    EXPECT_EQ(OpenError(L"Local\\" + base), ERROR_SUCCESS);
}

TEST(EventTest, WhatCannotBeANameIsRefused) {
    const struct {
        std::wstring name;
        DWORD error;
    } cases[] = {{L"", ERROR_INVALID_NAME},
                 {L"Global\\", ERROR_INVALID_NAME},
                 {L"global\\a", ERROR_PATH_NOT_FOUND},
                 {L"Local\\Local\\a", ERROR_PATH_NOT_FOUND},
                 {L"a\\", ERROR_PATH_NOT_FOUND},
                 {std::wstring(MAX_PATH + 1, L'n'), ERROR_FILENAME_EXCED_RANGE}};
    for (const auto& [name, error] : cases) {
        EXPECT_FALSE(CreateManual(name));
        EXPECT_EQ(GetLastError(), error);
        EXPECT_EQ(OpenError(name), error);
    }
    EXPECT_EQ(OpenEventW(EVENT_ALL_ACCESS, FALSE, nullptr), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    int attributes = 0;
    EXPECT_EQ(CreateEventW(reinterpret_cast<LPSECURITY_ATTRIBUTES>(&attributes), FALSE, FALSE, nullptr),
              nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(EventTest, MemoryThatRunsOutLeavesNoFile) {
    const std::wstring name = TestName();
    bool is_made = false;
    for (long allocation = 1; !is_made; ++allocation) {
        {
            const doubles::FailingAllocation failing(allocation);
            is_made = static_cast<bool>(CreateManual(name));
            EXPECT_NE(is_made, failing.HasFailed());
        }
        EXPECT_EQ(GetLastError(), is_made ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_MEMORY);
        EXPECT_THAT(FilesOf(name), IsEmpty());
    }
}

}  // namespace
