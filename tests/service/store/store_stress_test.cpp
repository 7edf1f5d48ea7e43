// The store against a model of it, against processes that die and against each other's threads.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/service/child_process.h"
#include "tests/service/store/repository_fixture.h"
#include "tests/service/store/store_access.h"
#include "tests/service/temporary_directory.h"

namespace service {
namespace {

using testing::HasSubstr;

using Model = std::map<std::pair<uint32_t, std::string>, std::string>;

std::vector<std::string> SampleKeys() {
    std::vector<std::string> keys;
    for (const size_t size : {0, 1, 400, 505, 506, 507, 508, 1'000}) {
        for (const char* end : {"", "a", "b"})
            keys.push_back(std::string(size, 'k') + end);
    }
    return keys;
}

// What the log says happened, carried out on an empty model.
Model ReplayOf(const std::vector<Change>& changes) {
    Model model;
    for (const Change& change : changes) {
        auto& record = model[{change.class_id, change.key}];
        EXPECT_EQ(record, change.before) << "change " << change.number;
        record = change.after;
        if (change.kind == ChangeKind::kDeleted) model.erase({change.class_id, change.key});
    }
    return model;
}

// A few changes, the same for the same seed: a write may run more than once.
Status ChangeAtRandom(StoreWriter& writer, unsigned seed, const std::vector<std::string>& keys,
                      Model& model) {
    std::mt19937 choice(seed);
    for (int operation = 0; operation < 12; ++operation) {
        const uint32_t class_id = 1 + static_cast<uint32_t>(choice() % 3);
        const std::string& key = keys[choice() % keys.size()];
        if (choice() % 3 == 0) {
            SERVICE_RETURN_IF_ERROR(DeleteIn(writer, class_id, key));
            model.erase({class_id, key});
        } else {
            const std::string record = "r" + std::string(choice() % 9'000, 'x');
            SERVICE_RETURN_IF_ERROR(PutIn(writer, class_id, key, record));
            model[{class_id, key}] = record;
        }
    }
    return {};
}

TEST(StoreStress, RandomOperationsMatchAModel) {
    TemporaryDirectory directory;
    const auto store = OpenStore(directory.path() + "/store", {.map_bytes = size_t{1} << 20});
    const std::vector<std::string> keys = SampleKeys();
    std::mt19937 random(99);
    Model model;
    for (int round = 0; round < 150; ++round) {
        const bool is_spoiled = random() % 4 == 0;
        const auto seed = static_cast<unsigned>(random());
        Model next;
        const Status result = store->Write([&](StoreWriter& writer) -> Status {
            next = model;
            SERVICE_RETURN_IF_ERROR(ChangeAtRandom(writer, seed, keys, next));
            return is_spoiled ? Status(WBEM_E_FAILED, "spoiled") : Status();
        });
        ASSERT_EQ(result.ok(), !is_spoiled) << result.reason();
        if (!is_spoiled) model = std::move(next);
        for (const std::string& key : keys) {
            const auto expected = model.find({2, key});
            ASSERT_EQ(Get(*store, 2, key),
                      expected == model.end() ? std::nullopt : std::optional<std::string>(expected->second))
                << "round " << round;
        }
    }
    size_t records = 0;
    for (const uint32_t class_id : {1, 2, 3})
        records += Scan(*store, class_id).size();
    EXPECT_EQ(records, model.size());
    EXPECT_TRUE(ReplayOf(ChangesAfter(*store, 0)) == model) << "the log tells another story";
}

// The map of the writer may have grown when it dies; whoever opens the store next begins with a small one.
TEST(StoreStress, KilledWritersWithSmallMaps) {
    TemporaryDirectory directory;
    const std::string path = directory.path() + "/store";
    constexpr StoreOptions kSmall{.map_bytes = size_t{1} << 20, .change_log_bytes = size_t{1} << 20};
    std::mt19937 random(4);
    for (int i = 0; i < 30; ++i) {
        SCOPED_TRACE("kill " + std::to_string(i));
        Signal begun;
        const ChildProcess writer([&]() -> int {
            const auto store = OpenStore(path, kSmall);
            begun.Give();
            for (int number = i * 1'000;; ++number)
                Put(*store, 1, std::to_string(number),
                    std::string(30'000, static_cast<char>('a' + number % 26)));
        });
        begun.Take();
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 20'000));
        writer.Kill();
    }
    EXPECT_EQ(RunInChild([&] {
                  const auto store = OpenStore(path, kSmall);
                  for (const std::string& record : Scan(*store, 1)) {
                      if (record != std::string(30'000, record.front())) return 1;
                  }
                  const std::vector<Change> changes = ChangesAfter(*store, 0);
                  for (size_t i = 1; i < changes.size(); ++i) {
                      if (changes[i].number != changes[i - 1].number + 1) return 2;
                  }
                  Put(*store, 1, "after", "x");
                  return testing::Test::HasFailure() ? 3 : 0;
              }),
              0);
}

TEST(StoreStress, ReadersThatDiedGiveTheirPlacesBack) {
    TemporaryDirectory directory;
    const std::string path = directory.path() + "/store";
    constexpr StoreOptions kFewReaders{.max_readers = 4};
    const auto store = OpenStore(path, kFewReaders);
    Put(*store, 1, "k", "v");
    for (int i = 0; i < 10; ++i) {
        Signal inside;
        const ChildProcess reader([&]() -> int {
            const auto own = OpenStore(path, kFewReaders);
            EXPECT_OK(own->Read([&](StoreReader& state) {
                EXPECT_EQ(GetIn(state, 1, "k"), "v");
                inside.Give();
                pause();
                return Status();
            }));
            return 1;
        });
        inside.Take();
        reader.Kill();
    }
    EXPECT_EQ(Get(*store, 1, "k"), "v");

    // More readers at once than there are places get a status, and the next one a place again.
    std::mutex mutex;
    std::condition_variable changed;
    int arrived = 0;
    std::atomic<int> refused{0};
    constexpr int kReaders = 6;
    const auto arrive = [&] {
        std::unique_lock lock(mutex);
        ++arrived;
        changed.notify_all();
        changed.wait(lock, [&] { return arrived == kReaders; });
    };
    {
        std::vector<std::jthread> readers;
        for (int i = 0; i < kReaders; ++i) {
            readers.emplace_back([&] {
                const Status result = store->Read([&](StoreReader&) {
                    arrive();
                    return Status();
                });
                if (result.ok()) return;
                EXPECT_EQ(result.code(), WBEM_E_QUOTA_VIOLATION);
                EXPECT_THAT(result.reason(), HasSubstr("4 readers"));
                ++refused;
                arrive();
            });
        }
    }
    EXPECT_EQ(refused, 2);
    EXPECT_EQ(Get(*store, 1, "k"), "v");
}

using SchemaStressTest = RepositoryFixture;

// Once a new declaration is stored nobody sees the one before, over whatever repository and on whatever
// thread.
TEST_F(SchemaStressTest, NobodySeesAnOlderClass) {
    const auto declared = [](uint64_t version) {
        return Declare("Policy",
                       {Key("ID"), Property("Version", CimType::kUint64, version),
                        Property("Added" + std::to_string(version % 2), CimType::kUint64, version)});
    };
    ASSERT_EQ(PutClass(Declare("Base", {Key("ID")})), 0);
    ASSERT_EQ(PutClass(declared(0)), 0);
    std::atomic<uint64_t> stored{0};
    std::atomic<bool> is_done{false};
    std::vector<std::jthread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&, i] {
            const auto own = i == 0 ? repository : *Repository::Open(path);
            while (!is_done) {
                const uint64_t at_least = stored;
                const auto found = own->FindClass(space, i == 1 ? "POLICY" : "Policy");
                ASSERT_OK(found);
                const uint64_t seen = std::get<uint64_t>((*found)->Properties().at(1).default_value);
                ASSERT_GE(seen, at_least);
                ASSERT_EQ(std::get<uint64_t>((*found)->Properties().at(2).default_value), seen);
                ASSERT_OK(own->FindClass(space, "Base"));
            }
        });
    }
    for (uint64_t version = 1; version <= 60 && !HasFailure(); ++version) {
        ASSERT_EQ(PutClass(declared(version)), 0) << last.reason();
        stored = version;
        // A write that fails must not leave what it declared behind.
        const Status spoiled = repository->Write([&](RepositoryWriter& writer) -> Status {
            bool is_changed = false;
            SERVICE_RETURN_IF_ERROR(
                writer.PutClass(space, declared(0), PutCondition::kUpdateOnly, is_changed));
            SERVICE_RETURN_IF_ERROR(writer.FindClass(space, "Policy").status());
            return {WBEM_E_FAILED, "spoiled"};
        });
        EXPECT_EQ(spoiled.code(), WBEM_E_FAILED);
    }
    is_done = true;
}

}  // namespace
}  // namespace service
