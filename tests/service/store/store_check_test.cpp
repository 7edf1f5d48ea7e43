// What a check finds, and the copies and figures of a store.
#include <atomic>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "service/store/lmdb_environment.h"
#include "service/store/store_check.h"
#include "tests/service/child_process.h"
#include "tests/service/store/repository_fixture.h"
#include "tests/service/store/store_access.h"

namespace service {
namespace {

using namespace std::string_literals;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class StoreCheckTest : public RepositoryFixture {
 protected:
    StoreCheckTest() {
        EXPECT_EQ(PutClass(Declare("Policy", {Key("ID"), Property("Days", CimType::kUint32),
                                              ArrayProperty("Tags", CimType::kString)})),
                  0);
        EXPECT_EQ(PutClass(Declare("Sub", {Property("Held", CimType::kObject)}, "Policy")), 0);
        EXPECT_EQ(PutInstance("Policy", {{"ID", "plain"s}, {"Days", uint64_t{7}}}), 0);
        const auto held = std::make_shared<const Instance>(Make("Policy", {{"ID", "in"s}}));
        EXPECT_EQ(PutInstance("Sub", {{"ID", "sub"s}, {"Tags", Array{"a"s, "b"s}}, {"Held", held}}), 0);
        EXPECT_EQ(PutInstance("Policy", {{"ID", std::string(600, 'k')}}), 0);
        EXPECT_EQ(DeleteInstance(PathOf("Policy", "plain")), 0);
        EXPECT_EQ(PutInstance("Policy", {{"ID", "again"s}}), 0);
        auto opened = LmdbEnvironment::Open(path, {});
        EXPECT_OK(opened);
        environment = *opened;
    }

    std::vector<std::string> Findings(StoreCheck::Counts* counts = nullptr) {
        std::vector<std::string> findings;
        StoreCheck check(*repository->store());
        EXPECT_OK(check.Run({{}, [&](const std::string& finding) { findings.push_back(finding); }}));
        EXPECT_EQ(check.counts().findings, findings.size());
        if (counts) *counts = check.counts();
        return findings;
    }

    using Entry = std::pair<std::string, std::string>;
    std::vector<Entry> EntriesOf(MDB_dbi table) {
        std::vector<Entry> entries;
        ReadTransaction txn(*environment);
        EXPECT_OK(txn.Begin());
        MDB_cursor* cursor = nullptr;
        EXPECT_EQ(mdb_cursor_open(txn.get(), table, &cursor), 0);
        MDB_val k{}, v{};
        while (mdb_cursor_get(cursor, &k, &v, MDB_NEXT) == 0)
            entries.emplace_back(ViewOf(k), ViewOf(v));
        mdb_cursor_close(cursor);
        return entries;
    }
    void Change(MDB_dbi table, const std::string& key, const std::string* value) {
        WriteTransaction txn(*environment);
        EXPECT_OK(txn.Begin());
        EXPECT_EQ(value ? txn.Put(table, ValueOf(key), ValueOf(*value)) : txn.Delete(table, ValueOf(key)), 0);
        EXPECT_EQ(txn.Commit(), 0);
    }

    std::shared_ptr<LmdbEnvironment> environment;
};

TEST_F(StoreCheckTest, ASoundStoreIsCounted) {
    StoreCheck::Counts counts;
    EXPECT_THAT(Findings(&counts), IsEmpty());
    EXPECT_THAT((std::vector{counts.namespaces, counts.classes, counts.instances, counts.changes}),
                ElementsAre(2, 2, 3, 5));
    StoreCheck check(*repository->store());
    ASSERT_OK(check.Run({}));
    const auto& use = check.use();
    EXPECT_THAT(
        (std::vector<uint64_t>{use.class_depth, use.embedding_depth, use.array_elements, use.key_bytes}),
        ElementsAre(1, 1, 2, 600));
}

// Nothing that LMDB leaves in its file may be taken for damage: the store would not be opened any more.
TEST_F(StoreCheckTest, AMuchChangedFileIsSound) {
    std::mt19937 random(4);
    const auto store = OpenStore(directory.path() + "/busy", {.change_log_bytes = 256 * 1024});
    for (int round = 0; round < 120; ++round) {
        EXPECT_OK(store->Write([&](StoreWriter& writer) -> Status {
            for (int i = 0; i < 60; ++i) {
                const std::string id =
                    std::string(random() % 3 ? 8 : 300, 'k') + std::to_string(random() % 900);
                const std::string record(random() % 4 ? random() % 300 : random() % 20'000, 'r');
                SERVICE_RETURN_IF_ERROR(random() % 3 ? PutIn(writer, 1, id, record)
                                                     : DeleteIn(writer, 1, id));
            }
            return {};
        }));
        EXPECT_OK(store->FindFaults([&](const std::string& fault) {
            ADD_FAILURE() << "round " << round << ": " << fault;
            return false;
        }));
    }
}

TEST_F(StoreCheckTest, AFlippedByteInAnyRecordIsFound) {
    const LmdbTables& tables = environment->tables();
    size_t flips = 0;
    for (const MDB_dbi table : {tables.schema, tables.instances, tables.log}) {
        for (const auto& [key, value] : EntriesOf(table)) {
            // Every byte of the fixed parts at the front, and some of what follows.
            for (size_t at = 0; at < value.size(); at += at < 24 ? 1 : 13) {
                std::string damaged = value;
                damaged[at] = static_cast<char>(damaged[at] ^ (1 << (flips++ % 8)));
                Change(table, key, &damaged);
                EXPECT_FALSE(Findings().empty()) << "table " << table << " byte " << at;
            }
            Change(table, key, &value);
        }
    }
    EXPECT_GT(flips, 200U);
    EXPECT_THAT(Findings(), IsEmpty());
}

TEST_F(StoreCheckTest, WhatIsMissingOrInTheWrongPlaceIsNamed) {
    const LmdbTables& tables = environment->tables();
    // Without its record nothing of a class can be read; without the namespace's nothing of it.
    for (const auto& [key, value] : EntriesOf(tables.schema)) {
        Change(tables.schema, key, nullptr);
        const char* const named = key[0] == 'N' ? "belongs to no namespace" : "which is not there or damaged";
        EXPECT_THAT(Findings(), Contains(HasSubstr(named)));
        Change(tables.schema, key, &value);
    }
    // A record under another's key, in the table of short keys and in that of long ones.
    for (const auto& [key, value] : EntriesOf(tables.instances)) {
        std::string moved = key;
        moved.back() = static_cast<char>(moved.back() ^ 1);
        Change(tables.instances, key, nullptr);
        Change(tables.instances, moved, &value);
        EXPECT_THAT(Findings(), Contains(AllOf(HasSubstr("the instance of class"), HasSubstr("root\\Test"))));
        Change(tables.instances, moved, nullptr);
        Change(tables.instances, key, &value);
    }
    Change(tables.log, EntriesOf(tables.log)[2].first, nullptr);
    EXPECT_THAT(Findings(), Contains(HasSubstr("from 2 to 4")));
    const std::string zero(8, '\0');
    Change(tables.meta, "next-id", &zero);
    EXPECT_THAT(Findings(), Contains(HasSubstr("given out only 0")));
}

TEST_F(StoreCheckTest, ABackupIsAStoreOfItsOwn) {
    const std::string copy = directory.path() + "/copy";
    std::atomic<bool> is_done{false};
    int written = 0;
    {
        std::jthread writer([&] {
            for (; !is_done; ++written)
                EXPECT_EQ(PutInstance("Policy", {{"ID", "new" + std::to_string(written)}}), 0);
        });
        EXPECT_OK(repository->store()->Backup(copy));
        is_done = true;
    }
    EXPECT_EQ(repository->store()->Backup(copy).code(), WBEM_E_ALREADY_EXISTS);
    EXPECT_EQ(repository->store()->Backup(directory.path() + "/no/where").code(), WBEM_E_NOT_AVAILABLE);
    EXPECT_EQ(std::filesystem::status(copy).permissions(), std::filesystem::perms::owner_all);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()), {}), 2)
        << "nothing is left";

