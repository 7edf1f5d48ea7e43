#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <list>
#include <new>
#include <random>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <windows.h>

#include "tests/platform/events.h"
#include "tests/platform/threads.h"
#include "tests/service/child_process.h"

namespace {

using std::chrono::milliseconds;
using testing::IsEmpty;

constexpr uid_t NOBODY = 65534;
// After so many seconds a child ends that the test should have ended long before.
constexpr unsigned CHILD_SECONDS = 120;

// Memory that children share with the test; it begins as 0.
template <class Value>
class Shared {
 public:
    Shared()
        : value_(new (mmap(nullptr, sizeof(Value), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
                     Value{}) {}
    ~Shared() { munmap(value_, sizeof(Value)); }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;

    Value* operator->() const { return value_; }
    Value& operator*() const { return *value_; }

 private:
    Value* value_;
};

// Lets nobody on before all have come, again and again.
class Barrier {
 public:
    void Pass(int count) {
        const int round = rounds_;
        if (++arrived_ == count) {
            arrived_ = 0;
            ++rounds_;
        }
        while (rounds_ == round)
            std::this_thread::yield();
    }

 private:
    std::atomic<int> arrived_{0};
    std::atomic<int> rounds_{0};
};

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
    {
        const Handle event(OpenEventW(EVENT_MODIFY_STATE, FALSE, name.c_str()));
        ASSERT_TRUE(event);
        EXPECT_TRUE(SetEvent(event.get()));
    }
    EXPECT_EQ(waiter.Wait(), 0);
    EXPECT_EQ(OpenError(name), ERROR_FILE_NOT_FOUND);
    EXPECT_THAT(FilesOf(name), IsEmpty());
}

TEST(NamedEventTest, KilledHolderHoldsNothing) {
    const std::wstring name = TestName();
    const Signal created;
    const auto create_and_stay = [&] {
        const Handle event(CreateEventW(nullptr, TRUE, TRUE, name.c_str()));
        created.Give();
        alarm(CHILD_SECONDS);
        pause();
        return 1;
    };
    for (const bool opens_first : {true, false}) {
        ChildProcess creator(create_and_stay);
        created.Take();
        EXPECT_EQ(OpenError(name), ERROR_SUCCESS);
        creator.Kill();
        creator.Wait();
        if (opens_first) {
            EXPECT_EQ(OpenError(name), ERROR_FILE_NOT_FOUND);
            EXPECT_THAT(FilesOf(name), IsEmpty());
        }
        const Handle event = CreateManual(name);
        EXPECT_EQ(GetLastError(), ERROR_SUCCESS) << "it is a new one";
        EXPECT_FALSE(IsLetThrough(event)) << "and has nothing of the old one's state";
    }
    ChildProcess creator(create_and_stay);
    created.Take();
    const Handle other = Open(name);
    creator.Kill();
    creator.Wait();
    EXPECT_EQ(OpenError(name), ERROR_SUCCESS) << "while somebody else holds it, it stays";
    EXPECT_TRUE(IsLetThrough(other));
}

TEST(NamedEventTest, KilledSleeperTakesNoSignal) {
    const std::wstring name = TestName();
    const Handle event = CreateAutomatic(name);
    std::list<SleepingProcess> sleepers;
    for (int i = 0; i < 3; ++i)
        sleepers.emplace_back(name);
    for (int i = 0; i < 2; ++i) {
        sleepers.front().child().Kill();
        sleepers.front().child().Wait();
        sleepers.pop_front();
    }
    SetEvent(event.get());
    EXPECT_EQ(sleepers.front().child().Wait(), 0);
    SetEvent(event.get());
    SetEvent(event.get());
    EXPECT_TRUE(IsLetThrough(event));
    EXPECT_FALSE(IsLetThrough(event)) << "a signal was kept for the dead";
}

TEST(NamedEventTest, ManualOneReleasesTheSleepersOfAllProcesses) {
    const std::wstring name = TestName();
    const Handle event = CreateManual(name);
    std::list<SleepingProcess> sleepers;
    for (int i = 0; i < 3; ++i)
        sleepers.emplace_back(name);
    SetEvent(event.get());
    ResetEvent(event.get());
    for (SleepingProcess& sleeper : sleepers)
        EXPECT_EQ(sleeper.child().Wait(), 0);
}

TEST(NamedEventTest, ProcessesThatCreateOneNameAtOnceGetOneEvent) {
    constexpr int PROCESSES = 4;
    constexpr int ROUNDS = 300;
    const std::wstring name = TestName();
    const Shared<Barrier> barrier;
    const Shared<std::atomic<int>> news, faults;
    const auto take_part = [&](bool is_first) {
        for (int round = 0; round < ROUNDS; ++round) {
            barrier->Pass(PROCESSES);
            Handle event(CreateEventW(nullptr, TRUE, FALSE, name.c_str()));
            if (event && GetLastError() == ERROR_SUCCESS) ++*news;
            if (!event || IsLetThrough(event)) ++*faults;
            barrier->Pass(PROCESSES);
            if (is_first) SetEvent(event.get());
            barrier->Pass(PROCESSES);
            if (!IsLetThrough(event)) ++*faults;
            event.Close();
            barrier->Pass(PROCESSES);
            if (is_first && OpenError(name) != ERROR_FILE_NOT_FOUND) ++*faults;
        }
        return 0;
    };
    std::list<ChildProcess> children;
    for (int i = 0; i < PROCESSES; ++i)
        children.emplace_back([&, i] { return take_part(i == 0); });
    for (ChildProcess& child : children)
        EXPECT_EQ(child.Wait(), 0);
    EXPECT_EQ(*news, ROUNDS);
    EXPECT_EQ(*faults, 0);
    EXPECT_THAT(FilesOf(name), IsEmpty());
}

TEST(NamedEventTest, NobodyMakesOrRemovesAnEventThatIsHeld) {
    constexpr int ROUNDS = 1'000;
    const std::wstring name = TestName();
    const Shared<std::atomic<int>> faults;
    std::filesystem::path path;
    {
        const Handle event = CreateManual(name);
        path = FilesOf(name).at(0);
    }
    const auto file_number = [&] {
        struct stat status = {};
        return stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
    };
    const auto create_and_close = [&] {
        for (int round = 0; round < ROUNDS; ++round) {
            const bool opens = round % 3 == 0;
            const Handle event = opens ? Open(name) : CreateManual(name);
            if (!event) {
                if (!opens || GetLastError() != ERROR_FILE_NOT_FOUND) ++*faults;
                continue;
            }
            const ino_t number = file_number();
            if (OpenError(name) != ERROR_SUCCESS || number == 0) ++*faults;
            std::this_thread::yield();
            if (file_number() != number) ++*faults;
        }
        return 0;
    };
    std::list<ChildProcess> children;
    for (int i = 0; i < 3; ++i)
        children.emplace_back(create_and_close);
    for (ChildProcess& child : children)
        EXPECT_EQ(child.Wait(), 0);
    EXPECT_EQ(*faults, 0);
    EXPECT_THAT(FilesOf(name), IsEmpty());
}

TEST(NamedEventTest, EachSetIsTakenByExactlyOneOfTheWaitersOfAllProcesses) {
    constexpr int ROUNDS = 2'000;
    const std::wstring name = TestName();
    const Handle event = CreateAutomatic(name);
    const Shared<std::atomic<int>> taken;
    const Shared<std::atomic<bool>> is_done;
    const auto take = [&] {
        const Handle opened = Open(name);
        RunInThreads(2, [&] {
            for (;;) {
                if (!IsLetThrough(opened, INFINITE)) return;
                if (*is_done) break;
                ++*taken;
            }
            // The next one shall leave, too.
            SetEvent(opened.get());
        });
        return 0;
    };
    std::list<ChildProcess> children;
    for (int i = 0; i < 3; ++i)
        children.emplace_back(take);
    for (int round = 1; round <= ROUNDS; ++round) {
        SetEvent(event.get());
        while (*taken < round)
            std::this_thread::yield();
        ASSERT_EQ(*taken, round);
    }
    std::this_thread::sleep_for(milliseconds(20));
    EXPECT_EQ(*taken, ROUNDS);
    *is_done = true;
    SetEvent(event.get());
    for (ChildProcess& child : children)
        EXPECT_EQ(child.Wait(), 0);
}

// Processes are killed wherever they happen to be while they create, open, set, wait and close. Nobody else
// may notice.
TEST(NamedEventTest, ProcessesKilledAnywhereDisturbNobody) {
    constexpr int KILLS = 120;
    const std::wstring name = TestName();
    const std::wstring passing = TestName();
    Handle event = CreateAutomatic(name);
    std::minstd_rand random(7);
    const auto use_all = [&]() -> int {
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
    for (int kill = 0; kill < KILLS; ++kill) {
        ChildProcess victim(use_all);
        const auto end =
            std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 6'000 + 2'000);
        while (std::chrono::steady_clock::now() < end) {
            ASSERT_TRUE(SetEvent(event.get()));
            ASSERT_TRUE(CreateManual(passing));
            IsLetThrough(event, 1);
        }
        victim.Kill();
        victim.Wait();
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
    ChildProcess child([&]() -> int {
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
    });
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_THAT(FilesOf(name), IsEmpty());
    EXPECT_THAT(FilesOf(name + L"b"), IsEmpty());
}

TEST(NamedEventTest, ParentAndForkedChildCloseOnlyTheirOwnHandles) {
    const std::wstring name = TestName();
    const Signal go, is_closed;
    Handle event = CreateAutomatic(name);
    Handle unnamed(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    EXPECT_EQ(RunInChild([&] {
                  event.Close();
                  return SetEvent(unnamed.get()) ? 0 : 1;
              }),
              0);
    EXPECT_TRUE(IsLetThrough(unnamed));
    EXPECT_EQ(OpenError(name), ERROR_SUCCESS) << "the child's close took the parent's event away";

    ChildProcess child([&] {
        go.Take();
        const bool is_shared = SetEvent(event.get()) && OpenError(name) == ERROR_SUCCESS;
        is_closed.Take();
        event.Close();
        return is_shared && OpenError(name) == ERROR_FILE_NOT_FOUND ? 0 : 1;
    });
    Handle other = Open(name);
    event.Close();
    EXPECT_EQ(OpenError(name), ERROR_SUCCESS) << "the parent's close took the child's event away";
    go.Give();
    EXPECT_TRUE(IsLetThrough(other, INFINITE));
    other.Close();
    is_closed.Give();
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_THAT(FilesOf(name), IsEmpty());
}

TEST(NamedEventTest, ForkedChildIsFreeOfItsParentsOtherThreads) {
    const std::wstring waited = TestName();
    const std::wstring churned = TestName();
    Handle event = CreateAutomatic(waited);
    std::atomic<pid_t> sleeper = 0;
    std::atomic<bool> is_done = false;
    std::jthread waiter([&] {
        sleeper = gettid();
        WaitForSingleObject(event.get(), INFINITE);
    });
    std::jthread churner([&] {
        while (!is_done)
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
    is_done = true;
    SetEvent(event.get());
    waiter.join();
    churner.join();
    event.Close();
    EXPECT_EQ(OpenError(waited), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(OpenError(churned), ERROR_FILE_NOT_FOUND);
}

TEST(NamedEventTest, OtherUsersAreRefused) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser can become somebody else";
    const std::wstring name = TestName();
    {
        const Handle event = CreateManual(name);
        EXPECT_EQ(RunInChild([&] {
                      if (setuid(NOBODY) != 0) return 1;
                      if (OpenError(name) != ERROR_ACCESS_DENIED) return 2;
                      return CreateManual(name) || GetLastError() != ERROR_ACCESS_DENIED ? 3 : 0;
                  }),
                  0);
    }
    const Signal created;
    ChildProcess nobody([&] {
        if (setuid(NOBODY) != 0) return 1;
        const Handle event = CreateManual(name);
        created.Give();
        alarm(CHILD_SECONDS);
        pause();
        return 1;
    });
    created.Take();
    EXPECT_EQ(OpenError(name), ERROR_ACCESS_DENIED) << "the superuser, too";
    EXPECT_FALSE(CreateManual(name));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    nobody.Kill();
    nobody.Wait();
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

    void Write(const std::filesystem::path& path, const std::string& content, mode_t mode = 0600) const {
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

TEST_F(EventFileTest, LeftOverContentIsNotTrusted) {
    const std::string contents[] = {"", "x", std::string(1056, '\xFF'), std::string(100'000, 'x')};
    for (const std::string& content : contents) {
        for (const mode_t mode : {0600, 0666}) {
            Write(path_, content, mode);
            EXPECT_EQ(OpenError(name_), ERROR_FILE_NOT_FOUND);
            EXPECT_FALSE(std::filesystem::exists(path_));
            Write(path_, content, mode);
            ExpectCreatedAnew();
        }
    }
}

TEST_F(EventFileTest, ContentThatSomebodyHoldsIsRefused) {
    for (const std::string& content : {std::string(), std::string(1056, '\1'), std::string(100'000, 'x')}) {
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
