// Subscriptions among processes that are killed, fork and end, and ones that fall behind.
#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/service/child_process.h"
#include "tests/system/event_recorder.h"
#include "tests/system/process_resources.h"
#include "tests/system/system_fixture.h"

namespace {

class EventEnduranceTest : public SystemTest {
 protected:
    EventEnduranceTest() { EXPECT_TRUE(Import(kThingSchema)); }

    // What a later run could trip over.
    std::set<std::string> Files() const {
        std::set<std::string> names;
        for (const std::string& path : {store, std::string("/dev/shm")}) {
            for (const auto& entry : std::filesystem::directory_iterator(path))
                names.insert(entry.path());
        }
        return names;
    }

    // What a process logs as failures goes to its standard error. It ends in time.
    template <typename Action>
    int RunSubscriber(Action action) {
        const std::string file = directory.path() + "/errors";
        const int code = RunInChild([&] {
            alarm(250);
            return std::freopen(file.c_str(), "w", stderr) ? action() : 99;
        });
        std::stringstream text;
        text << std::ifstream(file).rdbuf();
        overflows = 0;
        for (size_t at = 0; (at = text.str().find("SetStatus(0x80041061)", at)) != std::string::npos; ++at)
            ++overflows;
        return code;
    }

    static int RunWorker(std::vector<std::string> arguments) {
        return WorkerProcess(std::move(arguments), EVENT_WORKER).Wait();
    }

    std::mt19937 random{20261123};
    int overflows = 0;  // that the subscriber was told of
};

// These see what is one for the whole machine, so no other test may run with them.
class EventAloneTest : public EventEnduranceTest {};

// Counts are told once each, in order, whoever counts; several counters at once.
class CountsInOrder {
 public:
    void Take(const KeptEvent& event) {
        const std::lock_guard lock(mutex_);
        if (event.n != ++counts_[event.unit]) is_broken_ = true;
        changed_.notify_all();
    }
    // Whether the counter was told to be at `n` at last, and every number before.
    bool Reaches(int64_t unit, int64_t n) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(60), [&] { return counts_[unit] >= n; }) &&
               !is_broken_;
    }

 private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<int64_t, int64_t> counts_;
    bool is_broken_ = false;
};

// A counting process that is killed and followed by another one.
struct Counter {
    explicit Counter(wchar_t unit) : id(1, unit) {}

    void Start() {
        process = std::make_unique<WorkerProcess>(
            std::vector<std::string>{"count", std::string(id.begin(), id.end()), std::to_string(reported)},
            EVENT_WORKER);
    }
    // What it found amiss is its exit code.
    void Kill() {
        process->Kill();
        EXPECT_EQ(process->Wait(), 1000 + SIGKILL);
        while (const auto number = process->NextNumber())
            reported = *number;
    }

    std::wstring id;
    std::unique_ptr<WorkerProcess> process;
    long reported = 0;
};

TEST_F(EventAloneTest, WhoeverIsKilledNobodyElseNotices) {
    const int kills = IsLongRun() ? 1'000 : kIsSanitized ? 12 : 60;
    CountsInOrder counts;
    EventRecorder recorder;
    recorder.during = [&](const KeptEvent& event) { counts.Take(event); };
    CMgmtEventWatcher survivor(
        L"SELECT * FROM __InstanceOperationEvent WITHIN 1 WHERE "
        L"TargetInstance ISA 'Thing'");
    survivor.AddEventArrivedEventHandler(&recorder);
    ASSERT_TRUE(survivor.Start());
    const std::set<std::string> files_before = Files();

    Counter counters[] = {Counter(L'a'), Counter(L'b'), Counter(L'c')};
    std::unique_ptr<WorkerProcess> watchers[2];
    const auto watch = [&](std::unique_ptr<WorkerProcess>& watcher) {
        watcher = std::make_unique<WorkerProcess>(
            std::vector<std::string>{"watch", directory.path() + "/none"}, EVENT_WORKER);
    };
    for (Counter& counter : counters)
        counter.Start();
    for (auto& watcher : watchers)
        watch(watcher);
    for (int i = 0; i < kills && !HasFailure(); ++i) {
        SCOPED_TRACE("kill " + std::to_string(i));
        std::this_thread::sleep_for(std::chrono::microseconds(random() % (kIsSanitized ? 300'000 : 40'000)));
        const size_t victim = random() % 5;
        if (victim < 2) {
            watchers[victim]->Kill();
            EXPECT_EQ(watchers[victim]->Wait(), 1000 + SIGKILL);
            watch(watchers[victim]);
            continue;
        }
        Counter& counter = counters[victim - 2];
        counter.Kill();
        EXPECT_TRUE(counts.Reaches(counter.id[0], counter.reported)) << "of " << counter.reported;
        CMgmtObject stored(L"Thing", counter.id.c_str(), nullptr);
        const long n = stored.Get() ? NumberOf(stored, L"N") : 0;
        EXPECT_TRUE(n == counter.reported || n == counter.reported + 1) << n << " " << counter.reported;
        EXPECT_TRUE(counts.Reaches(counter.id[0], n));
        counter.reported = n;
        counter.Start();
    }
    for (Counter& counter : counters) {
        counter.Kill();
        EXPECT_GT(counter.reported, kills / 10) << "the counters came to count";
        EXPECT_TRUE(counts.Reaches(counter.id[0], counter.reported));
    }
    for (auto& watcher : watchers)
        watcher = nullptr;
    EXPECT_TRUE(survivor.Stop());
    EXPECT_EQ(Files(), files_before);
    EXPECT_TRUE(PutThing(L"after", 1));
}

