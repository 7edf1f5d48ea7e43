// What a crash of the system may take: the meta page of the last commit, which is not flushed. The crash is
// made by putting the meta pages back as they were before that commit.
#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>
#include <lmdb.h>

#include "service/store/redo_slots.h"
#include "tests/service/child_process.h"
#include "tests/service/store/store_access.h"
#include "tests/service/temporary_directory.h"

namespace service {
namespace {

constexpr size_t kMetaPages = 2 * 4096;

class LostMetaPage : public testing::Test {
 protected:
    std::string ReadMetaPages() const {
        std::ifstream file(data_file_, std::ios::binary);
        std::string bytes(kMetaPages, '\0');
        file.read(bytes.data(), kMetaPages);
        return bytes;
    }

    // The system crashed and was started anew.
    void CrashTo(const std::string& meta_pages) {
        WriteMetaPages(meta_pages);
        ++options_.boot;
    }

    void WriteMetaPages(const std::string& bytes) const {
        std::fstream file(data_file_, std::ios::binary | std::ios::in | std::ios::out);
        file.write(bytes.data(), kMetaPages);
    }

    // Each in a process of its own, so that nothing of the store is held in memory between them.
    void PutOnce(std::string_view key, std::string_view record) const {
        ASSERT_EQ(RunInChild([&] { return Put(*OpenStore(path_, options_), 1, key, record), 0; }), 0);
    }
    bool HoldsOnce(std::string_view key, const std::optional<std::string>& record) const {
        return RunInChild([&] { return Get(*OpenStore(path_, options_), 1, key) == record ? 0 : 1; }) == 0;
    }

    const TemporaryDirectory directory_;
    const std::string path_ = directory_.path() + "/store";
    StoreOptions options_{.boot = 1};
    const std::string data_file_ = path_ + "/data.mdb";
};

TEST_F(LostMetaPage, TheCommitIsCarriedOutAgainOnce) {
    PutOnce("first", "1");
    for (int round = 1; round <= 20; ++round) {
        const std::string value = std::to_string(round);
        PutOnce("counter", value + "-kept");
        const std::string before = ReadMetaPages();
        PutOnce("counter", value);
        CrashTo(before);
        ASSERT_TRUE(HoldsOnce("counter", value));
        const std::string restored = ReadMetaPages();
        EXPECT_TRUE(HoldsOnce("first", "1"));
        EXPECT_EQ(ReadMetaPages(), restored);
    }
    EXPECT_EQ(ChangesAfter(*OpenStore(path_, options_), 0).size(), 41U);
}

TEST_F(LostMetaPage, EvenTwoCommitsAreCarriedOutAgainInOrder) {
    PutOnce("a", "1");
    const std::string before = ReadMetaPages();
    PutOnce("a", "2");
    ASSERT_EQ(RunInChild([&] { return Delete(*OpenStore(path_, options_), 1, "a"), 0; }), 0);
    CrashTo(before);
    EXPECT_TRUE(HoldsOnce("a", std::nullopt));
}

// A writer that is killed before its commit is done leaves just this behind.
TEST_F(LostMetaPage, WithoutACrashOfTheSystemTheCommitNeverWas) {
    PutOnce("a", "1");
    const std::string before = ReadMetaPages();
    PutOnce("a", "2");
    WriteMetaPages(before);
    EXPECT_TRUE(HoldsOnce("a", "1"));
    PutOnce("b", "1");
    EXPECT_TRUE(HoldsOnce("a", "1"));
}

// Slots in an LMDB of their own.
class Slots : public testing::Test {
 protected:
    Slots() {
        Check(mdb_env_create(&env_));
        Check(mdb_env_open(env_, directory_.path().c_str(), 0, 0600));
        MDB_txn* txn = nullptr;
        MDB_dbi table = 0;
        Check(mdb_txn_begin(env_, nullptr, 0, &txn));
        Check(mdb_dbi_open(txn, nullptr, 0, &table));
        Check(RedoSlots::Create(txn, table));
        Check(mdb_txn_commit(txn));
        Check(mdb_txn_begin(env_, nullptr, MDB_RDONLY, &txn));
        Check(slots_.Locate(env_, txn, table, 1));
        mdb_txn_abort(txn);
    }
    ~Slots() override { mdb_env_close(env_); }

    static void Check(int code) { ASSERT_EQ(code, 0) << mdb_strerror(code); }

    TemporaryDirectory directory_;
    MDB_env* env_ = nullptr;
    RedoSlots slots_;
};

TEST_F(Slots, HoldTheLastTwoTransactions) {
    const std::string full(RedoSlots::kCapacity, 'x');
    std::string found;
    EXPECT_FALSE(slots_.Read(0, found));
    EXPECT_FALSE(slots_.Read(1, found));
    EXPECT_TRUE(slots_.Write(6, "six"));
    EXPECT_TRUE(slots_.Write(7, "seven"));
    EXPECT_TRUE(slots_.Read(6, found));
    EXPECT_EQ(found, "six");
    EXPECT_TRUE(slots_.Write(8, full));
    EXPECT_FALSE(slots_.Read(6, found));
    EXPECT_TRUE(slots_.Read(7, found));
    EXPECT_EQ(found, "seven");
    EXPECT_TRUE(slots_.Read(8, found));
    EXPECT_EQ(found, full);
    EXPECT_FALSE(slots_.Write(9, full + "x"));
}

TEST_F(Slots, RefuseWhatIsDamaged) {
    const std::string text = "operations of ten";
    std::string found;
    EXPECT_TRUE(slots_.Write(10, text));
    std::fstream file(directory_.path() + "/data.mdb", std::ios::binary | std::ios::in | std::ios::out);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    file.seekp(static_cast<std::streamoff>(bytes.find(text))).put('O').flush();
    EXPECT_FALSE(slots_.Read(10, found));
}

}  // namespace
}  // namespace service
