#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <list>
#include <random>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <windows.h>

#include "tests/platform/events.h"
#include "tests/platform/threads.h"
#include "tests/service/child_process.h"

namespace {

using testing::IsEmpty;

constexpr uid_t NOBODY = 65534;
// After so many seconds a child ends that the test should have ended long before.
constexpr unsigned CHILD_SECONDS = 120;

// A process that has the event open and sleeps at it; ends with 0 when it was let through.
class SleepingProcess {
 public:
    explicit SleepingProcess(const std::wstring& name)
        : child_([&] {
              alarm(CHILD_SECONDS);
              return IsLetThrough(Open(name), INFINITE) ? 0 : 1;
          }) {
        AwaitSleeper(child_.pid());
    }
    ChildProcess& child() { return child_; }

 private:
    ChildProcess child_;
};

TEST(NamedEventTest, OneProcessSetsWhatAnotherWaitsFor) {
    const std::wstring name = TestName();
    ChildProcess waiter([&] {
        const Handle event = CreateAutomatic(name);
        return IsLetThrough(event, INFINITE) && !IsLetThrough(event) ? 0 : 1;
    });
    AwaitSleeper(waiter.pid());
    EXPECT_TRUE(SetEvent(Open(name).get()));
    EXPECT_EQ(waiter.Wait(), 0);
    EXPECT_EQ(OpenError(name), ERROR_FILE_NOT_FOUND);
    EXPECT_THAT(FilesOf(name), IsEmpty());
}

TEST(NamedEventTest, KilledHolderHoldsNothing) {
    const std::wstring name = TestName();
    const auto kill_creator_after = [&](const std::function<void()>& action) {
        const Signal created;
        ChildProcess creator([&] {
            const Handle event(CreateEventW(nullptr, TRUE, TRUE, name.c_str()));
            created.Give();
            pause();
            return 1;
        });
        created.Take();
        action();
    };
    for (const bool opens_first : {true, false}) {
        kill_creator_after([&] { EXPECT_EQ(OpenError(name), ERROR_SUCCESS); });
        if (opens_first) {
            EXPECT_EQ(OpenError(name), ERROR_FILE_NOT_FOUND);
            EXPECT_THAT(FilesOf(name), IsEmpty());
        }
        const Handle event = CreateManual(name);
        EXPECT_EQ(GetLastError(), ERROR_SUCCESS) << "it is a new one";
        EXPECT_FALSE(IsLetThrough(event)) << "and has nothing of the old one's state";
    }
    Handle other(nullptr);
    kill_creator_after([&] { other = Open(name); });
    EXPECT_EQ(OpenError(name), ERROR_SUCCESS) << "while somebody else holds it, it stays";
    EXPECT_TRUE(IsLetThrough(other));
}

TEST(NamedEventTest, ProcessesThatCreateOpenAndCloseOneNameAtOnceHaveOneEvent) {
    const std::wstring name = TestName();
    const auto create_and_close = [&] {
        int faults = 0;
        for (int round = 0; round < 2'000; ++round) {
            const bool opens = round % 3 == 0;
            const Handle event = opens ? Open(name) : CreateManual(name);
            if (!event) {
                if (!opens || GetLastError() != ERROR_FILE_NOT_FOUND) ++faults;
                continue;
            }
            std::this_thread::yield();
            // Nobody resets it: what another handle of the same name does not see is another event.
            SetEvent(event.get());
            if (!IsLetThrough(Open(name))) ++faults;
        }
        return std::min(faults, 99);
    };
    std::list<ChildProcess> children;
    for (int i = 0; i < 4; ++i)
        children.emplace_back(create_and_close);
    for (ChildProcess& child : children)
        EXPECT_EQ(child.Wait(), 0);
    EXPECT_EQ(OpenError(name), ERROR_FILE_NOT_FOUND);
    EXPECT_THAT(FilesOf(name), IsEmpty());
}

// Processes are killed wherever they happen to be while they create, open, set, wait and close. Nobody else
// may notice.
TEST(NamedEventTest, ProcessesKilledAnywhereDisturbNobody) {
    const std::wstring name = TestName();
    const std::wstring passing = TestName();
    Handle event = CreateAutomatic(name);
    std::minstd_rand random(7);
    const auto use_all = [&] {
        alarm(CHILD_SECONDS);
        RunInThreads(2, [&] {
            for (;;) {
                const Handle opened = Open(name);
                const Handle other = CreateManual(passing);
                for (int i = 0; i < 8; ++i) {
                    SetEvent(opened.get());
                    SetEvent(other.get());
                    IsLetThrough(opened, 1);
                    ResetEvent(other.get());
                }
            }
        });
        return 0;
    };
    for (int kill = 0; kill < 120; ++kill) {
        const ChildProcess victim(use_all);
        const auto end =
            std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 6'000 + 2'000);
        while (std::chrono::steady_clock::now() < end) {
            ASSERT_TRUE(SetEvent(event.get()));
            ASSERT_TRUE(CreateManual(passing));
            IsLetThrough(event, 1);
        }
    }
    ResetEvent(event.get());
    EXPECT_FALSE(IsLetThrough(event, 1));
    SleepingProcess sleeper(name);
    SetEvent(event.get());
    EXPECT_EQ(sleeper.child().Wait(), 0);
    EXPECT_EQ(OpenError(passing), ERROR_FILE_NOT_FOUND);
    event.Close();
    EXPECT_EQ(OpenError(name), ERROR_FILE_NOT_FOUND);
    EXPECT_THAT(FilesOf(name), IsEmpty());
    EXPECT_THAT(FilesOf(passing), IsEmpty());
}

