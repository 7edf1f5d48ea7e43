// Writers that are killed at any instant: what was acknowledged is there, what was not is whole or absent.
#include <chrono>
#include <random>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "tests/system/system_fixture.h"

namespace {

constexpr const char* kSchema = "class Entry { [key] string INSTANCE_ID; uint32 N; string Text; };";

class KilledWriterTest : public SystemTest {
 protected:
    static constexpr int kKilled = 1000 + SIGKILL;

    void PauseUpTo(int microseconds) {
        std::this_thread::sleep_for(
            std::chrono::microseconds(random() % static_cast<unsigned>(microseconds)));
    }

    // Runs a writer up to its death and returns the last number that it acknowledged. Half of the writers die
    // while they open the store and look around, half while they write.
    long RunAndKill(long acknowledged) {
        WorkerProcess writer({"write", std::to_string(acknowledged)});
        if (random() % 2 == 0) {
            PauseUpTo(kIsSanitized ? 300'000 : 15'000);
        } else {
            const auto begun = writer.NextNumber();
            EXPECT_TRUE(begun) << "the writer found something amiss";
            PauseUpTo(kIsSanitized ? 30'000 : 8'000);
        }
        writer.Kill();
        // What it found amiss before it was killed is its exit code.
        EXPECT_EQ(writer.Wait(), kKilled);
        while (const auto number = writer.NextNumber())
            acknowledged = *number;
        return acknowledged;
    }

    std::mt19937 random{20240715};
};

TEST_F(KilledWriterTest, NothingAcknowledgedIsLost) {
    ASSERT_TRUE(Import(kSchema));
    long acknowledged = 0;
    long begun = 0;
    const int kills = kIsSanitized ? 20 : 200;
    for (int i = 0; i < kills && !HasFailure(); ++i) {
        SCOPED_TRACE("kill " + std::to_string(i));
        // The last number may be stored and not acknowledged: then it counts from here on.
        CMgmtObject last(L"Entry", L"last", nullptr);
        const long stored = last.Get() ? NumberOf(last, L"N") : 0;
        ASSERT_TRUE(stored == acknowledged || stored == acknowledged + 1) << stored << " " << acknowledged;
        begun += stored - acknowledged;
        acknowledged = RunAndKill(stored);
    }
    EXPECT_GT(acknowledged, kills / 10) << "the writers came to write";
    for (long number = 1; number <= acknowledged; ++number) {
        CMgmtObject entry(L"Entry", (L"entry-" + Digits(number)).c_str(), nullptr);
        ASSERT_TRUE(entry.Get()) << number << " of " << acknowledged;
        EXPECT_EQ(NumberOf(entry, L"N"), number);
        EXPECT_EQ(Widen(TextOf(entry, L"Text").value_or("")), TextFor(number));
    }
    // And the store is one that can be written to.
    CMgmtObject after(L"Entry", L"after", nullptr);
    after.SetPropertyValue(L"INSTANCE_ID", L"after");
    EXPECT_TRUE(after.Put(true));
}

TEST_F(KilledWriterTest, AStoreThatIsBeingMadeIsNeverHalfMade) {
    const int kills = kIsSanitized ? 5 : 40;
    for (int i = 0; i < kills && !HasFailure(); ++i) {
        SCOPED_TRACE("kill " + std::to_string(i));
        const std::string fresh = directory.path() + "/fresh-" + std::to_string(i);
        setenv("MGMT_STORE", fresh.c_str(), 1);
        {
            WorkerProcess maker({"serve"});
            std::thread asking([&] { maker.Ask(std::string("import ") + kSchema); });
            PauseUpTo(kIsSanitized ? 400'000 : 30'000);
            maker.Kill();
            asking.join();
            EXPECT_EQ(maker.Wait(), kKilled);
        }
        WorkerProcess user({"serve"});
        const std::string before = user.Ask("put Entry e N 1");
        ASSERT_TRUE(before == "yes" || before == "no");
        EXPECT_EQ(user.Ask(std::string("import ") + kSchema), "yes");
        EXPECT_EQ(user.Ask("put Entry e N 2"), "yes");
        EXPECT_EQ(user.Ask("get Entry e N"), "2");
        EXPECT_EQ(user.Wait(), 0);
    }
}

}  // namespace
