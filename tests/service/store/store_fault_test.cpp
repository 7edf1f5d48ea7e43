// What may happen to a store's directory, file and disk: each is a status and a sentence, and when the cause
// is gone the same process goes on.
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <barrier>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "service/store/store.h"
#include "service/store/store_check.h"
#include "tests/service/child_process.h"
#include "tests/service/store/repository_fixture.h"
#include "tests/service/store/store_access.h"
#include "tests/service/temporary_directory.h"

namespace service {
namespace {

using namespace std::string_literals;
using testing::AllOf;
using testing::HasSubstr;

constexpr int kCannotTry = 99;

class StoreFaultTest : public testing::Test {
 protected:
    Status TryPut(Store& store, const std::string& key, const std::string& record) {
        return store.Write([&](StoreWriter& writer) { return PutIn(writer, 1, key, record); });
    }
    std::string ReadFile() const {
        std::ifstream file(data_file, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    // Later than all that was written before, by the file system's clock.
    void WriteFile(const std::string& bytes) const {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        struct stat facts {};
        do {
            std::ofstream(data_file, std::ios::binary | std::ios::trunc) << bytes;
            stat(data_file.c_str(), &facts);
        } while (std::pair(facts.st_ctim.tv_sec, facts.st_ctim.tv_nsec) <=
                 std::pair(now.tv_sec, now.tv_nsec));
    }
    // A file system of `bytes` over the test's directory, in a namespace of this process. False without the
    // right to it.
    bool MountOver(const char* options, unsigned long flags = 0) const {
        return unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
               mount("tmpfs", directory.path().c_str(), "tmpfs", flags, options) == 0;
    }
    bool Remount(const char* options, unsigned long flags = 0) const {
        return mount(nullptr, directory.path().c_str(), nullptr, MS_REMOUNT | flags, options) == 0;
    }
    // Runs `action` in a child; skips the test where the child cannot try.
    template <typename Action>
    void InChild(Action action) {
        const int code = RunInChild(action);
        if (code == kCannotTry) GTEST_SKIP() << "file systems cannot be mounted here";
        EXPECT_EQ(code, 0);
    }

    TemporaryDirectory directory;
    const std::string path = directory.path() + "/store";
    const std::string data_file = path + "/data.mdb";
};

TEST_F(StoreFaultTest, AFullDiskIsSaidAndGotOver) {
    InChild([&] {
        if (!MountOver("size=3m")) return kCannotTry;
        const auto store = OpenStore(path, {.change_log_bytes = size_t{256} * 1024});
        std::ofstream(directory.path() + "/ballast") << std::string(size_t{1024} * 1024, 'b');
        int written = 0;
        Status fault;
        while ((fault = TryPut(*store, std::to_string(written), std::string(20'000, 'r'))).ok())
            ++written;
        EXPECT_EQ(fault.code(), WBEM_E_OUT_OF_DISK_SPACE) << fault.reason();
        EXPECT_THAT(fault.reason(), AllOf(HasSubstr(path), HasSubstr("make room")));
        EXPECT_GT(written, 10);
        EXPECT_EQ(Scan(*store, 1).size(), static_cast<size_t>(written));
        std::filesystem::remove(directory.path() + "/ballast");
        EXPECT_OK(TryPut(*store, "after", "r"));
        EXPECT_EQ(Scan(*store, 1).size(), static_cast<size_t>(written) + 1);
        // A backup that finds no room leaves nothing behind.
        EXPECT_EQ(store->Backup(directory.path() + "/copy").code(), WBEM_E_OUT_OF_DISK_SPACE);
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()), {}), 1);
        return testing::Test::HasFailure() ? 1 : 0;
    });
}

// In 136 KiB the first page of the data file finds room, and not the second.
TEST_F(StoreFaultTest, ALimitOfTheSizeOfFilesIsSaidAndGotOver) {
    InChild([&] {
        const auto store = OpenStore(path);
        Put(*store, 1, "k", "r");
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit{};
        getrlimit(RLIMIT_FSIZE, &limit);
        const rlimit lower{std::filesystem::file_size(data_file), limit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &lower);
        const Status fault = TryPut(*store, "large", std::string(100'000, 'r'));
        if (fault.reason().find("ulimit -f") == std::string::npos) return 1;
        setrlimit(RLIMIT_FSIZE, &limit);
        if (Get(*store, 1, "large") || Get(*store, 1, "k") != "r") return 2;
        return TryPut(*store, "large", "r").ok() ? 0 : 3;
    });
}

TEST_F(StoreFaultTest, AStoreIsMadeOnceThereIsRoomForIt) {
    for (const char* size : {"size=64k", "size=136k", "size=140k"}) {
        InChild([&] {
            if (!MountOver(size)) return kCannotTry;
            const auto store = OpenStore(path);
            EXPECT_EQ(TryPut(*store, "k", "r").code(), WBEM_E_OUT_OF_DISK_SPACE) << size;
            EXPECT_TRUE(Remount("size=4m"));
            EXPECT_OK(TryPut(*store, "k", "r"));
            return testing::Test::HasFailure() ? 1 : 0;
        });
    }
}

TEST_F(StoreFaultTest, FilesThatAreReplacedInUseAreNotWrittenTo) {
    const auto store = OpenStore(path);
    ASSERT_OK(TryPut(*store, "k", "old"));
    ASSERT_OK(store->Backup(directory.path() + "/copy"));
    std::filesystem::remove(path + "/lock.mdb");
    Status fault = TryPut(*store, "k", "new");
    EXPECT_EQ(fault.code(), WBEM_E_NOT_AVAILABLE);
    EXPECT_THAT(fault.reason(),
                AllOf(HasSubstr("lock.mdb"), HasSubstr(path), HasSubstr("end all processes")));

    std::filesystem::remove_all(path);
    std::filesystem::rename(directory.path() + "/copy", path);
    fault = TryPut(*store, "k", "new");
    EXPECT_EQ(fault.code(), WBEM_E_NOT_AVAILABLE);
    EXPECT_THAT(fault.reason(), AllOf(HasSubstr(path), HasSubstr("replaced"), HasSubstr("connect anew")));
    const auto again = OpenStore(path);
    EXPECT_OK(TryPut(*again, "k2", "new"));
    EXPECT_EQ(Get(*again, 1, "k"), "old");
}

TEST_F(StoreFaultTest, WhatIsNoFileOrEmptyIsSaid) {
    for (const char* name : {"data.mdb", "lock.mdb"}) {
        std::filesystem::create_directory(path);
        ASSERT_EQ(mkfifo((path + "/" + name).c_str(), 0600), 0);
        const Status fault = TryPut(*OpenStore(path), "k", "r");
        EXPECT_EQ(fault.code(), WBEM_E_NOT_AVAILABLE);
        EXPECT_THAT(fault.reason(), AllOf(HasSubstr(name), HasSubstr("no regular file")));
        std::filesystem::remove_all(path);
    }
    EXPECT_EQ(RunInChild([&] { return TryPut(*OpenStore(path), "k", "r").ok() ? 0 : 1; }), 0);
    WriteFile("");
    const auto opened = OpenLmdbStore(path, {});
    EXPECT_EQ(opened.status().code(), WBEM_E_CRITICAL_ERROR);
    EXPECT_THAT(opened.status().reason(), AllOf(HasSubstr("is empty"), HasSubstr("backup")));
}

TEST_F(StoreFaultTest, ACopyThatWasBrokenOffIsRemovedByTheNext) {
    const std::string copy = directory.path() + "/copy";
    const std::string own = copy + ".partial-1";
    ChildProcess gone([] { return 0; });
    const std::string left = copy + ".partial-" + std::to_string(gone.pid());
    gone.Wait();
    for (const std::string& each : {own, left}) {
        std::filesystem::create_directory(each);
        std::ofstream(each + "/data.mdb") << "half";
    }
    const auto store = OpenStore(path);
    ASSERT_OK(TryPut(*store, "k", "r"));
    EXPECT_OK(store->Backup(copy));
    EXPECT_TRUE(std::filesystem::exists(own)) << "of a process that is there";
    EXPECT_FALSE(std::filesystem::exists(left));
}

TEST_F(StoreFaultTest, AReadOnlyFileSystemIsSaid) {
    InChild([&] {
        if (!MountOver("size=4m", MS_RDONLY)) return kCannotTry;
        const auto store = OpenStore(path);
        const Status fault = TryPut(*store, "k", "r");
        EXPECT_EQ(fault.code(), WBEM_E_ACCESS_DENIED);
        EXPECT_THAT(fault.reason(), AllOf(HasSubstr(path), HasSubstr("written to")));
        EXPECT_TRUE(Remount("size=4m"));
        EXPECT_OK(TryPut(*store, "k", "r"));
        return testing::Test::HasFailure() ? 1 : 0;
    });
    // A store that is there already.
    InChild([&] {
        if (!MountOver("size=4m")) return kCannotTry;
        if (RunInChild([&] { return Put(*OpenStore(path), 1, "k", "r"), 0; }) != 0) return 2;
        if (!Remount("size=4m", MS_RDONLY)) return 3;
        EXPECT_EQ(OpenLmdbStore(path).code(), WBEM_E_ACCESS_DENIED);
        if (!Remount("size=4m")) return 4;
        EXPECT_EQ(Get(*OpenStore(path), 1, "k"), "r");
        return testing::Test::HasFailure() ? 1 : 0;
    });
}

TEST_F(StoreFaultTest, AnotherAccountsStoreIsRefusedUntilItIsOnesOwn) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can be another account";
    Put(*OpenStore(path), 1, "k", "r");
    EXPECT_EQ(RunInChild([&] {
                  constexpr uid_t kNobody = 65'534;
                  std::filesystem::permissions(directory.path(), std::filesystem::perms(0755));
                  if (seteuid(kNobody) != 0) return 1;
                  const Status fault = OpenLmdbStore(path).status();
                  if (fault.code() != WBEM_E_ACCESS_DENIED) return 2;
                  if (fault.reason().find(path) == std::string::npos) return 3;
                  if (seteuid(0) != 0) return 4;
                  return Get(*OpenStore(path), 1, "k") == "r" ? 0 : 5;
              }),
              0);
}

TEST_F(StoreFaultTest, ADirectoryOfOtherThingsIsNoStore) {
    std::filesystem::create_directories(path);
    std::ofstream(path + "/notes.txt") << "mine";
    const auto store = OpenStore(path);
    EXPECT_EQ(Get(*store, 1, "k"), std::nullopt);
    const Status fault = TryPut(*store, "k", "r");
    EXPECT_EQ(fault.code(), WBEM_E_NOT_AVAILABLE);
    EXPECT_THAT(fault.reason(), AllOf(HasSubstr(path), HasSubstr("notes.txt"), HasSubstr("MGMT_STORE")));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(path), {}), 1);
    std::filesystem::remove(path + "/notes.txt");
    EXPECT_OK(TryPut(*store, "k", "r"));
}

TEST_F(StoreFaultTest, ALockFileOfTheKilledIsNoHindrance) {
    Put(*OpenStore(path), 1, "k", "r");
    const Signal is_writing;
    ChildProcess writer([&] {
        const auto store = OpenStore(path);
        return store
            ->Write([&](StoreWriter& inside) {
                is_writing.Give();
                pause();
                return PutIn(inside, 1, "k", "never");
            })
            .code();
    });
    is_writing.Take();
    writer.Kill();
    EXPECT_EQ(writer.Wait(), 1000 + SIGKILL);
    EXPECT_EQ(RunInChild([&] {
                  const auto store = OpenStore(path);
                  if (Get(*store, 1, "k") != "r") return 1;
                  return TryPut(*store, "k", "after").ok() ? 0 : 2;
              }),
              0);
}

// What was replaced since the killed process began to read must not be kept for it.
TEST_F(StoreFaultTest, AReaderThatWasKilledDoesNotMakeTheFileGrow) {
    StoreOptions options;
    options.change_log_bytes = 1 << 20;
    const auto store = OpenStore(path, options);
    const auto change_often = [&] {
        for (int i = 0; i < 200; ++i)
            Put(*store, 1, "k", std::string(200'000, static_cast<char>('a' + i % 26)));
    };
    change_often();
    const auto size = std::filesystem::file_size(data_file);
    Signal is_reading;
    ChildProcess reader([&] {
        const auto own = OpenStore(path, options);
        return own
            ->Read([&](StoreReader& opened) -> Status {
                uint64_t number = 0;
                SERVICE_RETURN_IF_ERROR(opened.LastChange(number));
                is_reading.Give();
                pause();
                return {};
            })
            .ok();
    });
    is_reading.Take();
    reader.Kill();
    reader.Wait();
    change_often();
    change_often();
    EXPECT_LT(std::filesystem::file_size(data_file), size + (16 << 20));
}

TEST_F(StoreFaultTest, FiveHundredReadAtOnce) {
    constexpr int kReaders = 500;
    const auto store = OpenStore(path);
    Put(*store, 1, "k", "r");
    std::barrier all_read(kReaders + 1);
    {
        std::vector<std::jthread> readers;
        readers.reserve(kReaders);
        for (int i = 0; i < kReaders; ++i) {
            readers.emplace_back([&] {
                EXPECT_OK(store->Read([&](StoreReader& reader) {
                    all_read.arrive_and_wait();
                    EXPECT_EQ(GetIn(reader, 1, "k"), "r");
                    all_read.arrive_and_wait();
                    return Status();
                }));
            });
        }
        all_read.arrive_and_wait();
        EXPECT_OK(TryPut(*store, "k", "newer"));
        StoreFigures figures;
        EXPECT_OK(store->Figures(figures));
        EXPECT_GE(figures.readers, static_cast<uint64_t>(kReaders));
        all_read.arrive_and_wait();
    }
    EXPECT_EQ(Get(*store, 1, "k"), "newer");
}

TEST_F(StoreFaultTest, OneReaderTooManyIsToldAndComesInLater) {
    EXPECT_EQ(RunInChild([&] {
                  const auto store = OpenStore(path, {.max_readers = 4});
                  Put(*store, 1, "k", "r");
                  const auto nest = [&](const auto& self, int depth) -> Status {
                      return store->Read(
                          [&](StoreReader&) { return depth == 0 ? Status() : self(self, depth - 1); });
                  };
                  const Status fault = nest(nest, 8);
                  if (fault.code() != WBEM_E_QUOTA_VIOLATION) return 1;
                  return Get(*store, 1, "k") == "r" ? 0 : 2;
              }),
              0);
}

// A store with something in every table, in a process of its own so that the file may be changed afterwards.
class DamagedFileTest : public StoreFaultTest {
 protected:
    DamagedFileTest() {
        EXPECT_EQ(RunInChild([&] {
                      const auto store = OpenStore(path, {.change_log_bytes = size_t{32} * 1024});
                      for (int i = 0; i < kInstances; ++i)
                          Put(*store, 1, KeyOf(i), RecordOf(i));
                      for (int i = 0; i < kInstances; i += 7)
                          Delete(*store, 1, KeyOf(i));
                      return testing::Test::HasFailure() ? 1 : 0;
                  }),
                  0);
        sound = ReadFile();
    }

    static std::string KeyOf(int i) {
        return "key" + std::to_string(i) + std::string(i % 9 == 0 ? 600 : 0, 'k');
    }
    static std::string RecordOf(int i) { return std::string(static_cast<size_t>(i * 37 % 3'000), 'r'); }

    // Opens, reads and writes whatever there is: 0 when it was all right, 1 when it was refused with a
    // sentence, 2 when a fault has none, 3 when something is wrong without a fault.
    int UseIt(const StoreOptions& options) const {
        const auto judged = [](const Status& fault) { return fault.reason().size() > 20 ? 1 : 2; };
        auto opened = OpenLmdbStore(path, options);
        if (!opened.ok()) return judged(opened.status());
        Status fault = (*opened)->Read([&](StoreReader& reader) -> Status {
            for (int i = 0; i < kInstances; ++i) {
                std::string_view record;
                bool found = false;
                SERVICE_RETURN_IF_ERROR(reader.GetInstance(1, KeyOf(i), record, found));
                if (found != (i % 7 != 0) || (found && record.size() != RecordOf(i).size()))
                    return {WBEM_E_UNEXPECTED, ""};
            }
            size_t count = 0;
            return reader.ScanInstances(1, {}, [&](const InstanceView&) { return ++count != 0; });
        });
        if (fault.code() == WBEM_E_UNEXPECTED) return 3;
        if (!fault.ok()) return judged(fault);
        fault = (*opened)->Write([&](StoreWriter& writer) { return PutIn(writer, 1, KeyOf(1), "new"); });
        if (fault.ok())
            fault = (*opened)->Write([&](StoreWriter& writer) { return DeleteIn(writer, 1, KeyOf(2)); });
        return fault.ok() ? 0 : judged(fault);
    }

    static constexpr int kInstances = 150;
    static constexpr size_t kPage = 4096;
    std::string sound;
};

TEST_F(DamagedFileTest, CutShortAnywhereItIsRefusedOrWhole) {
    std::mt19937 random(11);
    std::vector<size_t> lengths = {1,         100,           kPage - 1, kPage,
                                   kPage + 1, 2 * kPage - 1, 2 * kPage, 2 * kPage + 1};
    for (size_t i = 0; i < 60; ++i)
        lengths.push_back(random() % sound.size());
    int refused = 0;
    for (const size_t length : lengths) {
        WriteFile(sound.substr(0, length));
        const int code = RunInChild([&] { return UseIt({}); });
        EXPECT_LE(code, 1) << "cut to " << length;
        refused += code == 1;
    }
    EXPECT_GT(refused, 40);
    WriteFile(sound);
    EXPECT_EQ(RunInChild([&] { return UseIt({}); }), 0);
}

// A key that became another one, and the contents of a record, are not LMDB's to notice: StoreCheck does.
TEST_F(DamagedFileTest, AByteFlippedAnywhereCrashesNobody) {
    const bool is_long = std::getenv("MGMT_LONG") != nullptr;
    std::mt19937 random(is_long ? std::random_device()() : 17);
    int refused = 0;
    const auto flip = [&](size_t at, unsigned bit) {
        std::string damaged = sound;
        damaged[at] = static_cast<char>(damaged[at] ^ (1 << bit));
        WriteFile(damaged);
        // The file counts as a large one every other time.
        const StoreOptions options{.looked_through_bytes = size_t{bit % 2} << 20};
        const int code = RunInChild([&] { return UseIt(options); });
        const bool is_right = code <= 1 || (code == 3 && at % kPage >= 16);
        ASSERT_TRUE(is_right) << code << " for bit " << bit << " of byte " << at % kPage << " of page "
                              << at / kPage;
        refused += code == 1;
    };
    // Most of what LMDB goes by is at the front of a page.
    for (size_t page = 0; page * kPage < sound.size(); ++page) {
        for (size_t byte = 0; is_long && byte < (page < 2 ? 152 : 64); ++byte) {
            for (unsigned bit = 0; bit < 8; ++bit)
                ASSERT_NO_FATAL_FAILURE(flip(page * kPage + byte, bit));
        }
        // The kind of the page: a bit of it says that LMDB may write into the page where it is.
        ASSERT_NO_FATAL_FAILURE(flip(page * kPage + 10, page % 8));
        for (int i = 0; i < (is_long ? 100 : 5); ++i) {
            const size_t reach = i >= 3 || is_long ? kPage : page < 2 ? 152 : 64;
            ASSERT_NO_FATAL_FAILURE(flip(page * kPage + random() % reach, random() % 8));
        }
    }
    EXPECT_GT(refused, 30);
}

TEST_F(DamagedFileTest, AByteFlippedUnderAProcessIsNeitherReadNorBuiltOn) {
    // The first entry of every leaf leads out of its page.
    const auto damaged = [](std::string bytes) {
        for (size_t page = 2; page * kPage < bytes.size(); ++page) {
            if (bytes[page * kPage + 10] == 2) bytes[page * kPage + 17] = '\xff';
        }
        return bytes;
    };
    const auto is_refused = [](const Status& fault) {
        return fault.code() == WBEM_E_CRITICAL_ERROR && fault.reason().find("backup") != std::string::npos;
    };
    ASSERT_EQ(RunInChild([&] {
                  const auto store = OpenStore(path, {.looked_through_bytes = 0});
                  Put(*store, 1, "before", "r");
                  const std::string latest = ReadFile();
                  const Status fault = store->Write([&](StoreWriter& writer) {
                      SERVICE_RETURN_IF_ERROR(PutIn(writer, 1, "never", "r"));
                      // Writers look a hundred times a second at most.
                      std::this_thread::sleep_for(std::chrono::milliseconds(20));
                      WriteFile(damaged(latest));
                      return Status();
                  });
                  if (!is_refused(fault)) return 1;
                  if (!is_refused(TryPut(*store, "never", "r"))) return 1;
                  // Readers look once a second.
                  std::this_thread::sleep_for(std::chrono::milliseconds(1'100));
                  if (!is_refused(store->Read([](StoreReader&) { return Status(); }))) return 2;
                  WriteFile(latest);
                  if (Get(*store, 1, "before") != "r" || Get(*store, 1, "never")) return 3;
                  Put(*store, 1, "after", "r");
                  return testing::Test::HasFailure() ? 4 : 0;
              }),
              0);
    EXPECT_EQ(Get(*OpenStore(path), 1, "after"), "r");
}

std::string ErrorsOf(const std::string& file) {
    std::ifstream errors(file);
    return {std::istreambuf_iterator<char>(errors), {}};
}

TEST_F(StoreFaultTest, AFileCutShortUnderAProcessIsExplained) {
    const std::string errors = directory.path() + "/errors";
    Put(*OpenStore(path), 1, "k", "r");
    const auto read_of_nothing = [&] {
        const int file = open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(file, STDERR_FILENO);
        const auto store = OpenStore(path);
        if (Get(*store, 1, "k") != "r" || truncate(data_file.c_str(), 0) != 0) return 1;
        Get(*store, 1, "k");
        return 2;
    };
    const std::string bytes = ReadFile();
    // A sanitizer has a handler of its own.
    EXPECT_EQ(RunInChild([&] {
                  std::signal(SIGBUS, SIG_DFL);
                  return read_of_nothing();
              }),
              1000 + SIGBUS);
    EXPECT_THAT(ErrorsOf(errors),
                AllOf(HasSubstr("store/data.mdb"), HasSubstr("cut short"), HasSubstr("backup")));

    // A handler that was there before has the last word.
    WriteFile(bytes);
    EXPECT_EQ(RunInChild([&] {
                  std::signal(SIGBUS, [](int) { _exit(42); });
                  return read_of_nothing();
              }),
              42);
    EXPECT_THAT(ErrorsOf(errors), HasSubstr("cut short"));
}

}  // namespace
}  // namespace service
