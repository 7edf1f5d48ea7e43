// Several processes with one store.
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/system/system_fixture.h"

namespace {

class ProcessesTest : public SystemTest {};

TEST_F(ProcessesTest, ManyThreadsOfManyProcessesSeeWholeWrites) {
    ASSERT_TRUE(Import(R"(
class Pair { [key] string INSTANCE_ID; uint32 Left; uint32 Right; string Text; };
class Counter { [key] string INSTANCE_ID; uint32 N; };)"));
    for (int i = 0; i < 4; ++i) {
        const std::wstring id = L"pair-" + Digits(i);
        CMgmtObject pair(L"Pair", id.c_str(), nullptr);
        pair.SetPropertyValue(L"INSTANCE_ID", id.c_str());
        pair.SetPropertyValue(L"Left", 0L);
        pair.SetPropertyValue(L"Right", 0L);
        pair.SetPropertyValue(L"Text", TextFor(0).c_str());
        ASSERT_TRUE(pair.Put(true));
    }
    constexpr int kProcesses = 4;
    const std::string rounds = kIsSanitized ? "15" : "120";
    std::vector<std::unique_ptr<WorkerProcess>> workers;
    for (int i = 0; i < kProcesses; ++i)
        workers.push_back(
            std::make_unique<WorkerProcess>(std::vector<std::string>{"stress", std::to_string(i), rounds}));
    for (const auto& worker : workers)
        EXPECT_EQ(worker->Wait(), 0);
}

TEST_F(ProcessesTest, WhatOneDoesAllSee) {
    WorkerProcess importer({"serve"}), creator({"serve"}), reader({"serve"});
    EXPECT_EQ(reader.Ask("get Policy a Days"), "no");  // there is not even a namespace
    EXPECT_EQ(importer.Ask("import class Policy { [key] string INSTANCE_ID; uint32 Days = 7; };"), "yes");
    EXPECT_EQ(creator.Ask("update Policy a Days 30"), "no");
    EXPECT_EQ(creator.Ask("put Policy a Days 30"), "yes");
    EXPECT_EQ(reader.Ask("get Policy a Days"), "30");
    EXPECT_EQ(reader.Ask("get Policy A INSTANCE_ID"), "a");
    EXPECT_EQ(importer.Ask("update Policy a Days 31"), "yes");
    EXPECT_EQ(creator.Ask("get Policy a Days"), "31");
    EXPECT_EQ(reader.Ask("delete Policy a"), "yes");
    for (const WorkerProcess* worker : {&importer, &creator, &reader}) {
        EXPECT_EQ(worker->Ask("get Policy a Days"), "no");
        EXPECT_EQ(worker->Ask("delete Policy a"), "no");
    }
    EXPECT_EQ(importer.Wait() + creator.Wait() + reader.Wait(), 0);
}

TEST_F(ProcessesTest, ASchemaMayChangeUnderObjectsInHand) {
    WorkerProcess holder({"serve"}), changer({"serve"});
    ASSERT_EQ(
        changer.Ask("import class Policy { [key] string INSTANCE_ID; uint32 Days = 7; uint32 Old = 1; };"),
        "yes");
    ASSERT_EQ(holder.Ask("put Policy plain Old 5"), "yes");
    ASSERT_EQ(holder.Ask("keep Policy plain"), "yes");
    EXPECT_EQ(holder.Ask("get-kept Policy plain Days"), "7");

    ASSERT_EQ(changer.Ask("import class Policy { uint32 New = 3; uint32 Old = 2; [key] string INSTANCE_ID; "
                          "uint32 Days = 90; };"),
              "yes");
    EXPECT_EQ(holder.Ask("get-kept Policy plain Days"), "7") << "the object in hand stays what it was";
    EXPECT_EQ(holder.Ask("get Policy plain Days"), "90") << "a new one is of the new class";
    EXPECT_EQ(holder.Ask("get Policy plain New"), "3");
    EXPECT_EQ(holder.Ask("put-kept Policy plain Old 6"), "yes");
    EXPECT_EQ(changer.Ask("get Policy plain Old"), "6");
    // All that was in the bag was written, the default of then with it.
    EXPECT_EQ(changer.Ask("get Policy plain Days"), "7");
    EXPECT_EQ(changer.Ask("get Policy plain New"), "3");

    EXPECT_EQ(changer.Ask("import class Policy { [key] string INSTANCE_ID; };"), "no")
        << "an instance holds values";
    ASSERT_EQ(changer.Ask("delete Policy plain"), "yes");
    EXPECT_EQ(changer.Ask("import class Policy { [key] string INSTANCE_ID; };"), "yes");
    EXPECT_EQ(holder.Ask("put-kept Policy plain Old 7"), "no");
    EXPECT_EQ(holder.Ask("put Policy other Old 7"), "no");
    EXPECT_EQ(changer.Ask("get Policy plain INSTANCE_ID"), "no");
    EXPECT_EQ(holder.Wait() + changer.Wait(), 0);
}

}  // namespace
