#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "service/store/lmdb_environment.h"
#include "service/store/store.h"
#include "tests/service/child_process.h"
#include "tests/service/store/store_access.h"
#include "tests/service/temporary_directory.h"

namespace service {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr size_t kMebibyte = size_t{1} << 20;
constexpr StoreOptions kSmallMap{.map_bytes = kMebibyte};

class LmdbStoreTest : public testing::Test {
 protected:
    std::shared_ptr<Store> Open(const StoreOptions& options = {}) { return OpenStore(path, options); }

    TemporaryDirectory directory;
    const std::string path = directory.path() + "/store";
};

TEST_F(LmdbStoreTest, AFaultyWriteChangesNothing) {
    const auto store = Open();
    Put(*store, 1, "a", "old");
    EXPECT_THROW((void)store->Write([&](StoreWriter& writer) -> Status {
        uint32_t id = 0;
        EXPECT_OK(writer.NextId(id));
        EXPECT_OK(writer.PutSchema("schema", "x"));
        EXPECT_OK(PutIn(writer, 1, "a", "new"));
        EXPECT_OK(PutIn(writer, 1, "b", "new"));
        EXPECT_EQ(GetIn(writer, 1, "a"), "new") << "a writer sees its own changes";
        throw std::runtime_error("spoiled");
    }),
                 std::runtime_error);
    EXPECT_EQ(Get(*store, 1, "a"), "old");
    EXPECT_EQ(Get(*store, 1, "b"), std::nullopt);
    EXPECT_EQ(ChangesAfter(*store, 0).size(), 1U);
    EXPECT_OK(store->Write([](StoreWriter& writer) -> Status {
        uint32_t id = 0;
        uint64_t generation = 1;
        SERVICE_RETURN_IF_ERROR(writer.NextId(id));
        SERVICE_RETURN_IF_ERROR(writer.SchemaGeneration(generation));
        EXPECT_EQ(id, 1U);
        EXPECT_EQ(generation, 0U);
        return {};
    }));
}

TEST_F(LmdbStoreTest, TheLogHasEveryChangeInOrder) {
    const auto store = Open();
    Put(*store, 1, "a", "1");
    Put(*store, 2, "b", "2");
    Put(*store, 1, "a", "3");
    Delete(*store, 1, "a");
    Delete(*store, 1, "a");  // is not there, and no change
    EXPECT_OK(store->Write([](StoreWriter& writer) -> Status {
        SERVICE_RETURN_IF_ERROR(PutIn(writer, 1, "c", "4"));
        return DeleteIn(writer, 1, "c");
    }));
    bool is_complete = false;
    EXPECT_THAT(ChangesAfter(*store, 0, &is_complete),
                ElementsAre(Change{1, ChangeKind::kCreated, 1, "a", "", "1"},
                            Change{2, ChangeKind::kCreated, 2, "b", "", "2"},
                            Change{3, ChangeKind::kModified, 1, "a", "1", "3"},
                            Change{4, ChangeKind::kDeleted, 1, "a", "3", ""},
                            Change{5, ChangeKind::kCreated, 1, "c", "", "4"},
                            Change{6, ChangeKind::kDeleted, 1, "c", "4", ""}));
    EXPECT_TRUE(is_complete);
    EXPECT_EQ(ChangesAfter(*store, 5, &is_complete).size(), 1U);
    EXPECT_TRUE(ChangesAfter(*store, 6, &is_complete).empty());
    EXPECT_TRUE(is_complete);
}

TEST_F(LmdbStoreTest, TheLogIsBounded) {
    constexpr size_t kLogBytes = 256 * 1024;
    const auto store = Open({.change_log_bytes = kLogBytes});
    constexpr uint64_t kChanges = 3'000;
    for (uint64_t i = 1; i <= kChanges;) {
        EXPECT_OK(store->Write([&](StoreWriter& writer) -> Status {
            for (const uint64_t end = i + 50; i < end; ++i)
                SERVICE_RETURN_IF_ERROR(PutIn(writer, 1, "k", std::to_string(i) + std::string(500, '.')));
            return {};
        }));
    }

    bool is_complete = true;
    const std::vector<Change> left = ChangesAfter(*store, 0, &is_complete);
    EXPECT_FALSE(is_complete);
    ASSERT_FALSE(left.empty());
    size_t bytes = 0;
    for (size_t i = 0; i < left.size(); ++i) {
        ASSERT_EQ(left[i].number, left.front().number + i);
        ASSERT_TRUE(left[i].after.starts_with(std::to_string(left[i].number) + "."));
        bytes += left[i].before.size() + left[i].after.size();
    }
    EXPECT_EQ(left.back().number, kChanges);
    EXPECT_LE(bytes, kLogBytes);
    EXPECT_GE(bytes, kLogBytes / 4) << "no more is forgotten than must be";
    for (const uint64_t before : {1, 2}) {
        ChangesAfter(*store, left.front().number - before, &is_complete);
        EXPECT_EQ(is_complete, before == 1);
    }
    EXPECT_LE(std::filesystem::file_size(path + "/data.mdb"), 4 * kMebibyte);

    // A change larger than the whole log is there until the next one comes.
    Put(*store, 1, "big", std::string(2 * kLogBytes, 'x'));
    EXPECT_EQ(ChangesAfter(*store, kChanges).size(), 1U);
    Put(*store, 1, "k", "small");
    EXPECT_EQ(ChangesAfter(*store, kChanges + 1).at(0).number, kChanges + 2);
}

TEST_F(LmdbStoreTest, ClassesAndKeysDoNotRunTogether) {
    const auto store = Open();
    const std::vector<uint32_t> classes = {0, 1, 0x100, 0x01000000, 0x01010000, UINT32_MAX};
    std::vector<std::string> keys = {"", "\0"s, "\x01", "a", "ab", "a\0b"s};
    for (const size_t size : {506, 507, 60'000})
        keys.emplace_back(size, 'k');
    const auto record_of = [](uint32_t class_id, size_t i) {
        return std::to_string(class_id) + "/" + std::to_string(i);
    };
    for (const uint32_t class_id : classes) {
        for (size_t i = 0; i < keys.size(); ++i)
            Put(*store, class_id, keys[i], record_of(class_id, i));
    }
    for (const uint32_t class_id : classes) {
        EXPECT_EQ(Scan(*store, class_id).size(), keys.size());
        for (size_t i = 0; i < keys.size(); ++i)
            EXPECT_EQ(Get(*store, class_id, keys[i]), record_of(class_id, i));
    }
    for (const std::string& key : keys)
        Delete(*store, 1, key);
    EXPECT_TRUE(Scan(*store, 1).empty());
    EXPECT_EQ(Scan(*store, 0).size(), keys.size());
    EXPECT_EQ(Scan(*store, 0x100).size(), keys.size());
}

// Processes and threads that write and read at once; each grows the map under the others' feet.
TEST_F(LmdbStoreTest, TheMapFollowsOtherProcesses) {
    const auto store = Open(kSmallMap);
    const std::string record(20'000, 'r');
    const auto work = [&](uint32_t class_id) {
        for (int i = 0; i < 100; ++i) {
            Put(*store, class_id, std::to_string(i), record + std::to_string(i));
            EXPECT_EQ(Get(*store, class_id, std::to_string(i / 2)), record + std::to_string(i / 2));
        }
        return testing::Test::HasFailure() ? 1 : 0;
    };
    {
        ChildProcess first([&] { return work(1); });
        ChildProcess second([&] { return work(2); });
        const std::jthread third(work, 3), fourth(work, 4);
        for (int i = 0; i < 50; ++i)
            EXPECT_LE(Scan(*store, 3).size(), 100U);
        EXPECT_EQ(first.Wait(), 0);
        EXPECT_EQ(second.Wait(), 0);
    }
    // One write that is larger than the whole map.
    EXPECT_OK(OpenStore(directory.path() + "/other", kSmallMap)->Write([&](StoreWriter& writer) -> Status {
        for (int i = 0; i < 150; ++i)
            SERVICE_RETURN_IF_ERROR(PutIn(writer, 5, std::to_string(i), record));
        return {};
    }));
    for (const uint32_t class_id : {1, 2, 3, 4})
        EXPECT_EQ(Scan(*store, class_id).size(), 100U);
    EXPECT_EQ(ChangesAfter(*store, 0).size(), 400U);
}

// A thread may come back while it is inside already, over another store object of the same directory; it must
// not wait for a resize that waits for it.
TEST_F(LmdbStoreTest, AThreadInsideIsNotStoppedByAResize) {
    auto environment = LmdbEnvironment::Open(path, kSmallMap);
    ASSERT_OK(environment);
    std::jthread grower;
    {
        ReadTransaction outer(**environment);
        ASSERT_OK(outer.Begin());
        grower = std::jthread([&] { EXPECT_OK((*environment)->Grow((*environment)->MapBytes())); });
        // Gives the other thread the time to get there; if it does not, the test passes without a meeting.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ReadTransaction inner(**environment);
        EXPECT_OK(inner.Begin());
    }
    grower.join();
    ReadTransaction after(**environment);
    EXPECT_OK(after.Begin());
}

// What the caller was told had failed must not come true when the store is opened the next time.
TEST_F(LmdbStoreTest, AFailedCommitIsNotCarriedOutLater) {
    const int written = RunInChild([&] {
        const auto store = Open();
        Put(*store, 1, "a", "sound");
        // A full disk, as far as a process can have one of its own.
        std::signal(SIGXFSZ, SIG_IGN);
        const rlim_t size = std::filesystem::file_size(path + "/data.mdb");
        const rlimit full{size, size};
        if (setrlimit(RLIMIT_FSIZE, &full) != 0) return 200;
        for (int i = 0; i < 100; ++i) {
            const Status fault = store->Write([&](StoreWriter& writer) {
                return PutIn(writer, 1, std::to_string(i), std::string(3'000, 'r'));
            });
            if (!fault.ok()) return i;
        }
        return 201;
    });
    ASSERT_LT(written, 100);
    const auto store = Open();
    EXPECT_EQ(Scan(*store, 1).size(), static_cast<size_t>(written) + 1);
    EXPECT_EQ(Get(*store, 1, std::to_string(written)), std::nullopt);
    EXPECT_EQ(ChangesAfter(*store, 0).size(), static_cast<size_t>(written) + 1);
}

TEST_F(LmdbStoreTest, WhatIsNoStoreIsRefused) {
    std::ofstream(directory.path() + "/file") << "x";
    for (const std::string& name : {directory.path() + "/file", directory.path() + "/file/below", ""s}) {
        const Status fault = OpenLmdbStore(name).status();
        EXPECT_EQ(fault.code(), WBEM_E_NOT_AVAILABLE);
        EXPECT_THAT(fault.reason(), HasSubstr(name));
    }
    Put(*OpenStore(directory.path() + "/a/b/c"), 1, "k", "r");
    const auto mode = std::filesystem::status(directory.path() + "/a/b/c").permissions();
    EXPECT_EQ(mode, std::filesystem::perms::owner_all);

    std::filesystem::create_directories(path);
    for (const std::string& bytes : {"x"s, std::string(8'192, '\0'), std::string(100'000, '\xFF'), ""s}) {
        std::ofstream(path + "/data.mdb", std::ios::binary) << bytes;
        const Status fault = OpenLmdbStore(path).status();
        EXPECT_EQ(fault.code(), bytes.empty() ? 0 : WBEM_E_CRITICAL_ERROR);
        EXPECT_THAT(fault.reason(), HasSubstr(bytes.empty() ? "" : path + "/data.mdb"));
    }
}

TEST_F(LmdbStoreTest, AStoreOfAnotherFormatIsRefused) {
    EXPECT_EQ(RunInChild([&] {
                  const auto environment = *LmdbEnvironment::Open(path, {});
                  WriteTransaction txn(*environment);
                  EXPECT_OK(txn.Begin());
                  uint32_t format = 99;
                  char name[] = "format";
                  MDB_val key{sizeof name - 1, name}, value{sizeof format, &format};
                  EXPECT_EQ(txn.Put(environment->tables().meta, key, value), 0);
                  return txn.Commit();
              }),
              0);
    const auto store = OpenLmdbStore(path);
    EXPECT_EQ(store.code(), WBEM_E_NOT_AVAILABLE);
    EXPECT_THAT(store.status().reason(), HasSubstr("99"));
}

// The directory was removed and made again while the old store is still open: whoever opens it now must get
// the new one, whatever inode it has.
TEST_F(LmdbStoreTest, AStoreMadeAgainIsAnotherStore) {
    for (int i = 0; i < 5; ++i) {
        const auto older = Open();
        Put(*older, 1, "k", "older");
        std::filesystem::remove_all(path);
        const auto newer = Open();
        EXPECT_EQ(Get(*newer, 1, "k"), std::nullopt);
        Put(*newer, 1, "n", "newer");
        EXPECT_EQ(RunInChild([&] { return Get(*Open(), 1, "n") == "newer" ? 0 : 1; }), 0);
        std::filesystem::remove_all(path);
    }
}

// What a program prints after it has closed its standard descriptors must not get into the store.
TEST_F(LmdbStoreTest, StandardDescriptorsAreLeftAlone) {
    for (const bool is_there : {false, true}) {
        EXPECT_EQ(RunInChild([&] {
                      for (const int fd : {0, 1, 2})
                          close(fd);
                      const auto store = OpenStore(path);
                      for (const int fd : {0, 1, 2}) {
                          if (fcntl(fd, F_GETFD) != -1 || write(fd, "text", 4) != -1) return 2;
                      }
                      Put(*store, 1, "key", is_there ? "again" : "first");
                      return testing::Test::HasFailure() ? 1 : 0;
                  }),
                  0);
        EXPECT_EQ(Get(*Open(), 1, "key"), is_there ? "again" : "first");
    }
}

}  // namespace
}  // namespace service
