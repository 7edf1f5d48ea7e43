// Connections made and given up on many threads at once, and schemas that change under what depends on them.
#include <atomic>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/service/child_process.h"
#include "tests/system/system_fixture.h"

namespace {

using ConnectionsTest = SystemTest;

// The locks that this process has on the file. Another process may start a lock file anew on which nobody has
// one.
int LocksOn(const std::string& file) {
    struct stat facts {};
    if (stat(file.c_str(), &facts) != 0) return -1;
    const std::string process = " " + std::to_string(getpid()) + " ";
    const std::string inode = ":" + std::to_string(facts.st_ino) + " ";
    std::ifstream locks("/proc/locks");
    int count = 0;
    for (std::string line; std::getline(locks, line);) {
        if (line.find(process) != std::string::npos && line.find(inode) != std::string::npos) ++count;
    }
    return count;
}

TEST_F(ConnectionsTest, GivingOneUpLeavesTheLocksOfTheOthers) {
    ASSERT_TRUE(
        Import("class Policy { [key] string INSTANCE_ID; }; instance of Policy { INSTANCE_ID = \"a\"; };"));
    constexpr int kThreads = 8;
    constexpr int kRounds = 20;
    for (int round = 0; round < kRounds; ++round) {
        // Each thread connects while others give up what may be the last connection, and keeps its last one.
        std::vector<std::unique_ptr<CMgmtScope>> kept(kThreads);
        std::atomic<int> faults{0};
        {
            std::vector<std::jthread> threads;
            for (auto& scope : kept) {
                threads.emplace_back([&] {
                    const ComThread own;
                    for (int i = 0; i < 5; ++i) {
                        scope = nullptr;
                        scope = std::make_unique<CMgmtScope>();
                        scope->Connect();
                        if (!scope->IsConnected()) ++faults;
                    }
                });
            }
        }
        ASSERT_EQ(faults, 0);
        ASSERT_GT(LocksOn(store + "/lock.mdb"), 0) << "in round " << round;
    }
}

TEST_F(ConnectionsTest, AClassKeepsWhatEmbeddedObjectsDependOn) {
    ASSERT_TRUE(
        Import("class Schedule { uint8 Hour = 2; string Who; };"
               "class Job { Schedule When; };"
               "class Policy { [key] string INSTANCE_ID; object Work; };"));
    ASSERT_TRUE(
        Import("instance of Policy { INSTANCE_ID = \"a\"; Work = instance of Job {"
               "  When = instance of Schedule { Hour = 9; Who = \"me\"; }; }; };"));
    EXPECT_FALSE(Import("class Schedule { uint16 Hour = 2; string Who; };"));
    EXPECT_FALSE(Import("class Schedule { uint8 Hour = 2; };"));
    EXPECT_TRUE(Import("class Schedule { uint8 Hour = 3; string Who; string Added; };"));

    CComPtr<IWbemLocator> locator;
    ASSERT_EQ(locator.CoCreateInstance(CLSID_WbemLocator), S_OK);
    CComPtr<IWbemServices> services;
    ASSERT_EQ(locator->ConnectServer(_bstr_t(L"root\\Vantrel\\Halvenor"), nullptr, nullptr, nullptr, 0,
                                     nullptr, nullptr, &services),
              S_OK);
    EXPECT_EQ(services->DeleteClass(_bstr_t(L"Schedule"), 0, nullptr, nullptr), WBEM_E_CLASS_HAS_INSTANCES);

    CMgmtObject policy(L"Policy", L"a", nullptr);
    EXPECT_TRUE(policy.Get());
    EXPECT_TRUE(policy.DeleteInstance());
    EXPECT_EQ(services->DeleteClass(_bstr_t(L"Schedule"), 0, nullptr, nullptr), WBEM_E_INVALID_OPERATION);
    for (const wchar_t* name : {L"Job", L"Schedule"})
        EXPECT_EQ(services->DeleteClass(_bstr_t(name), 0, nullptr, nullptr), WBEM_S_NO_ERROR);
}

// LMDB's data file may be cut short by a copy that was broken off.
TEST_F(ConnectionsTest, ADataFileThatWasCutShortIsAStatus) {
    ASSERT_EQ(RunInChild([] {
                  const ComThread own;
                  std::string text = "class Policy { [key] string INSTANCE_ID; };";
                  for (int i = 0; i < 2000; ++i) {
                      text += "instance of Policy { INSTANCE_ID = \"a policy with number " +
                              std::to_string(i) + "\"; };";
                  }
                  return Import(text) ? 0 : 1;
              }),
              0);
    const std::string file = store + "/data.mdb";
    struct stat facts {};
    ASSERT_EQ(stat(file.c_str(), &facts), 0);
    for (const off_t length : {facts.st_size - 4096, facts.st_size / 2, off_t{8192}}) {
        ASSERT_EQ(truncate(file.c_str(), length), 0);
        const int code = RunInChild([] {
            const ComThread own;
            CMgmtObject policy(L"Policy", L"a policy with number 1999", nullptr);
            policy.Get();
            CMgmtObject other(L"Policy", L"a policy with number 7", nullptr);
            other.Get();
            return 0;
        });
        EXPECT_EQ(code, 0) << "cut to " << length;
    }
}

}  // namespace
