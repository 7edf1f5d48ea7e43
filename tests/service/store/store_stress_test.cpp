// The store against a model of it, against processes that die and against each other's threads.
#include <atomic>
#include <chrono>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "service/store/instance_scan.h"
#include "tests/service/child_process.h"
#include "tests/service/store/long_keys.h"
#include "tests/service/store/repository_fixture.h"
#include "tests/service/store/store_access.h"
#include "tests/service/temporary_directory.h"

namespace service {
namespace {

using Model = std::map<std::pair<uint32_t, std::string>, std::string>;

std::vector<std::string> SampleKeys() {
    std::vector<std::string> keys = KeysOfOneHash(6);
    EXPECT_EQ(XXH3_64bits(keys[0].data(), keys[0].size()), XXH3_64bits(keys[5].data(), keys[5].size()));
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
    for (int operation = 0; operation < 15; ++operation) {
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
            const auto record = Get(*store, 2, key);
            ASSERT_EQ(record.has_value(), expected != model.end()) << "round " << round;
            ASSERT_TRUE(!record || *record == expected->second) << "round " << round;
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
                  for (const std::string& record : Scan(*store, 1))
                      EXPECT_EQ(record, std::string(30'000, record.front()));
                  const std::vector<Change> changes = ChangesAfter(*store, 0);
                  for (size_t i = 1; i < changes.size(); ++i)
                      EXPECT_EQ(changes[i].number, changes[i - 1].number + 1);
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
    const auto nest = [&](const auto& self, int depth) -> Status {
        return store->Read([&](StoreReader&) { return depth == 0 ? Status() : self(self, depth - 1); });
    };
    EXPECT_EQ(nest(nest, 8).code(), WBEM_E_QUOTA_VIOLATION) << "more at once than there are places";
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
    ASSERT_EQ(PutClass(declared(0)), 0);
    std::atomic<uint64_t> stored{0};
    std::atomic<bool> is_done{false};
    std::vector<std::jthread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&, own = i == 0 ? repository : *Repository::Open(path)] {
            while (!is_done) {
                const uint64_t at_least = stored;
                const auto found = own->FindClass(space, "POLICY");
                ASSERT_OK(found);
                const Value& seen = (*found)->Properties().at(1).default_value;
                ASSERT_GE(std::get<uint64_t>(seen), at_least);
                ASSERT_EQ((*found)->Properties().at(2).default_value, seen);
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

// A scan that is read piece by piece shows the state it began with, whatever is written meanwhile.
using Seen = std::multiset<std::pair<size_t, std::string>>;

class InstanceScanTest : public testing::Test {
 protected:
    void Begin(InstanceScan& scan, std::vector<uint32_t> classes) {
        EXPECT_OK(store->Read([&](StoreReader& reader) { return scan.Begin(reader, std::move(classes)); }));
    }

    // Reads about `count` records.
    Status Read(InstanceScan& scan, size_t count, Seen& seen) {
        return store->Read([&](StoreReader& reader) {
            return scan.Read(reader, [&](size_t class_index, std::string_view record) {
                seen.emplace(class_index, std::string(record));
                return count == 0 || --count != 0;
            });
        });
    }

    TemporaryDirectory directory;
    std::shared_ptr<Store> store =
        OpenStore(directory.path() + "/store", {.change_log_bytes = size_t{1} << 20});
};

TEST_F(InstanceScanTest, ShowsTheStateItBeganWith) {
    std::mt19937 random(17);
    std::vector<std::string> keys = KeysOfOneHash(6);
    for (int i = 0; i < 40; ++i)
        keys.push_back(std::string(i % 5 == 0 ? 600 : 1, 'k') + std::to_string(i));
    keys.emplace_back();
    int version = 0;
    const auto change = [&](int operations) {
        EXPECT_OK(store->Write([&](StoreWriter& writer) {
            for (int i = 0; i < operations; ++i) {
                const uint32_t class_id = 1 + static_cast<uint32_t>(random() % 3);
                const std::string& key = keys[random() % keys.size()];
                SERVICE_RETURN_IF_ERROR(random() % 3 == 0
                                            ? DeleteIn(writer, class_id, key)
                                            : PutIn(writer, class_id, key, "v" + std::to_string(++version)));
            }
            return Status();
        }));
    };
    for (int round = 0; round < 60 && !HasFailure(); ++round) {
        change(100);
        Seen expected;
        for (const size_t index : {0, 2}) {
            for (const std::string& record : Scan(*store, index == 0 ? 3 : 1))
                expected.emplace(index, record);
        }
        InstanceScan scan;
        EXPECT_TRUE(scan.AtEnd());
        Begin(scan, {3, 9, 1});
        Seen seen;
        std::optional<InstanceScan> copy;
        Seen seen_by_copy;
        while (!scan.AtEnd() && !HasFailure()) {
            change(static_cast<int>(random() % 12));
            EXPECT_OK(Read(scan, 1 + random() % 4, seen));
            if (!copy && random() % 8 == 0) {
                copy = scan;
                seen_by_copy = seen;
            }
        }
        EXPECT_EQ(seen, expected) << "round " << round;
        if (!copy) continue;
        while (!copy->AtEnd() && !HasFailure())
            EXPECT_OK(Read(*copy, 1, seen_by_copy));
        EXPECT_TRUE(seen_by_copy == expected) << "the copy in round " << round;
    }
}

TEST_F(InstanceScanTest, SaysThatTheLogLostWhatItNeeds) {
    for (int i = 0; i < 10; ++i)
        Put(*store, 1, std::to_string(i), "v");
    const std::string large(100'000, 'x');
    InstanceScan scan;
    Begin(scan, {1});
    Seen seen;
    ASSERT_OK(Read(scan, 2, seen));
    // The log holds this much, and more for a reader that keeps up with it.
    for (int i = 0; i < 40; ++i) {
        Put(*store, 2, "other", large + std::to_string(i));
        if (i % 3 == 0) {
            ASSERT_OK(Read(scan, 1, seen));
        }
        if (scan.AtEnd()) Begin(scan, {1});
    }
    for (int i = 0; i < 40; ++i)
        Put(*store, 2, "other", large + std::to_string(i));
    const Status lost = Read(scan, 1, seen);
    EXPECT_EQ(lost.code(), WBEM_E_NOT_AVAILABLE);
    EXPECT_THAT(lost.reason(), testing::HasSubstr("begin it again"));
    EXPECT_TRUE(scan.AtEnd());
}

}  // namespace
}  // namespace service
