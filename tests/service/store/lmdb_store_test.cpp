#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "service/store/lmdb_environment.h"
#include "service/store/store.h"
#include "tests/service/child_process.h"
#include "tests/service/store/long_keys.h"
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
    const auto spoil = [](StoreWriter& writer) {
        uint32_t id = 0;
        SERVICE_RETURN_IF_ERROR(writer.NextId(id));
        SERVICE_RETURN_IF_ERROR(writer.PutSchema("schema", "x"));
        SERVICE_RETURN_IF_ERROR(PutIn(writer, 1, "a", "new"));
        SERVICE_RETURN_IF_ERROR(PutIn(writer, 1, "b", "new"));
        EXPECT_EQ(GetIn(writer, 1, "a"), "new") << "a writer sees its own changes";
        return Status();
    };
    EXPECT_EQ(store
                  ->Write([&](StoreWriter& writer) {
                      EXPECT_OK(spoil(writer));
                      return Status(WBEM_E_FAILED, "spoiled");
                  })
                  .code(),
              WBEM_E_FAILED);
    EXPECT_THROW((void)store->Write([&](StoreWriter& writer) -> Status {
        EXPECT_OK(spoil(writer));
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

TEST_F(LmdbStoreTest, AReaderSeesOneState) {
    const auto store = Open();
    Put(*store, 1, "a", "before");
    EXPECT_OK(store->Read([&](StoreReader& reader) {
        const uint64_t state = reader.StateNumber();
        std::jthread([&] { Put(*store, 1, "a", "after"); }).join();
        EXPECT_EQ(GetIn(reader, 1, "a"), "before");
        EXPECT_EQ(reader.StateNumber(), state);
        return Status();
    }));
    EXPECT_EQ(Get(*store, 1, "a"), "after");
}

TEST_F(LmdbStoreTest, WhatOneProcessWroteAnotherReads) {
    EXPECT_EQ(RunInChild([&] {
                  Put(*Open(), 7, "k", "from the child");
                  return testing::Test::HasFailure() ? 1 : 0;
              }),
              0);
    const auto store = Open();
    EXPECT_EQ(Get(*store, 7, "k"), "from the child");
    // The child has to leave the parent's environment alone, and the parent must not notice.
    EXPECT_EQ(RunInChild([&] {
                  if (Get(*store, 7, "k") != "from the child") return 1;
                  Put(*store, 7, "k", "changed");
                  return testing::Test::HasFailure() ? 2 : 0;
              }),
              0);
    EXPECT_EQ(Get(*store, 7, "k"), "changed");
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
    ChangesAfter(*store, left.front().number - 1, &is_complete);
    EXPECT_TRUE(is_complete);
    ChangesAfter(*store, left.front().number - 2, &is_complete);
    EXPECT_FALSE(is_complete);
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
    const std::vector<std::string> keys = {"",
                                           "\0"s,
                                           "\x01",
                                           "a",
                                           "ab",
                                           "a\0b"s,
                                           std::string(506, 'k'),
                                           std::string(507, 'k'),
                                           std::string(60'000, 'k')};
    for (const uint32_t class_id : classes) {
        for (size_t i = 0; i < keys.size(); ++i)
            Put(*store, class_id, keys[i], std::to_string(class_id) + "/" + std::to_string(i));
    }
    for (const uint32_t class_id : classes) {
        EXPECT_EQ(Scan(*store, class_id).size(), keys.size());
        for (size_t i = 0; i < keys.size(); ++i)
            EXPECT_EQ(Get(*store, class_id, keys[i]), std::to_string(class_id) + "/" + std::to_string(i));
    }
    for (const std::string& key : keys)
        Delete(*store, 1, key);
    EXPECT_TRUE(Scan(*store, 1).empty());
    EXPECT_EQ(Scan(*store, 0).size(), keys.size());
    EXPECT_EQ(Scan(*store, 0x100).size(), keys.size());
}

TEST_F(LmdbStoreTest, LongKeysWithOneHashStayApart) {
    const std::vector<std::string> keys = KeysOfOneHash(12);
    for (const std::string& key : keys)
        ASSERT_EQ(XXH3_64bits(key.data(), key.size()), XXH3_64bits(keys[0].data(), keys[0].size()));
    const auto store = Open();
    for (const std::string& key : keys)
        Put(*store, 1, key, "of " + key);

    std::mt19937 random(5);
    std::set<size_t> there;
    for (size_t i = 0; i < keys.size(); ++i)
        there.insert(i);
    for (int round = 0; round < 200; ++round) {
        const size_t i = random() % keys.size();
        if (random() % 2) {
            Delete(*store, 1, keys[i]);
            there.erase(i);
        } else {
            Put(*store, 1, keys[i], "of " + keys[i]);
            there.insert(i);
        }
        for (size_t j = 0; j < keys.size(); ++j) {
            const auto record = Get(*store, 1, keys[j]);
            ASSERT_EQ(record.has_value(), there.contains(j)) << "round " << round << " key " << j;
            ASSERT_EQ(record.value_or("of " + keys[j]), "of " + keys[j]);
        }
        ASSERT_EQ(Scan(*store, 1).size(), there.size());
    }
}

TEST_F(LmdbStoreTest, TheMapGrowsWhenItIsFull) {
    const auto store = Open(kSmallMap);
    const std::string record(100'000, 'r');
    for (int i = 0; i < 60; ++i)
        Put(*store, 1, std::to_string(i), record + std::to_string(i));
    // One write that is larger than the whole map.
    EXPECT_OK(store->Write([&](StoreWriter& writer) -> Status {
        for (int i = 100; i < 250; ++i)
            SERVICE_RETURN_IF_ERROR(PutIn(writer, 1, std::to_string(i), record + std::to_string(i)));
        return {};
    }));
    for (const int i : {0, 59, 100, 249})
        EXPECT_EQ(Get(*store, 1, std::to_string(i)), record + std::to_string(i));
    EXPECT_EQ(ChangesAfter(*store, 0).size(), 210U);
}

TEST_F(LmdbStoreTest, TheMapFollowsOtherProcesses) {
    const auto store = Open(kSmallMap);
    const std::string record(20'000, 'r');
    // Both write and read at once; each grows the map under the other's feet.
    const auto work = [&](uint32_t class_id) {
        for (int i = 0; i < 150; ++i) {
            Put(*store, class_id, std::to_string(i), record + std::to_string(i));
            if (Get(*store, class_id, std::to_string(i / 2)) != record + std::to_string(i / 2)) return 1;
        }
        return testing::Test::HasFailure() ? 2 : 0;
    };
    ChildProcess first([&] { return work(1); });
    ChildProcess second([&] { return work(2); });
    EXPECT_EQ(work(3), 0);
    EXPECT_EQ(first.Wait(), 0);
    EXPECT_EQ(second.Wait(), 0);
    for (const uint32_t class_id : {1, 2, 3})
        EXPECT_EQ(Scan(*store, class_id).size(), 150U);
    EXPECT_EQ(ChangesAfter(*store, 0).size(), 450U);
}

TEST_F(LmdbStoreTest, TheMapGrowsUnderBusyThreads) {
    const auto store = Open(kSmallMap);
    std::atomic<bool> is_done{false};
    {
        std::vector<std::jthread> readers;
        for (int i = 0; i < 3; ++i) {
            readers.emplace_back([&] {
                while (!is_done) {
                    size_t records = 0;
                    EXPECT_OK(store->Read([&](StoreReader& reader) {
                        records = 0;
                        return reader.ScanInstances(1, {},
                                                    [&](const InstanceView&) { return ++records != 0; });
                    }));
                }
            });
        }
        std::vector<std::jthread> writers;
        for (int writer = 0; writer < 3; ++writer) {
            writers.emplace_back([&store, writer] {
                for (int i = 0; i < 40; ++i)
                    Put(*store, 1, std::to_string(writer) + "-" + std::to_string(i),
                        std::string(30'000, 'w'));
            });
        }
        writers.clear();
        is_done = true;
    }
    EXPECT_EQ(Scan(*store, 1).size(), 120U);
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

// Keeps files from growing beyond `bytes`: a full disk, as far as a process can have one of its own.
class FileSizeLimit {
 public:
    explicit FileSizeLimit(size_t bytes) {
        std::signal(SIGXFSZ, SIG_IGN);
        if (getrlimit(RLIMIT_FSIZE, &before_) != 0) throw std::runtime_error("getrlimit failed");
        const rlimit small{bytes, before_.rlim_max};
        if (setrlimit(RLIMIT_FSIZE, &small) != 0) throw std::runtime_error("setrlimit failed");
    }
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &before_); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
    rlimit before_{};
};

TEST_F(LmdbStoreTest, AFullDiskLosesNothing) {
    EXPECT_EQ(RunInChild([&] {
                  const auto store = Open();
                  Put(*store, 1, "a", "sound");
                  {
                      const FileSizeLimit full(kMebibyte);
                      const Status fault = store->Write([&](StoreWriter& writer) {
                          return PutIn(writer, 1, "b", std::string(4 * kMebibyte, 'b'));
                      });
                      if (fault.ok()) return 1;
                      if (Get(*store, 1, "a") != "sound" || Get(*store, 1, "b")) return 2;
                  }
                  Put(*store, 1, "c", "after");
                  return testing::Test::HasFailure() ? 3 : 0;
              }),
              0);
    const auto store = Open();
    EXPECT_EQ(Get(*store, 1, "a"), "sound");
    EXPECT_EQ(Get(*store, 1, "b"), std::nullopt);
    EXPECT_EQ(Get(*store, 1, "c"), "after");
    EXPECT_EQ(ChangesAfter(*store, 0).size(), 2U);
}

// What the caller was told had failed must not come true when the store is opened the next time.
TEST_F(LmdbStoreTest, AFailedCommitIsNotCarriedOutLater) {
    std::atomic<int>* const written = static_cast<std::atomic<int>*>(
        mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(written, MAP_FAILED);
    EXPECT_EQ(RunInChild([&] {
                  const auto store = Open();
                  Put(*store, 1, "a", "sound");
                  const FileSizeLimit full(std::filesystem::file_size(path + "/data.mdb"));
                  const auto put = [&] {
                      return store->Write([&](StoreWriter& writer) {
                          return PutIn(writer, 1, std::to_string(*written), std::string(3'000, 'r'));
                      });
                  };
                  for (; *written < 1'000; ++*written) {
                      if (!put().ok()) return 0;
                  }
                  return 1;
              }),
              0);
    const auto store = Open();
    EXPECT_EQ(Scan(*store, 1).size(), static_cast<size_t>(*written) + 1);
    EXPECT_EQ(Get(*store, 1, std::to_string(*written)), std::nullopt);
    EXPECT_EQ(ChangesAfter(*store, 0).size(), static_cast<size_t>(*written) + 1);
    munmap(written, sizeof(std::atomic<int>));
}

TEST_F(LmdbStoreTest, ADamagedFileIsRefused) {
    std::filesystem::create_directories(path);
    const auto open_with = [&](const std::string& bytes) {
        std::ofstream(path + "/data.mdb", std::ios::binary) << bytes;
        return OpenLmdbStore(path).status();
    };
    std::string noise(64 * 1024, '\0');
    std::mt19937 random(3);
    for (char& byte : noise)
        byte = static_cast<char>(random());
    for (const std::string& bytes : {noise, "x"s, std::string(8'192, '\0'), std::string(100'000, '\xFF')}) {
        const Status fault = open_with(bytes);
        EXPECT_EQ(fault.code(), WBEM_E_CRITICAL_ERROR);
        EXPECT_THAT(fault.reason(), HasSubstr(path + "/data.mdb"));
    }
    EXPECT_OK(open_with(""));
}

TEST_F(LmdbStoreTest, AStoreOfAnotherFormatIsRefused) {
    EXPECT_EQ(RunInChild([&] {
                  auto environment = LmdbEnvironment::Open(path, {});
                  if (!environment.ok()) return 1;
                  WriteTransaction txn(**environment);
                  if (!txn.Begin().ok()) return 2;
                  uint32_t format = 99;
                  char name[] = "format";
                  MDB_val key{sizeof name - 1, name}, value{sizeof format, &format};
                  if (txn.Put((*environment)->tables().meta, key, value) != 0) return 3;
                  return txn.Commit() == 0 ? 0 : 4;
              }),
              0);
    const auto store = OpenLmdbStore(path);
    EXPECT_EQ(store.code(), WBEM_E_NOT_AVAILABLE);
    EXPECT_THAT(store.status().reason(), HasSubstr("99"));
}

TEST_F(LmdbStoreTest, ADirectoryThatCannotBeIsAStatus) {
    std::ofstream(directory.path() + "/file") << "x";
    const Status file = OpenLmdbStore(directory.path() + "/file").status();
    EXPECT_EQ(file.code(), WBEM_E_NOT_AVAILABLE);
    EXPECT_THAT(file.reason(), HasSubstr(directory.path() + "/file"));
    EXPECT_EQ(OpenLmdbStore(directory.path() + "/file/below").code(), WBEM_E_NOT_AVAILABLE);
    EXPECT_EQ(OpenLmdbStore("").code(), WBEM_E_NOT_AVAILABLE);
    Put(*OpenStore(directory.path() + "/a/b/c"), 1, "k", "r");
    const auto mode = std::filesystem::status(directory.path() + "/a/b/c").permissions();
    EXPECT_EQ(mode, std::filesystem::perms::owner_all);

    EXPECT_EQ(RunInChild([&] {
                  std::filesystem::permissions(directory.path(), std::filesystem::perms(0755));
                  constexpr uid_t kNobody = 65'534;
                  if (geteuid() == 0) {
                      if (setuid(kNobody) != 0) return 1;
                  } else {
                      std::filesystem::permissions(directory.path() + "/a/b/c", std::filesystem::perms::none);
                  }
                  return OpenLmdbStore(directory.path() + "/a/b/c").code() == WBEM_E_ACCESS_DENIED ? 0 : 2;
              }),
              0);
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
