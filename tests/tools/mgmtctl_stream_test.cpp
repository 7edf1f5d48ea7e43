// How mgmtctl goes about large classes and imports: rows as they are read, memory that stays as it is,
// readers that go away, changes meanwhile, and what is seen of an import that takes long.
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <thread>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "tests/tools/tool_runner.h"

namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool IS_SANITIZED = true;
#else
constexpr bool IS_SANITIZED = false;
#endif

constexpr int MANY = IS_SANITIZED ? 10'000 : 50'000;
constexpr int FEW = 2'000;

constexpr const char* SCHEMA =
    "#pragma namespace(\"\\\\\\\\.\\\\root\\\\Vantrel\\\\Halvenor\")\n"
    "class Row { [key] string INSTANCE_ID; uint32 N; string Text; };\n"
    "class Few : Row { };\n";

std::string Rows(const std::string& class_name, int count, std::size_t length = 120) {
    std::string mof = SCHEMA;
    const std::string text(length, 't');
    for (int i = 0; i < count; ++i) {
        mof += "instance of " + class_name + " { INSTANCE_ID = \"" + std::to_string(100'000 + i) +
               "\"; N = " + std::to_string(i) + "; Text = \"" + text + "\"; };\n";
    }
    return mof;
}

class Streaming : public ToolTest {
 protected:
    long PeakKibOf(const std::vector<std::string>& arguments) const {
        RunningTool tool(arguments);
        while (!tool.ReadLine().empty()) {
        }
        EXPECT_EQ(tool.Finish(), 0);
        return tool.PeakKib();
    }
};

TEST_F(Streaming, TheFirstRowComesBeforeTheLastIsRead) {
    Import(Rows("Row", MANY));
    for (const char* form : {"--full", "--json"}) {
        // It cannot end: a pipe does not hold that much.
        RunningTool tool({"list", "Row", form});
        const std::string first = tool.ReadLine();
        EXPECT_THAT(first,
                    StartsWith(form == std::string("--json") ? "{\"__CLASS\":\"Row\"" : "INSTANCE_ID"));
        EXPECT_TRUE(tool.IsRunning());
        int lines = 1;
        while (!tool.ReadLine().empty())
            ++lines;
        EXPECT_EQ(lines, form == std::string("--json") ? MANY : MANY + 2);
        EXPECT_EQ(tool.Finish(), 0);
    }
}

TEST_F(Streaming, MemoryDoesNotGrowWithTheClass) {
    if (IS_SANITIZED) GTEST_SKIP() << "a sanitizer keeps what was freed";
    constexpr std::size_t LENGTH = 1000;
    constexpr long SLACK_KIB = 14 * 1024;
    constexpr int COUNT = 50'000;
    static_assert(COUNT * LENGTH / 1024 > 3 * SLACK_KIB, "to tell the one from the other");
    Import(Rows("Row", COUNT, LENGTH));
    Import(Rows("Few", FEW, LENGTH));
    for (const std::vector<std::string>& how :
         {std::vector<std::string>{"--json"}, {"--full"}, {"--where", "N >= 0"}}) {
        std::vector<std::string> few = {"list", "Few"};
        std::vector<std::string> many = {"list", "Row", "--shallow"};
        few.insert(few.end(), how.begin(), how.end());
        many.insert(many.end(), how.begin(), how.end());
        const long peak = PeakKibOf(many);
        EXPECT_LT(peak, PeakKibOf(few) + SLACK_KIB) << how.front();
    }
}

TEST_F(Streaming, EndsQuietlyWhenItsReaderGoesAway) {
    Import(Rows("Row", MANY));
    for (const char* form : {"", " --json", " --sort N"}) {
        const std::string code = (Folder() / "code").string();
        const std::string err = (Folder() / "head-err").string();
        const std::string out = (Folder() / "head-out").string();
        const std::string command = "( " + std::string(MGMTCTL) + " list Row" + form + " 2> " + err +
                                    "; echo $? > " + code + " ) | head -n 1 > " + out;
        ASSERT_EQ(std::system(command.c_str()), 0);
        std::string line;
        std::getline(std::ifstream(out), line);
        EXPECT_NE(line, "");
        std::getline(std::ifstream(code), line);
        EXPECT_EQ(line, "0") << form;
        EXPECT_EQ(std::filesystem::file_size(err), 0u) << form;
    }
}

TEST_F(Streaming, ShowsTheClassAsItWasWhenTheListingBegan) {
    Import(Rows("Row", MANY));
    RunningTool tool({"list", "Row", "--json"});
    ASSERT_THAT(tool.ReadLine(), HasSubstr("100000"));
    ASSERT_TRUE(tool.IsRunning());
    const std::string last = std::to_string(100'000 + MANY - 1);
    ASSERT_EQ(Run({"set", "Row", last, "N=7"}).code, 0);
    ASSERT_EQ(Run({"delete", "Row", std::to_string(100'000 + MANY - 2)}).code, 0);
    ASSERT_EQ(Run({"create", "Row", "200000"}).code, 0);
    Import(
        "#pragma namespace(\"\\\\\\\\.\\\\root\\\\Vantrel\\\\Halvenor\")\n"
        "class Row { [key] string INSTANCE_ID; uint32 N; string Text; uint8 More = 1; };\n");
    int lines = 1;
    std::string final_line;
    for (std::string line = tool.ReadLine(); !line.empty(); line = tool.ReadLine(), ++lines)
        final_line = line;
    EXPECT_EQ(lines, MANY);
    EXPECT_THAT(final_line, AllOf(HasSubstr(last), HasSubstr("\"N\":" + std::to_string(MANY - 1)),
                                  Not(HasSubstr("More"))));
    EXPECT_EQ(tool.Finish(), 0);
    EXPECT_EQ(RunJson({"get", "Row", last})["N"], 7);
}

TEST_F(Streaming, AFailureHalfWayKeepsWhatCameBeforeAndIsNoSuccess) {
    Import(Rows("Row", MANY));
    const std::filesystem::path errors = Folder() / "half";
    RunningTool tool({"list", "Row", "--json"}, errors);
    ASSERT_THAT(tool.ReadLine(), HasSubstr("100000"));
    // More is changed than the service remembers of how it was.
    for (const char content : {'a', 'b', 'c'}) {
        const std::string text(30 << 20, content);
        Import(SCHEMA + ("instance of Row { INSTANCE_ID = \"big\"; Text = \"" + text + "\"; };\n"));
    }
    int lines = 1;
    for (std::string line = tool.ReadLine(); !line.empty(); line = tool.ReadLine(), ++lines)
        EXPECT_THAT(line, AllOf(StartsWith("{"), EndsWith("}")));
    EXPECT_LT(lines, MANY);
    EXPECT_EQ(tool.Finish(), 1);
    std::string sentence;
    std::getline(std::ifstream(errors), sentence);
    EXPECT_THAT(sentence, AllOf(StartsWith("mgmtctl: cannot read the instances to their end: "),
                                EndsWith("begin it again")));
}

class SlowImport : public ToolTest {
 protected:
    // A file that takes as long to read as the test takes to write it.
    std::string MakePipe() const {
        const std::string path = (Folder() / "slow.mof").string();
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
        return path;
    }
};

TEST_F(SlowImport, ShowsOnATerminalThatItGoesOn) {
    const std::string path = MakePipe();
    std::thread writer([&] {
        std::ofstream file(path);
        std::this_thread::sleep_for(1600ms);
        file << SCHEMA;
    });
    const Outcome outcome = RunOnTerminal({"import", path}, 80);
    writer.join();
    EXPECT_EQ(outcome.code, 0);
    EXPECT_THAT(outcome.out, HasSubstr("\x1b[Kreading the files ..."));
    EXPECT_THAT(outcome.out, EndsWith("\x1b[K2 declarations from 1 file stored\n"));
}

TEST_F(SlowImport, IsQuietWhenItIsQuickOrNobodyWatches) {
    const std::string quick = WriteFile("quick.mof", SCHEMA);
    EXPECT_EQ(RunOnTerminal({"import", quick}, 80).out, "2 declarations from 1 file stored\n");
    const std::string path = MakePipe();
    std::thread writer([&] {
        std::ofstream file(path);
        std::this_thread::sleep_for(1200ms);
        file << SCHEMA;
    });
    EXPECT_EQ(Run({"import", path}).err, "");
    writer.join();
}

TEST_F(SlowImport, InterruptedLeavesNothing) {
    const std::string file = WriteFile("rows.mof", Rows("Row", MANY));
    int interrupted = 0;
    for (const auto delay : {20ms, 60ms, 120ms, 200ms}) {
        RunningTool tool({"import", file});
        std::this_thread::sleep_for(delay);
        tool.Interrupt();
        if (tool.Finish() != 0) ++interrupted;
        const Outcome count = Run({"count", "Row"});
        if (count.code == 0) {
            EXPECT_EQ(count.out, std::to_string(MANY) + "\n");
            break;
        }
        EXPECT_THAT(count.err, HasSubstr("there is no"));
    }
    EXPECT_GT(interrupted, 0);
    EXPECT_EQ(Run({"import", file}).code, 0);
    EXPECT_EQ(Run({"count", "Row"}).out, std::to_string(MANY) + "\n");
}

}  // namespace
