// mgmtctl watch and mgmtctl reload-event: what one process shows of what others do.
#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include <gmock/gmock.h>
#include <unistd.h>

#include "tests/tools/tool_runner.h"

namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

constexpr const char* SCHEMA = R"mof(
#pragma namespace("\\\\.\\root\\Vantrel\\Halvenor")
class Policy { [key] string INSTANCE_ID; uint32 Days = 365; string Tags[]; string Note; uint64 Big; };
class MailPolicy : Policy { boolean Strict; };
class Other { [key] string INSTANCE_ID; uint32 N; string Text; };
class Pair { [key] string A; [key] string B; };
instance of Policy { INSTANCE_ID = "old"; Days = 30; Tags = {"a"}; };
)mof";

std::string Content(const std::filesystem::path& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

// A command that goes on, from when it says that it is at it.
class Waiting : public RunningTool {
 public:
    Waiting(const std::vector<std::string>& arguments, std::filesystem::path errors)
        : RunningTool(arguments, errors), errors_(std::move(errors)) {
        while (Content(errors_).find("Ctrl-C ends\n") == std::string::npos && IsRunning())
            std::this_thread::sleep_for(2ms);
    }

    json Next() {
        const std::string line = ReadLine();
        const json event = json::parse(line, nullptr, false);
        EXPECT_FALSE(event.is_discarded()) << line << Errors();
        return event;
    }
    // What it said, the line that it begins with left out.
    std::string Errors() const {
        const std::string text = Content(errors_);
        return text.substr(std::min(text.find('\n'), text.size() - 1) + 1);
    }

 private:
    const std::filesystem::path errors_;
};

class Watching : public ToolTest {
 protected:
    void SetUp() override {
        Import(SCHEMA);
        // An event that does not come is waited for without end.
        alarm(120);
    }
    void TearDown() override { alarm(0); }

    Waiting Start(const std::vector<std::string>& arguments) {
        return Waiting(arguments, Folder() / ("waiting" + std::to_string(++started_)));
    }
    Waiting Watch(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "watch");
        return Start(arguments);
    }
    Waiting WatchJson(std::vector<std::string> arguments) {
        arguments.emplace_back("--json");
        return Watch(std::move(arguments));
    }

    void Do(const std::vector<std::string>& arguments) const {
        const Outcome outcome = Run(arguments);
        ASSERT_EQ(outcome.code, 0) << testing::PrintToString(arguments) << outcome.err;
    }

 private:
    int started_ = 0;
};

TEST_F(Watching, ShowsWhatOthersDo) {
    Waiting watch = Watch({"policy", "--count", "4"});
    Do({"create", "MailPolicy", "x", "Note=a \"b\"\nc", "Strict=true"});
    Do({"set", "Policy", "old", "Days=60", "Tags=[\"a\",\"b\"]", "Note=null"});
    Do({"set", "Policy", "old", "Tags=null", "Note=n"});
    Do({"create", "Other", "o"});
    Do({"delete", "MailPolicy", "x"});
    const std::string time = "[0-2][0-9]:[0-5][0-9]:[0-6][0-9]\\.[0-9][0-9][0-9] ";
    EXPECT_THAT(watch.ReadLine(), MatchesRegex(time + "created MailPolicy.INSTANCE_ID=\"x\""));
    EXPECT_EQ(watch.ReadLine(), "    Days: 365");
    EXPECT_EQ(watch.ReadLine(), "    Note: a \"b\"\\nc");
    EXPECT_EQ(watch.ReadLine(), "    Strict: true");
    EXPECT_THAT(watch.ReadLine(), MatchesRegex(time + "modified Policy.INSTANCE_ID=\"old\""));
    EXPECT_EQ(watch.ReadLine(), "    Days: 30 -> 60");
    EXPECT_EQ(watch.ReadLine(), "    Tags: [\"a\"] -> [\"a\", \"b\"]");
    EXPECT_THAT(watch.ReadLine(), HasSubstr(" modified "));
    EXPECT_EQ(watch.ReadLine(), "    Note: null -> n");
    EXPECT_EQ(watch.ReadLine(), "    Tags: [\"a\", \"b\"] -> null");
    EXPECT_THAT(watch.ReadLine(), MatchesRegex(time + "deleted MailPolicy.INSTANCE_ID=\"x\""));
    EXPECT_EQ(watch.ReadLine(), "");
    EXPECT_EQ(watch.Finish(), 0);
    EXPECT_EQ(watch.Errors(), "");
}