TEST(NamedEventTest, ProcessThatEndsHasClosedItsHandles) {
    const std::wstring name = TestName();
    EXPECT_EQ(RunInChild([&]() -> int {
                  CreateEventW(nullptr, TRUE, TRUE, name.c_str());
                  // Sleeps while the process ends.
                  std::atomic<pid_t> sleeper = 0;
                  std::thread([&] {
                      const HANDLE other = CreateEventW(nullptr, FALSE, FALSE, (name + L"b").c_str());
                      sleeper = gettid();
                      WaitForSingleObject(other, INFINITE);
                  }).detach();
                  AwaitSleeper(sleeper);
                  std::exit(0);
              }),
              0);
    EXPECT_THAT(FilesOf(name), IsEmpty());
    EXPECT_THAT(FilesOf(name + L"b"), IsEmpty());
}

TEST(NamedEventTest, ParentAndForkedChildCloseOnlyTheirOwnHandles) {
    const std::wstring name = TestName();
    const Signal go;
    Handle event = CreateAutomatic(name);
    const Handle unnamed(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    EXPECT_EQ(RunInChild([&] {
                  event.Close();
                  return SetEvent(unnamed.get()) ? 0 : 1;
              }),
              0);
    EXPECT_TRUE(IsLetThrough(unnamed));
    EXPECT_EQ(OpenError(name), ERROR_SUCCESS) << "the child's close took the parent's event away";

    ChildProcess child([&] {
        go.Take();
        const bool is_there = SetEvent(event.get()) && IsLetThrough(Open(name));
        event.Close();
        return is_there && OpenError(name) == ERROR_FILE_NOT_FOUND ? 0 : 1;
    });
    event.Close();
    EXPECT_EQ(OpenError(name), ERROR_SUCCESS) << "the parent's close took the child's event away";
    go.Give();
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_THAT(FilesOf(name), IsEmpty());
}

TEST(NamedEventTest, ForkedChildIsFreeOfItsParentsOtherThreads) {
    const std::wstring waited = TestName();
    const std::wstring churned = TestName();
    Handle event = CreateAutomatic(waited);
    std::atomic<pid_t> sleeper = 0;
    std::jthread waiter([&] {
        sleeper = gettid();
        WaitForSingleObject(event.get(), INFINITE);
    });
    std::jthread churner([&](const std::stop_token& stop) {
        while (!stop.stop_requested())
            CreateManual(churned);
    });
    AwaitSleeper(sleeper);
    for (int i = 0; i < 50; ++i) {
        const int code = RunInChild([&] {
            alarm(CHILD_SECONDS);
            // The wait of the thread that is not here must not keep the closed event alive.
            CloseHandle(event.get());
            std::ifstream maps("/proc/self/maps");
            const std::string text((std::istreambuf_iterator<char>(maps)), {});
            const bool is_gone = text.find(FilesOf(waited).at(0).filename()) == std::string::npos;
            return is_gone && CreateManual(churned) ? 0 : 1;
        });
        ASSERT_EQ(code, 0);
    }
    churner = {};
    SetEvent(event.get());
    waiter.join();
    event.Close();
    EXPECT_EQ(OpenError(waited), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(OpenError(churned), ERROR_FILE_NOT_FOUND);
}

TEST(NamedEventTest, OtherUsersAreRefused) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser can become somebody else";
    const std::wstring name = TestName();
    const auto is_refused = [&] {
        if (OpenError(name) != ERROR_ACCESS_DENIED) return false;
        return !CreateManual(name) && GetLastError() == ERROR_ACCESS_DENIED;
    };
    {
        const Handle event = CreateManual(name);
        EXPECT_EQ(RunInChild([&] { return setuid(NOBODY) == 0 && is_refused() ? 0 : 1; }), 0);
    }
    const Signal created;
    {
        const ChildProcess nobody([&] {
            if (setuid(NOBODY) != 0) return 1;
            const Handle event = CreateManual(name);
            created.Give();
            pause();
            return 1;
        });
        created.Take();
        EXPECT_TRUE(is_refused()) << "the superuser, too";
    }
    EXPECT_TRUE(CreateManual(name)) << "who can tell that nobody holds it any more";
    EXPECT_THAT(FilesOf(name), IsEmpty());
}

// The file's place, with something else in it.
class EventFileTest : public testing::Test {
 protected:
    EventFileTest() {
        const Handle event = CreateManual(name_);
        path_ = FilesOf(name_).at(0);
    }
    ~EventFileTest() override {
        std::filesystem::remove_all(path_);
        std::filesystem::remove_all(elsewhere_);
    }

    static void Write(const std::filesystem::path& path, const std::string& content, mode_t mode = 0600) {
        std::ofstream(path, std::ios::binary) << content;
        chmod(path.c_str(), mode);
    }
    void ExpectRefused() const {
        EXPECT_EQ(OpenError(name_), ERROR_ACCESS_DENIED);
        EXPECT_FALSE(CreateManual(name_));
        EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    }
    void ExpectCreatedAnew() const {
        const Handle event = CreateManual(name_);
        EXPECT_TRUE(event && GetLastError() == ERROR_SUCCESS);
        EXPECT_FALSE(IsLetThrough(event));
        struct stat status = {};
        EXPECT_EQ(stat(path_.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0600U);
        EXPECT_EQ(OpenError(name_), ERROR_SUCCESS);
    }

    const std::wstring name_ = TestName();
    std::filesystem::path path_;
    const std::filesystem::path elsewhere_ = "/dev/shm/" + std::to_string(getpid()) + "-elsewhere";
};

TEST_F(EventFileTest, LeftOverContentIsNotTrustedAndHeldContentRefused) {
    for (const std::string& content : {std::string(), std::string(1056, '\xFF'), std::string(100'000, 'x')}) {
        Write(path_, content, 0666);
        EXPECT_EQ(OpenError(name_), ERROR_FILE_NOT_FOUND);
        EXPECT_FALSE(std::filesystem::exists(path_));
        Write(path_, content, 0666);
        ExpectCreatedAnew();

        Write(path_, content);
        const int file = open(path_.c_str(), O_RDWR | O_CLOEXEC);
        struct flock hold = {};
        hold.l_type = F_RDLCK;
        hold.l_start = 1;
        hold.l_len = 1;
        ASSERT_EQ(fcntl(file, F_OFD_SETLK, &hold), 0);
        ExpectRefused();
        EXPECT_EQ(std::filesystem::file_size(path_), content.size());
        close(file);
        ExpectCreatedAnew();
    }
}

TEST_F(EventFileTest, LinksAndWhatIsNoFileAreLeftAlone) {
    Write(elsewhere_, "precious");
    std::filesystem::create_symlink(elsewhere_, path_);
    ExpectRefused();
    std::filesystem::remove(path_);
    std::filesystem::create_directory(path_);
    ExpectRefused();
    std::filesystem::remove(path_);
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    ExpectRefused();
    std::filesystem::remove(path_);
    std::filesystem::create_hard_link(elsewhere_, path_);
    ExpectCreatedAnew();
    EXPECT_EQ(std::filesystem::file_size(elsewhere_), 8U);
}

TEST_F(EventFileTest, FullOrMissingSharedMemoryIsReported) {
    const int code = RunInChild([&] {
        if (unshare(CLONE_NEWNS) != 0) return 77;
        if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return 77;
        if (mount("tmpfs", "/dev/shm", "tmpfs", 0, "size=4096") != 0) return 77;
        const Handle first = CreateManual(name_);
        if (!first || !SetEvent(first.get())) return 1;
        if (CreateManual(name_ + L"b") || GetLastError() != ERROR_NOT_ENOUGH_MEMORY) return 2;
        if (!FilesOf(name_ + L"b").empty()) return 3;
        if (mount("tmpfs", "/dev", "tmpfs", 0, nullptr) != 0) return 77;
        if (CreateManual(name_) || GetLastError() != ERROR_PATH_NOT_FOUND) return 4;
        return OpenError(name_) == ERROR_FILE_NOT_FOUND ? 0 : 5;
    });
    if (code == 77) GTEST_SKIP() << "needs the right to mount";
    EXPECT_EQ(code, 0);
}

TEST_F(EventFileTest, ProcessWithoutFreeFilesGetsNoNamedEvent) {
    EXPECT_EQ(RunInChild([&] {
                  while (dup(STDERR_FILENO) >= 0) {
                  }
                  if (CreateManual(name_) || GetLastError() != ERROR_TOO_MANY_OPEN_FILES) return 1;
                  return Handle(CreateEventW(nullptr, FALSE, TRUE, nullptr)) ? 0 : 2;
              }),
              0);
}

// What a program prints after it has closed its standard descriptors must not get into the event.
TEST_F(EventFileTest, StandardDescriptorsAreLeftAlone) {
    EXPECT_EQ(RunInChild([&] {
                  for (const int fd : {0, 1, 2})
                      close(fd);
                  const Handle event = CreateManual(name_);
                  const Handle again(OpenEventW(EVENT_MODIFY_STATE, FALSE, name_.c_str()));
                  if (!event || !again) return 1;
                  for (const int fd : {0, 1, 2}) {
                      if (write(fd, "text", 4) != -1) return 2;
                  }
                  return OpenError(name_) == 0 ? 0 : 3;
              }),
              0);
}

}  // namespace
