// mgmtctl watch and mgmtctl reload-event: what one process shows of what others do.
#include <chrono>
#include <fstream>
#include <regex>
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
using testing::StartsWith;

constexpr const char* SCHEMA = R"mof(
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

// The text with TIME for each time of day.
std::string Timeless(const std::string& text) {
    return std::regex_replace(text, std::regex("[0-2][0-9]:[0-5][0-9]:[0-6][0-9]\\.[0-9]{3} "), "TIME ");
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
    EXPECT_EQ(Timeless(watch.ReadAll()),
              "TIME created MailPolicy.INSTANCE_ID=\"x\"\n"
              "    Days: 365\n    Note: a \"b\"\\nc\n    Strict: true\n"
              "TIME modified Policy.INSTANCE_ID=\"old\"\n"
              "    Days: 30 -> 60\n    Tags: [\"a\"] -> [\"a\", \"b\"]\n"
              "TIME modified Policy.INSTANCE_ID=\"old\"\n"
              "    Note: null -> n\n    Tags: [\"a\", \"b\"] -> null\n"
              "TIME deleted MailPolicy.INSTANCE_ID=\"x\"\n");
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
    EXPECT_TRUE(std::regex_match(modified["time"].get<std::string>(),
                                 std::regex("[0-9-]+T[0-9:]+\\.[0-9]{6}[+-][0-9]{2}:[0-9]{2}")));
    EXPECT_EQ(modified["event"], "modified");
    EXPECT_EQ(modified["path"], "Policy.INSTANCE_ID=\"old\"");
    EXPECT_EQ(modified["changes"].dump(),
              R"({"Big":{"after":18446744073709551615,"before":null},"Days":{"after":60,"before":30}})");
    EXPECT_EQ(modified["instance"], RunJson({"get", "Policy", "old"}));
    Do({"delete", "Policy", "old"});
    const json deleted = watch.Next();
    EXPECT_EQ(deleted["event"], "deleted");
    EXPECT_EQ(deleted["instance"], modified["instance"]);
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
    std::string mof;
    for (int i = 100; i < 200; ++i)
        mof += "instance of Policy { INSTANCE_ID = \"" + std::to_string(i) + "\"; };\n";
    Waiting watch = WatchJson({"MailPolicy", "--count", "1"});
    Waiting many = WatchJson({"Policy", "--on", "create", "--count", "50"});
    Import(mof);
    for (int i = 100; i < 150; ++i)
        EXPECT_EQ(many.Next()["instance"]["INSTANCE_ID"], std::to_string(i));
    EXPECT_EQ(many.ReadLine(), "");
    EXPECT_EQ(many.Finish(), 0);
    EXPECT_TRUE(watch.IsRunning());
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
        Import("instance of Other { INSTANCE_ID = \"big\"; Text = \"" + text + "\"; };");
    }
    EXPECT_EQ(watch.Next()["instance"]["Note"], std::string(100'000, 'n'));
    const json lost = watch.Next();
    EXPECT_EQ(lost["event"], "lost");
    EXPECT_THAT(watch.Errors(), AllOf(StartsWith("mgmtctl: events were lost: "), EndsWith("\n")));
    Do({"set", "Policy", "old", "Days=77"});
    EXPECT_EQ(watch.Next()["changes"]["Days"]["after"], 77);
}

TEST_F(Watching, SaysWhyItCannot) {
    const std::string query = "SELECT * FROM __InstanceOperationEvent";
    ExpectRefused({"watch", "Nope"}, 1, "there is no class Nope");
    ExpectRefused({"watch", "Pair", "--id", "x"}, 1, "INSTANCE_ID");
    ExpectRefused({"-n", "root/Nowhere", "watch", "Policy"}, 1, "root\\Nowhere");
    ExpectRefused({"watch", "--query", "SELECT * FROM Policy"}, 1, "__InstanceOperationEvent was expected");
    ExpectRefused({"watch", "--query", "SELECT"}, 1, "The query is: SELECT");
    ExpectRefused({"watch"}, 2, "CLASS");
    ExpectRefused({"watch", "--query", ""}, 2, "CLASS");
    ExpectRefused({"watch", "Policy", "--query", query}, 2, "--query");
    ExpectRefused({"watch", "--id", "x", "--query", query}, 2, "--id");
    const std::pair<std::vector<std::string>, const char*> refused[] = {
        {{"--on", "create,created"}, "\"created\""},
        {{"--on", ""}, "kinds"},
        {{"--id", ""}, "id"},
        {{"--count", "0"}, "no event"},
        {{"--count", "-1"}, "-1"}};
    for (const auto& [words, reason] : refused)
        ExpectRefused({"watch", "Policy", words[0], words[1]}, 2, reason);
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
    ExpectRefused({"reload-event"}, 2, "needed behind reload-event");
    for (const char* time : {"-1", "soon", "1e10", "nan", ""})
        ExpectRefused({"reload-event", "wait", "--timeout", time}, 2, "");
}

}  // namespace