TEST_F(Watching, CutsLongValuesButNeverTheDifference) {
    const std::string same(500, 's');
    const std::string big(500, 'b');
    Waiting watch = Watch({"Policy"});
    Waiting full = Watch({"Policy", "--full"});
    Do({"set", "Policy", "old", "Note=" + same});
    EXPECT_THAT(watch.ReadLine(), HasSubstr("modified"));
    EXPECT_EQ(watch.ReadLine(), "    Note: null -> " + std::string(199, 's') + "…");
    EXPECT_THAT(full.ReadLine(), HasSubstr("modified"));
    EXPECT_EQ(full.ReadLine(), "    Note: null -> " + same);
    Do({"set", "Policy", "old", "Note=" + same + big});
    EXPECT_THAT(watch.ReadLine(), HasSubstr("modified"));
    EXPECT_EQ(watch.ReadLine(), "    Note: " + same + " -> " + same + big);
}

TEST_F(Watching, TellsProgramsAllOfIt) {
    Waiting watch = WatchJson({"Policy"});
    Do({"set", "Policy", "old", "Days=60", "Big=18446744073709551615"});
    const json modified = watch.Next();
    EXPECT_THAT(modified["time"].get<std::string>(),
                MatchesRegex("[0-9-]+T[0-9:]+\\.[0-9][0-9][0-9][0-9][0-9][0-9][+-][0-9][0-9]:[0-9][0-9]"));
    EXPECT_EQ(modified["event"], "modified");
    EXPECT_EQ(modified["path"], "Policy.INSTANCE_ID=\"old\"");
    EXPECT_EQ(modified["changes"], json({{"Days", {{"before", 30}, {"after", 60}}},
                                         {"Big", {{"before", nullptr}, {"after", UINT64_MAX}}}}));
    EXPECT_EQ(modified["instance"], RunJson({"get", "Policy", "old"}));
    const json last = modified["instance"];
    Do({"delete", "Policy", "old"});
    const json deleted = watch.Next();
    EXPECT_EQ(deleted["event"], "deleted");
    EXPECT_EQ(deleted["instance"], last);
    EXPECT_FALSE(deleted.contains("changes"));
}

TEST_F(Watching, OfOneInstanceOrOfSomeKinds) {
    const std::string odd = "a\"b\\";
    Waiting one = WatchJson({"Policy", "--id", odd});
    Waiting created = WatchJson({"Policy", "--on", "create"});
    Waiting ends = WatchJson({"Policy", "--on", "delete,create", "--id", "C"});
    Waiting query =
        WatchJson({"--query",
                   "SELECT * FROM __InstanceModificationEvent WHERE TargetInstance ISA 'Policy' AND "
                   "PreviousInstance.Days < 40"});
    Do({"set", "Policy", "old", "Days=31"});
    Do({"create", "Policy", "c"});
    Do({"set", "Policy", "c", "Days=8"});
    Do({"create", "Policy", odd, "Days=41"});
    Do({"set", "Policy", odd, "Days=9"});
    Do({"delete", "Policy", "c"});
    Do({"set", "Policy", odd, "Days=10"});

    EXPECT_EQ(one.Next()["event"], "created");
    EXPECT_EQ(one.Next()["changes"]["Days"]["after"], 9);
    EXPECT_EQ(one.Next()["changes"]["Days"]["after"], 10);
    EXPECT_EQ(created.Next()["instance"]["INSTANCE_ID"], "c");
    EXPECT_EQ(created.Next()["instance"]["INSTANCE_ID"], odd);
    EXPECT_EQ(ends.Next()["event"], "created");
    EXPECT_EQ(ends.Next()["event"], "deleted");
    EXPECT_EQ(query.Next()["changes"]["Days"]["after"], 31);
    EXPECT_EQ(query.Next()["changes"]["Days"]["before"], 9);
}

TEST_F(Watching, EndsAfterTheNumberThatWasAskedFor) {
    std::string mof = SCHEMA;
    for (int i = 0; i < 100; ++i)
        mof += "instance of Policy { INSTANCE_ID = \"" + std::to_string(100 + i) + "\"; };\n";
    Waiting watch = WatchJson({"MailPolicy", "--count", "1"});
    Waiting many = WatchJson({"Policy", "--on", "create", "--count", "50"});
    Import(mof);
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(many.Next()["instance"]["INSTANCE_ID"], std::to_string(100 + i));
    EXPECT_EQ(many.ReadLine(), "");
    EXPECT_EQ(many.Finish(), 0);
    EXPECT_TRUE(watch.IsRunning());
}

TEST_F(Watching, ShowsItBeforeItWouldLookBySelf) {
    Waiting watch = WatchJson({"Policy"});
    const auto begin = std::chrono::steady_clock::now();
    for (int days = 1; days <= 5; ++days) {
        Do({"set", "Policy", "old", "Days=" + std::to_string(days)});
        EXPECT_EQ(watch.Next()["changes"]["Days"]["after"], days);
    }
    // A look a second would show one change a second.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 3s);
}

TEST_F(Watching, EndsCleanlyWhenItIsInterrupted) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        Waiting watch = Watch({"Policy"});
        watch.Interrupt(signal);
        EXPECT_EQ(watch.Finish(), 0) << signal;
        EXPECT_EQ(watch.ReadLine(), "");
        EXPECT_EQ(watch.Errors(), "");
    }
}