TEST_F(EventEnduranceTest, StartedAndStoppedWhileEventsFlow) {
    const WorkerProcess busy({"change", "1", "1000000000"}, EVENT_WORKER);
    EXPECT_EQ(RunWorker({"churn", IsLongRun() ? "10000" : kIsSanitized ? "200" : "1000"}), 0);
}

// A handler that never returns delays no other subscription, and a process may end as it pleases.
TEST_F(EventEnduranceTest, AProcessEndsWithSubscriptionsRunning) {
    setenv("MGMT_LOG", (directory.path() + "/log").c_str(), 1);
    // The search for leaks does not get along with threads that are still running.
    const char* const sanitizer = std::getenv("ASAN_OPTIONS");
    const std::string options = sanitizer ? sanitizer : "";
    setenv("ASAN_OPTIONS", (options + ":detect_leaks=0").c_str(), 1);
    const WorkerProcess busy({"change", "1", "1000000000"}, EVENT_WORKER);
    for (const char* how : {"blocked", "return", "exit", "throw"}) {
        for (int i = 0; i < (IsLongRun() ? 100 : 2); ++i)
            EXPECT_EQ(RunWorker({"end", how}), 0) << how;
    }
    setenv("ASAN_OPTIONS", options.c_str(), 1);
    unsetenv("MGMT_LOG");
}

TEST_F(EventEnduranceTest, AHandlerMayEndAnothersWatcher) {
    EventRecorder other_recorder, recorder;
    auto other = std::make_unique<CMgmtEventWatcher>(1, L"Thing", nullptr, 1);
    other->AddEventArrivedEventHandler(&other_recorder);
    CMgmtEventWatcher watcher(1, L"Thing", nullptr, 1);
    watcher.AddEventArrivedEventHandler(&recorder);
    recorder.during = [&](const KeptEvent&) {
        if (!other) return;
        EXPECT_TRUE(other->Stop());
        other = nullptr;
        EXPECT_TRUE(watcher.Stop());
        EXPECT_FALSE(watcher.Stop());
        EXPECT_TRUE(watcher.Start());
    };
    ASSERT_TRUE(other->Start());
    ASSERT_TRUE(watcher.Start());
    for (long n = 1; n <= 3; ++n) {
        ASSERT_TRUE(PutThing(L"t-" + Digits(n), n));
        recorder.WaitFor(static_cast<size_t>(n));
    }
    EXPECT_EQ(recorder.WaitFor(3), (std::vector<KeptEvent>{{1, 't'}, {2, 't'}, {3, 't'}}));
    EXPECT_LE(other_recorder.WaitFor(0).size(), 1U);
    EXPECT_TRUE(watcher.Stop());
}

TEST_F(EventEnduranceTest, AForkedChildHasItsOwnSubscriptions) {
    if (kIsSanitized) GTEST_SKIP() << "a sanitizer has no threads in the child of a process with threads";
    EventRecorder recorder;
    CMgmtEventWatcher watcher(1, L"Thing", nullptr, 1);
    watcher.AddEventArrivedEventHandler(&recorder);
    ASSERT_TRUE(watcher.Start());
    ASSERT_TRUE(PutThing(L"before", 1));
    recorder.WaitFor(1);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        alarm(60);
        if (watcher.Stop()) std::exit(2);
        EventRecorder own_recorder;
        CMgmtEventWatcher own(1, L"Thing", nullptr, 1);
        own.AddEventArrivedEventHandler(&own_recorder);
        if (!own.Start() || !PutThing(L"child", 2)) std::exit(3);
        if (own_recorder.WaitFor(1) != std::vector<KeptEvent>{{2, 'c'}} || !own.Stop()) std::exit(4);
        std::exit(recorder.WaitFor(0).size() == 1 ? 0 : 5);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    ASSERT_TRUE(PutThing(L"parent", 3));
    EXPECT_EQ(recorder.WaitFor(3), (std::vector<KeptEvent>{{1, 'b'}, {2, 'c'}, {3, 'p'}}));
    EXPECT_TRUE(watcher.Stop());
}