    // In a process of its own, and after the system was started anew: nothing that was written since comes.
    for (const uint64_t boot : {uint64_t{0}, uint64_t{77}}) {
        EXPECT_EQ(RunInChild([&] {
                      auto opened = Repository::Open(copy, {.boot = boot});
                      if (!opened.ok()) return 1;
                      repository = *opened;
                      StoreCheck check(*repository->store());
                      if (!check.Run({}).ok() || check.counts().findings != 0) return 2;
                      if (check.counts().changes != check.counts().instances + 2) return 3;
                      const Instance mine = Make("Policy", {{"ID", boot == 0 ? "mine"s : "other"s}});
                      if (PutInstance(mine, PutCondition::kCreateOnly) != 0) return 4;
                      return Get(PathOf("Policy", "mine")).ok() && !HasFailure() ? 0 : 5;
                  }),
                  0);
    }
    EXPECT_EQ(Get(PathOf("Policy", "mine")).code(), WBEM_E_NOT_FOUND);
}

TEST_F(StoreCheckTest, ReadingMakesNoStore) {
    const std::string missing = directory.path() + "/mistyped";
    const auto opened = *Repository::Open(missing);
    EXPECT_EQ(opened->FindNamespace("root\\Test").code(), WBEM_E_INVALID_NAMESPACE);
    EXPECT_OK(opened->FindNamespace("root"));
    EXPECT_FALSE(opened->store()->IsThere());
    EXPECT_TRUE(Scan(*opened->store(), 1).empty());
    EXPECT_EQ(opened->store()->Backup(missing + "2").code(), WBEM_E_NOT_FOUND);
    EXPECT_FALSE(std::filesystem::exists(missing));
    // What somebody else makes is there at once.
    EXPECT_EQ(RunInChild([&] { return Put(*OpenStore(missing), 1, "k", "r"), 0; }), 0);
    EXPECT_EQ(service::Get(*opened->store(), 1, "k"), "r");
}

}  // namespace
}  // namespace service