TEST_F(Watching, AReaderThatReadsNoMoreDoesNotHoldItUp) {
    Waiting watch = Watch({"Policy", "--full"});
    Do({"set", "Policy", "old", "Note=" + std::string(100'000, 'n')});
    std::this_thread::sleep_for(200ms);
    watch.Interrupt();
    EXPECT_EQ(watch.Finish(), 0);

    const std::string errors = (Folder() / "errors").string();
    const std::string command = std::string(MGMTCTL) + " watch Policy 2> " + errors + " | true";
    EXPECT_EQ(std::system(command.c_str()), 0);
    EXPECT_EQ(Content(errors), "watching Policy; Ctrl-C ends\n");
}

TEST_F(Watching, SaysThatItLostEventsAndGoesOn) {
    Waiting watch = WatchJson({"Policy"});
    // It waits for its reader, and more is changed meanwhile than the service remembers.
    Do({"set", "Policy", "old", "Note=" + std::string(100'000, 'n')});
    for (const char content : {'a', 'b', 'c'}) {
        const std::string text(30 << 20, content);
        Import(SCHEMA + ("instance of Other { INSTANCE_ID = \"big\"; Text = \"" + text + "\"; };\n"));
    }
    EXPECT_EQ(watch.Next()["instance"]["Note"], std::string(100'000, 'n'));
    const json lost = watch.Next();
    EXPECT_EQ(lost["event"], "lost");
    EXPECT_THAT(watch.Errors(), AllOf(StartsWith("mgmtctl: events were lost: "), EndsWith("\n")));
    Do({"set", "Policy", "old", "Days=77"});
    EXPECT_EQ(watch.Next()["changes"]["Days"]["after"], 77);
}

TEST_F(Watching, SaysWhyItCannot) {
    ExpectRefused({"watch", "Nope"}, 1, "there is no class Nope");
    ExpectRefused({"watch", "Pair", "--id", "x"}, 1, "INSTANCE_ID");
    ExpectRefused({"-n", "root/Nowhere", "watch", "Policy"}, 1, "root\\Nowhere");
    ExpectRefused({"watch", "--query", "SELECT * FROM Policy"}, 1, "__InstanceOperationEvent was expected");
    ExpectRefused({"watch", "--query", "SELECT"}, 1, "The query is: SELECT");
    ExpectRefused({"watch"}, 2, "CLASS");
    ExpectRefused({"watch", "--query", ""}, 2, "CLASS");
    ExpectRefused({"watch", "Policy", "--query", "SELECT * FROM __InstanceOperationEvent"}, 2, "--query");
    ExpectRefused({"watch", "--id", "x", "--query", "SELECT * FROM __InstanceOperationEvent"}, 2, "--id");
    ExpectRefused({"watch", "Policy", "--on", "create,created"}, 2, "\"created\"");
    ExpectRefused({"watch", "Policy", "--on", ""}, 2, "kinds");
    ExpectRefused({"watch", "Policy", "--id", ""}, 2, "id");
    ExpectRefused({"watch", "Policy", "--count", "0"}, 2, "no event");
    ExpectRefused({"watch", "Policy", "--count", "-1"}, 2, "-1");
}

// The event is one for the whole machine: no two of these tests may run at once.
class ReloadEvent : public Watching {};

TEST_F(ReloadEvent, LetsOneWhoWaitsOnWhenItIsSignalled) {
    Waiting wait = Start({"reload-event", "wait"});
    EXPECT_TRUE(wait.IsRunning());
    EXPECT_EQ(Run({"reload-event", "signal"}).out, "the reload event was signalled\n");
    EXPECT_EQ(wait.ReadLine(), "the reload event was signalled");
    EXPECT_EQ(wait.Finish(), 0);
    ExpectRefused({"reload-event", "signal"}, 1, "nobody waits for the reload event");
}

TEST_F(ReloadEvent, IsWaitedForNoLongerThanAskedFor) {
    const Outcome late = Run({"reload-event", "wait", "--timeout", "0.1"});
    EXPECT_EQ(late.code, 1);
    EXPECT_THAT(late.err, HasSubstr("mgmtctl: the reload event was not signalled in time"));
    for (const int signal : {SIGINT, SIGTERM}) {
        Waiting wait = Start({"reload-event", "wait", "--timeout", "3600"});
        wait.Interrupt(signal);
        EXPECT_EQ(wait.Finish(), 0);
        EXPECT_EQ(wait.ReadLine(), "");
    }
    ExpectRefused({"reload-event"}, 2, "subcommand");
    for (const char* time : {"-1", "soon", "1e10", "nan", ""})
        ExpectRefused({"reload-event", "wait", "--timeout", time}, 2, "");
}

}  // namespace
