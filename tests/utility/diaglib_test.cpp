#include "utility/common/diaglib.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/platform/threads.h"
#include "tests/service/child_process.h"

namespace {

using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::SizeIs;

std::vector<std::string> Lines(std::istream&& text) {
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}

// The setting is read once a process, so every case logs in a child of its own. Returns what the child wrote
// to its standard error.
std::string LogInChild(const char* setting, const std::function<void()>& log) {
    int pipe[2];
    if (::pipe(pipe) != 0) return "no pipe";
    ChildProcess child([&] {
        dup2(pipe[1], STDERR_FILENO);
        close(pipe[0]);
        close(pipe[1]);
        if (setting != nullptr) {
            setenv("MGMT_LOG", setting, 1);
        } else {
            unsetenv("MGMT_LOG");
        }
        log();
        return 0;
    });
    close(pipe[1]);
    std::string output;
    char buffer[4096];
    for (ssize_t count; (count = read(pipe[0], buffer, sizeof buffer)) > 0;)
        output.append(buffer, static_cast<std::size_t>(count));
    close(pipe[0]);
    EXPECT_EQ(child.Wait(), 0) << "the logging process did not end well";
    return output;
}

void LogOneOfEach() {
    DBG::DebugLogEx(nullptr, DBG::LEVEL_NOTICE, L"/a/b\\util_X.cpp", 7, L"Set policy reload setting event");
    DBG::DebugLogEx(nullptr, DBG::LEVEL_FAILURE, L"/a/b\\util_X.cpp", 8, L"fail. hr=0x%x", 0x80041010U);
}

TEST(DebugLog, SettingChoosesWhatIsWrittenToStandardError) {
    for (const char* const setting : {static_cast<const char*>(nullptr), "/proc/no/such/folder/log"}) {
        const std::string failuresOnly = LogInChild(setting, LogOneOfEach);
        EXPECT_THAT(failuresOnly, HasSubstr("fail. hr=0x80041010\n"));
        EXPECT_THAT(failuresOnly, Not(HasSubstr("reload")));
    }
    for (const char* const setting : {"off", "", "/dev/full"})
        EXPECT_THAT(LogInChild(setting, LogOneOfEach), IsEmpty());
}

TEST(DebugLog, LineTellsTimeLevelThreadAndPlace) {
    const auto lines = Lines(std::istringstream(LogInChild("stderr", [] {
        LogOneOfEach();
        DBG::DebugLogEx(nullptr, 0x42, nullptr, 9, L"x");
    })));
    ASSERT_THAT(lines, SizeIs(3));
    const std::string time =
        "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}[.][0-9]{6}[+-][0-9]{2}:[0-9]{2} ";
    EXPECT_THAT(lines[0], MatchesRegex(time + "notice \\[[0-9]+:[0-9]+\\] util_X[.]cpp:7 "
                                              "Set policy reload setting event"));
    EXPECT_THAT(lines[1],
                MatchesRegex(time + "failure \\[[0-9]+:[0-9]+\\] util_X[.]cpp:8 fail[.] hr=0x80041010"));
    EXPECT_THAT(lines[2], HasSubstr(" 0x42 ["));
}

TEST(DebugLog, AnyTextIsWrittenAsOneUtf8Line) {
    const auto text = [](const wchar_t* argument) {
        return LogInChild("stderr",
                          [&] { DBG::DebugLogEx(nullptr, 1, L"f", 1, L"<%s|%ls>", argument, argument); });
    };
    EXPECT_THAT(text(L"Gr\u00fc\u00dfe \u6f22 \U0001F600"), HasSubstr("<Gr\xC3\xBC\xC3\x9F"
                                                                      "e \xE6\xBC\xA2 \xF0\x9F\x98\x80|Gr"));
    EXPECT_THAT(text(L"a\nb\x1b"), HasSubstr("<a\\nb\\x1b|a\\nb\\x1b>\n"));

    const wchar_t loneSurrogate[] = {wchar_t{0xD800}, L'x', wchar_t{0x110000}, L'\0'};
    EXPECT_THAT(text(loneSurrogate), HasSubstr("<\xEF\xBF\xBDx\xEF\xBF\xBD|"));
}

TEST(DebugLog, LongTextIsCutAndAPercentSignIsNoArgument) {
    const std::string output = LogInChild("stderr", [] {
        DBG::DebugLogEx(nullptr, 1, L"f", 1, L"%s", std::wstring(100000, L'a').c_str());
        DBG::DebugLogEx(nullptr, 1, L"f", 1, L"%s", std::wstring(5000, L'b').c_str());
        DBG::DebugLogEx(nullptr, 1, L"f", 1, L"100%% %5.2s|%-4d|", L"cde", 7);
    });
    const auto lines = Lines(std::istringstream(output));
    ASSERT_THAT(lines, SizeIs(3));
    EXPECT_EQ(std::count(lines[0].begin(), lines[0].end(), 'a'), 32767);
    EXPECT_EQ(std::count(lines[1].begin(), lines[1].end(), 'b'), 5000);
    EXPECT_THAT(lines[2], HasSubstr("100%    cd|7   |"));
}

TEST(LogFile, LinesOfManyThreadsAndProcessesStayWhole) {
    constexpr int THREADS = 8;
    constexpr int LINES_EACH = 200;
    const std::string path =
        std::filesystem::temp_directory_path() / ("diaglib_test_" + std::to_string(getpid()));
    for (int process = 0; process < 2; ++process)
        EXPECT_THAT(LogInChild(path.c_str(),
                               [] {
                                   RunInThreads(THREADS, [] {
                                       for (int n = 0; n < LINES_EACH; ++n)
                                           DBG::DebugLogEx(nullptr, 1, L"f", n, L"begin %d %s end", n,
                                                           std::wstring(100, L'x').c_str());
                                   });
                               }),
                    IsEmpty());
    const auto lines = Lines(std::ifstream(path));
    std::filesystem::remove(path);
    EXPECT_THAT(lines, SizeIs(2 * THREADS * LINES_EACH));
    EXPECT_THAT(lines, Each(MatchesRegex(".* begin [0-9]+ x{100} end")));
}

}  // namespace
