// Every subscription, in whatever process, gets exactly the changes that match it, in commit order.
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/system/event_queries.h"
#include "tests/system/system_fixture.h"

namespace {

template <typename Record>
std::vector<Record> ReadAll(const std::string& file) {
    std::vector<Record> records(std::filesystem::file_size(file) / sizeof(Record));
    std::ifstream(file, std::ios::binary)
        .read(reinterpret_cast<char*>(records.data()),
              static_cast<std::streamsize>(records.size() * sizeof(Record)));
    return records;
}

class EventDeliveryTest : public SystemTest {
 protected:
    EventDeliveryTest() { EXPECT_TRUE(Import(kThingSchema)); }

    std::vector<LoggedChange> ReadLog() const {
        const std::string file = directory.path() + "/log";
        EXPECT_EQ(WorkerProcess({store, file}, EVENT_LOG).Wait(), 0);
        return ReadAll<LoggedChange>(file);
    }

    static std::vector<KeptEvent> Expected(const WatchedQuery& query, const std::vector<LoggedChange>& log) {
        std::vector<KeptEvent> events;
        for (const LoggedChange& change : log) {
            if (query.matches(change)) events.push_back({change.n, change.of});
        }
        return events;
    }
};

// The log of so many small changes stays below its bound, so it has all of them, and no subscriber can fall
// behind what it keeps.
TEST_F(EventDeliveryTest, AHundredSubscriptionsInTenProcessesGetWhatTheLogSays) {
    constexpr int kProcesses = 10;
    constexpr int kWriters = 4;
    const int changes = IsLongRun() ? 25'000 : kIsSanitized ? 100 : 1'000;
    const auto file_of = [&](int process) { return directory.path() + "/events-" + std::to_string(process); };
    std::vector<std::unique_ptr<WorkerProcess>> watchers, writers;
    for (int i = 0; i < kProcesses; ++i) {
        watchers.push_back(
            std::make_unique<WorkerProcess>(std::vector<std::string>{"watch", file_of(i)}, EVENT_WORKER));
    }
    for (const auto& watcher : watchers)
        ASSERT_EQ(watcher->Ask("ready"), "yes");
    for (int i = 1; i <= kWriters; ++i) {
        writers.push_back(std::make_unique<WorkerProcess>(
            std::vector<std::string>{"change", std::to_string(i), std::to_string(changes)}, EVENT_WORKER));
    }
    for (const auto& writer : writers)
        ASSERT_EQ(writer->Wait(), 0);

    const std::vector<LoggedChange> log = ReadLog();
    ASSERT_EQ(log.size(), size_t{kWriters} * static_cast<size_t>(changes));
    EXPECT_EQ(log.front().number, 1U);
    EXPECT_EQ(log.back().number, log.size());
    std::string finish = "finish";
    for (const WatchedQuery& query : kWatchedQueries)
        finish += " " + std::to_string(Expected(query, log).size());
    for (int process = 0; process < kProcesses; ++process) {
        ASSERT_EQ(watchers[static_cast<size_t>(process)]->Ask(finish), "yes");
        for (size_t i = 0; i < std::size(kWatchedQueries); ++i) {
            SCOPED_TRACE("query " + std::to_string(i) + " in process " + std::to_string(process));
            const auto expected = Expected(kWatchedQueries[i], log);
            const auto events = ReadAll<KeptEvent>(file_of(process) + "." + std::to_string(i));
            EXPECT_FALSE(expected.empty());
            EXPECT_EQ(events.size(), expected.size());
            EXPECT_TRUE(events == expected);
        }
        EXPECT_EQ(watchers[static_cast<size_t>(process)]->Wait(), 0);
    }
}

TEST_F(EventDeliveryTest, APropertyThatIsToggledRapidly) {
    const long toggles = IsLongRun() ? 10'000 : kIsSanitized ? 200 : 1'000;
    ASSERT_TRUE(PutThing(L"t", 2));
    EventRecorder recorder;
    CMgmtEventWatcher watcher(0, L"Thing", L"t", 60);
    watcher.AddEventArrivedEventHandler(&recorder);
    ASSERT_TRUE(watcher.Start());
    for (long i = 0; i < toggles; ++i)
        ASSERT_TRUE(PutThing(L"t", i % 2));
    recorder.WaitFor(static_cast<size_t>(toggles));
    EXPECT_TRUE(watcher.Stop());
    const std::vector<KeptEvent> events = recorder.WaitFor(0);
    ASSERT_EQ(events.size(), static_cast<size_t>(toggles));
    for (long i = 0; i < toggles; ++i)
        ASSERT_EQ(events[static_cast<size_t>(i)].n, i % 2) << "the event " << i;
}

}  // namespace
