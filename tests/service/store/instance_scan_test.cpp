// A scan that is read piece by piece shows the state it began with, whatever is written meanwhile.
#include <optional>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "service/store/instance_scan.h"
#include "tests/service/store/long_keys.h"
#include "tests/service/store/store_access.h"
#include "tests/service/temporary_directory.h"

namespace service {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
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

    Seen ReadAll(InstanceScan& scan) {
        Seen seen;
        while (!scan.AtEnd() && !HasFailure())
            EXPECT_OK(Read(scan, 1, seen));
        return seen;
    }

    TemporaryDirectory directory;
    std::shared_ptr<Store> store =
        OpenStore(directory.path() + "/store", {.change_log_bytes = size_t{1} << 20});
};

TEST_F(InstanceScanTest, VisitsEveryClassInItsOrder) {
    for (const char* key : {"b", "a", "c"})
        Put(*store, 2, key, std::string("two-") + key);
    Put(*store, 1, "x", "one-x");
    InstanceScan scan;
    EXPECT_TRUE(scan.AtEnd());
    Begin(scan, {2, 3, 1});
    std::vector<std::string> records;
    EXPECT_OK(store->Read([&](StoreReader& reader) {
        return scan.Read(reader, [&](size_t class_index, std::string_view record) {
            records.push_back(std::to_string(class_index) + std::string(record));
            return true;
        });
    }));
    EXPECT_THAT(records, ElementsAre("0two-a", "0two-b", "0two-c", "2one-x"));
    EXPECT_TRUE(scan.AtEnd());
}

TEST_F(InstanceScanTest, ShowsTheStateItBeganWith) {
    std::mt19937 random(17);
    const std::vector<std::string> keys = [] {
        std::vector<std::string> made = KeysOfOneHash(6);
        for (int i = 0; i < 40; ++i)
            made.push_back(std::string(i % 5 == 0 ? 600 : 1, 'k') + std::to_string(i));
        made.emplace_back();
        return made;
    }();
    int version = 0;
    const auto change = [&](int operations) {
        EXPECT_OK(store->Write([&](StoreWriter& writer) {
            for (int i = 0; i < operations; ++i) {
                const uint32_t class_id = 1 + static_cast<uint32_t>(random() % 3);
                const std::string& key = keys[random() % keys.size()];
                if (random() % 3 == 0) {
                    SERVICE_RETURN_IF_ERROR(DeleteIn(writer, class_id, key));
                } else {
                    SERVICE_RETURN_IF_ERROR(PutIn(writer, class_id, key, "v" + std::to_string(++version)));
                }
            }
            return Status();
        }));
    };
    for (int round = 0; round < 60 && !HasFailure(); ++round) {
        change(100);
        Seen expected;
        for (const size_t index : {0, 1}) {
            for (const std::string& record : Scan(*store, index == 0 ? 3 : 1))
                expected.emplace(index, record);
        }
        InstanceScan scan;
        Begin(scan, {3, 1});
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
        seen_by_copy.merge(ReadAll(*copy));
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
    EXPECT_THAT(lost.reason(), HasSubstr("begin it again"));
    EXPECT_TRUE(scan.AtEnd());
}

}  // namespace
}  // namespace service
