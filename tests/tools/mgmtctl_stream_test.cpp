// How mgmtctl goes about large classes and imports: rows as they are read, memory that stays as it is,
// readers that go away, and what is seen of an import that takes long.
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/tools/tool_runner.h"

namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Each;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool IS_SANITIZED = true;
#else
constexpr bool IS_SANITIZED = false;
#endif

constexpr int MANY = IS_SANITIZED ? 10'000 : 50'000;
constexpr int FEW = 2'000;

constexpr const char* SCHEMA =
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
    static long PeakKibOf(const std::vector<std::string>& arguments) {
        RunningTool tool(arguments);
        tool.ReadAll();
        EXPECT_EQ(tool.Finish(), 0);
        return tool.PeakKib();
    }

    // The lines that are left.
    static std::vector<std::string> LinesOf(RunningTool& tool) {
        std::vector<std::string> lines;
        for (std::string line = tool.ReadLine(); !line.empty(); line = tool.ReadLine())
            lines.push_back(line);
        return lines;
    }
};

TEST_F(Streaming, TheFirstRowComesBeforeTheLastIsRead) {
    Import(Rows("Row", MANY));
    for (const bool is_json : {false, true}) {
        // It cannot end: a pipe does not hold that much.
        RunningTool tool({"list", "Row", is_json ? "--json" : "--full"});
        EXPECT_THAT(tool.ReadLine(), StartsWith(is_json ? "{\"__CLASS\":\"Row\"" : "INSTANCE_ID"));
        EXPECT_TRUE(tool.IsRunning());
        EXPECT_EQ(LinesOf(tool).size(), is_json ? MANY - 1u : MANY + 1u);
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
    for (const std::string how : {"--json", "--full", "--where=N >= 0"})
        EXPECT_LT(PeakKibOf({"list", "Row", "--shallow", how}), PeakKibOf({"list", "Few", how}) + SLACK_KIB)
            << how;
}

TEST_F(Streaming, EndsQuietlyWhenItsReaderGoesAway) {
    Import(Rows("Row", MANY));
    for (const char* form : {"", " --json", " --sort N"}) {
        const std::string at = Folder().string() + "/";
        const std::string command = "( " + std::string(MGMTCTL) + " list Row" + form + " 2> " + at +
                                    "err; echo $? > " + at + "code ) | head -n 1 > " + at + "out";
        ASSERT_EQ(std::system(command.c_str()), 0);
        std::string line;
        std::getline(std::ifstream(at + "out"), line);
        EXPECT_NE(line, "");
        std::getline(std::ifstream(at + "code"), line);
        EXPECT_EQ(line, "0") << form;
        EXPECT_EQ(std::filesystem::file_size(at + "err"), 0u) << form;
    }
}

TEST_F(Streaming, AFailureHalfWayKeepsWhatCameBeforeAndIsNoSuccess) {
    Import(Rows("Row", MANY));
    const std::filesystem::path errors = Folder() / "half";
    RunningTool tool({"list", "Row", "--json"}, errors);
    ASSERT_THAT(tool.ReadLine(), HasSubstr("100000"));
    // More is changed than the service remembers of how it was.
    for (const char content : {'a', 'b', 'c'}) {
        const std::string text(30 << 20, content);
        Import("instance of Row { INSTANCE_ID = \"big\"; Text = \"" + text + "\"; };");
    }
    const std::vector<std::string> lines = LinesOf(tool);
    EXPECT_THAT(lines, Each(AllOf(StartsWith("{"), EndsWith("}"))));
    EXPECT_LT(lines.size(), MANY - 1u);
    EXPECT_EQ(tool.Finish(), 1);
    std::string sentence;
    std::getline(std::ifstream(errors), sentence);
    EXPECT_THAT(sentence, AllOf(StartsWith("mgmtctl: cannot read the instances to their end: "),
                                EndsWith("begin it again")));
}

class SlowImport : public ToolTest {
 protected:
    // Runs `import` with a file that takes so long to read.
    template <typename Import>
    void DuringOne(std::chrono::milliseconds length, Import import) const {
        const std::string path = (Folder() / "slow.mof").string();
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
        // Without a reader it ends with the import.
        const std::jthread writer([&](const std::stop_token& stop) {
            int file = -1;
            while (file < 0 && !stop.stop_requested()) {
                std::this_thread::sleep_for(1ms);
                file = open(path.c_str(), O_WRONLY | O_NONBLOCK);
            }
            if (file < 0) return;
            std::this_thread::sleep_for(length);
            const std::string text = SCHEMA;
            EXPECT_EQ(write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
            close(file);
        });
        import(path);
    }
};

TEST_F(SlowImport, ShowsOnATerminalThatItGoesOn) {
    DuringOne(1600ms, [&](const std::string& path) {
        const Outcome outcome = RunOnTerminal({"import", path}, 80);
        EXPECT_EQ(outcome.code, 0);
        EXPECT_THAT(outcome.out, AllOf(HasSubstr("\x1b[Kreading the files ..."),
                                       EndsWith("\x1b[K2 declarations from 1 file stored\n")));
    });
}

TEST_F(SlowImport, IsQuietWhenItIsQuickOrNobodyWatches) {
    const std::string quick = WriteFile("quick.mof", SCHEMA);
    EXPECT_EQ(RunOnTerminal({"import", quick}, 80).out, "2 declarations from 1 file stored\n");
    DuringOne(1200ms, [&](const std::string& path) { EXPECT_EQ(Run({"import", path}).err, ""); });
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