// A subscription goes on with the store that it began with; one that begins later has the new one.
TEST_F(EventEnduranceTest, TheStoreMayBeRemovedAndMadeAgain) {
    EventRecorder before_recorder, after_recorder;
    CMgmtEventWatcher before(1, L"Thing", nullptr, 1);
    before.AddEventArrivedEventHandler(&before_recorder);
    ASSERT_TRUE(before.Start());
    std::filesystem::remove_all(store);
    MgmtInitialize(L"\\\\.\\root\\Vantrel\\Halvenor");
    ASSERT_TRUE(Import(kThingSchema));
    CMgmtEventWatcher after(1, L"Thing", nullptr, 1);
    after.AddEventArrivedEventHandler(&after_recorder);
    ASSERT_TRUE(after.Start());
    ASSERT_TRUE(PutThing(L"new", 1));
    EXPECT_EQ(after_recorder.WaitFor(1).size(), 1U);
    EXPECT_TRUE(before.Stop());
    EXPECT_TRUE(before.Start());
    ASSERT_TRUE(PutThing(L"newer", 2));
    EXPECT_EQ(after_recorder.WaitFor(2).size(), 2U);
    EXPECT_TRUE(before.Stop());
    EXPECT_TRUE(after.Stop());
    EXPECT_TRUE(before_recorder.WaitFor(0).empty());
}

// Changes `megabytes` of texts of an instance of a class that nobody watches.
bool Flood(int megabytes) {
    for (int i = 0; i < megabytes; ++i) {
        CMgmtObject thing(L"SubThing", L"flood", nullptr);
        thing.SetPropertyValue(L"INSTANCE_ID", L"flood");
        thing.SetPropertyValue(L"Text", std::wstring(1 << 20, i % 2 ? L'x' : L'y').c_str());
        if (!thing.Put(true)) return false;
    }
    return true;
}

// Of what a blocked handler has not taken; the log keeps 64 MiB.
TEST_F(EventAloneTest, OverflowIsToldOnceAndTheStoreStaysSmall) {
    WorkerProcess reload({"reload"}, EVENT_WORKER);
    ASSERT_EQ(reload.Ask("now"), "no");
    const auto subscribe = [] {
        EventRecorder recorder;
        Signal inside, flooded;
        recorder.during = [&](const KeptEvent& event) {
            if (event.n != 1) return;
            inside.Give();
            flooded.Take();
        };
        CMgmtEventWatcher watcher(1, L"Other", nullptr, 1);
        watcher.AddEventArrivedEventHandler(&recorder);
        if (!watcher.Start() || !PutThing(L"w", 1, L"Other")) return 1;
        inside.Take();
        if (!PutThing(L"lost", 2, L"Other") || !Flood(kIsSanitized ? 45 : 120)) return 2;
        flooded.Give();
        // What comes before the gap was noticed is lost, too.
        long n = 3;
        for (; recorder.WaitFor(0).size() < 2 && n < 10'000; ++n) {
            if (!PutThing(L"w" + Digits(n), n, L"Other")) return 3;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        if (recorder.WaitFor(2)[1].n == 2) return 4;
        // From then on nothing is.
        for (const long last = n + 20; n < last; ++n) {
            if (!PutThing(L"w" + Digits(n), n, L"Other")) return 5;
        }
        while (recorder.WaitFor(0).back().n != n - 1)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return watcher.Stop() ? 0 : 6;
    };
    EXPECT_EQ(RunSubscriber(subscribe), 0);
    EXPECT_EQ(overflows, 1);
    EXPECT_EQ(reload.Ask("once"), "signalled");
    EXPECT_EQ(reload.Ask("now"), "no");
    EXPECT_LT(std::filesystem::file_size(store + "/data.mdb"), 100U << 20);
}

// A subscription that was busy while changes that are not for it were looked at is not taken for a slow one
// later, when the log gives them up.
TEST_F(EventEnduranceTest, WhoKeepsUpIsNeverToldOfAGap) {
    const auto subscribe = [] {
        constexpr long kTwoCalls = 32;
        Signal inside;
        EventRecorder slow, others;
        std::atomic<bool> may_go_on{false};
        slow.during = [&](const KeptEvent& event) {
            if (event.n == 0) inside.Give();
            while (!may_go_on)
                std::this_thread::yield();
        };
        CMgmtEventWatcher slow_watcher(1, L"Other", nullptr, 1), other_watcher(1, L"Thing", L"t", 1);
        slow_watcher.AddEventArrivedEventHandler(&slow);
        other_watcher.AddEventArrivedEventHandler(&others);
        if (!slow_watcher.Start() || !other_watcher.Start()) return 1;
        PutThing(L"o", 0, L"Other");
        inside.Take();
        for (long n = 1; n <= kTwoCalls; ++n)
            PutThing(L"o" + Digits(n), n, L"Other");
        PutThing(L"t", 1);
        others.WaitFor(1);
        may_go_on = true;
        slow.WaitFor(kTwoCalls + 1);
        if (!Flood(45) || !PutThing(L"last", 99, L"Other")) return 2;
        const bool is_well = slow.WaitFor(kTwoCalls + 2).back().n == 99;
        return is_well && slow_watcher.Stop() && other_watcher.Stop() ? 0 : 3;
    };
    EXPECT_EQ(RunSubscriber(subscribe), 0);
    EXPECT_EQ(overflows, 0);
}

}  // namespace
