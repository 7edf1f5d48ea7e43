// Whether the seal of a data file tells the store's own writers from everybody else.
#include "service/store/file_seal.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "tests/service/child_process.h"
#include "tests/service/temporary_directory.h"

namespace service {
namespace {

constexpr uint64_t kBoot = 77;

class FileSealTest : public testing::Test {
 protected:
    FileSealTest() {
        signal.Open(directory.path() + "/changes.signal");
        seal.Open(signal, fd, kBoot);
        LookThrough();
    }
    ~FileSealTest() override { close(fd); }

    void LookThrough() {
        const FileSeal::Look look = seal.BeginLook();
        seal.EndLook(look);
    }
    void WriteToFile() const { EXPECT_EQ(pwrite(fd, "x", 1, 0), 1); }
    // Another hundredth of a second later.
    void SomebodyElseWrites() const {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        WriteToFile();
    }
    void Commit(uint64_t number) {
        EXPECT_FALSE(seal.IsViolatedBefore(number));
        const FileSeal::Writing writing(seal, number);
        WriteToFile();
    }
    // A writer that is killed before its commit is done.
    void BeginAndDie(uint64_t number) {
        RunInChild([&] {
            const FileSeal::Writing writing(seal, number);
            WriteToFile();
            _exit(0);
            return 0;
        });
    }

    TemporaryDirectory directory;
    ChangeSignal signal;
    FileSeal seal;
    const int fd = open((directory.path() + "/data").c_str(), O_RDWR | O_CREAT, 0600);
};

TEST_F(FileSealTest, HoldsThroughTheStoresOwnWritesAndNoOther) {
    EXPECT_TRUE(seal.Holds());
    Commit(1);
    Commit(2);
    EXPECT_TRUE(seal.Holds());
    EXPECT_FALSE(seal.IsViolated());

    SomebodyElseWrites();
    EXPECT_FALSE(seal.Holds());
    EXPECT_TRUE(seal.IsViolated());
    EXPECT_TRUE(seal.IsViolatedBefore(3));
    LookThrough();
    EXPECT_TRUE(seal.Holds());
    Commit(3);

    // Somebody else writes while the file is looked through.
    const FileSeal::Look look = seal.BeginLook();
    SomebodyElseWrites();
    seal.EndLook(look);
    EXPECT_FALSE(seal.Holds());
}

TEST_F(FileSealTest, IsGoodForOneRunOfTheSystem) {
    FileSeal later;
    later.Open(signal, fd, kBoot + 1);
    EXPECT_FALSE(later.Holds());
    const FileSeal::Look look = later.BeginLook();
    later.EndLook(look);
    EXPECT_TRUE(later.Holds());
}

TEST_F(FileSealTest, AKilledWriterLeavesItBroken) {
    Commit(1);
    BeginAndDie(2);
    EXPECT_FALSE(seal.Holds());
    EXPECT_FALSE(seal.IsViolated()) << "it may be alive";
    EXPECT_TRUE(seal.IsViolated()) << "it would have come to an end by now";
    EXPECT_TRUE(seal.IsViolatedBefore(2)) << "its transaction never was";
    EXPECT_FALSE(seal.IsViolatedBefore(3)) << "it died between its commit and the seal";
    LookThrough();
    EXPECT_TRUE(seal.Holds());
}

TEST_F(FileSealTest, AWriterThatWasTakenForDeadSealsTheFileAllTheSame) {
    {
        const FileSeal::Writing writing(seal, 1);
        EXPECT_FALSE(seal.IsViolated()) << "nobody can tell yet";
        EXPECT_FALSE(seal.Holds());
        LookThrough();
        EXPECT_TRUE(seal.Holds());
        SomebodyElseWrites();
        EXPECT_TRUE(seal.IsViolated());
    }
    EXPECT_TRUE(seal.Holds());
}

// LMDB's lock is given away before the file is sealed.
TEST_F(FileSealTest, OverlappingWritersLeaveItToTheLast) {
    std::optional<FileSeal::Writing> first;
    first.emplace(seal, 1);
    WriteToFile();
    EXPECT_FALSE(seal.IsViolatedBefore(2));
    std::optional<FileSeal::Writing> second;
    second.emplace(seal, 2);
    first.reset();
    EXPECT_FALSE(seal.Holds());
    SomebodyElseWrites();
    second.reset();
    EXPECT_TRUE(seal.Holds());
}

// With many writers there may be no moment at which the file is sealed.
TEST_F(FileSealTest, HoldsWhereOneCommitFollowsTheOther) {
    std::atomic<bool> is_done{false};
    std::optional<FileSeal::Writing> writings[2];
    writings[0].emplace(seal, 0);
    std::thread writers([&] {
        for (uint64_t number = 1; !is_done; ++number)
            writings[number % 2].emplace(seal, number);
    });
    bool holds = false;
    for (int i = 0; i < 100 && !holds; ++i)
        holds = seal.Holds();
    EXPECT_TRUE(holds);
    is_done = true;
    writers.join();
}

TEST_F(FileSealTest, WithoutASignalTheFileIsLookedThroughAtEveryOpening) {
    const ChangeSignal none;
    FileSeal without;
    without.Open(none, fd, kBoot);
    const FileSeal::Look look = without.BeginLook();
    without.EndLook(look);
    EXPECT_FALSE(without.Holds());
    EXPECT_FALSE(without.IsViolatedBefore(1));
    const FileSeal::Writing writing(without, 1);
}

}  // namespace
}  // namespace service
