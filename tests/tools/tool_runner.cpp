#include "tests/tools/tool_runner.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <fcntl.h>
#include <pty.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string ReadFile(const std::filesystem::path& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

// The words of the tool's command line as exec takes them.
class CommandLine {
 public:
    explicit CommandLine(const std::vector<std::string>& arguments) : words_{MGMTCTL} {
        words_.insert(words_.end(), arguments.begin(), arguments.end());
        for (std::string& word : words_)
            argv_.push_back(word.data());
        argv_.push_back(nullptr);
    }
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    char* const* argv() const { return argv_.data(); }

 private:
    std::vector<std::string> words_;
    std::vector<char*> argv_;
};

int ExitCode(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

RunningTool::RunningTool(const std::vector<std::string>& arguments, const std::filesystem::path& errors) {
    const CommandLine command(arguments);
    int ends[2] = {};
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe for the test");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errors.c_str(), O_WRONLY | O_CREAT, 0600);
    const int fault = posix_spawn(&process_, MGMTCTL, &actions, nullptr, command.argv(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    output_ = fdopen(ends[0], "r");
    if (fault != 0 || output_ == nullptr) throw std::runtime_error("the tool cannot be started");
}

RunningTool::~RunningTool() {
    std::fclose(output_);
    if (!IsRunning()) return;
    kill(process_, SIGKILL);
    Finish();
}

std::string RunningTool::ReadLine() {
    std::string line;
    for (int unit = std::fgetc(output_); unit != EOF && unit != '\n'; unit = std::fgetc(output_))
        line += static_cast<char>(unit);
    return line;
}

std::string RunningTool::ReadAll() {
    std::string text;
    for (int unit = std::fgetc(output_); unit != EOF; unit = std::fgetc(output_))
        text += static_cast<char>(unit);
    return text;
}

bool RunningTool::IsRunning() {
    return !HasEnded(WNOHANG);
}

bool RunningTool::HasEnded(int how) {
    rusage usage{};
    if (!has_ended_ && wait4(process_, &status_, how, &usage) == process_) {
        has_ended_ = true;
        peak_kib_ = usage.ru_maxrss;
    }
    return has_ended_;
}

void RunningTool::Interrupt(int signal) const {
    kill(process_, signal);
}

int RunningTool::Finish() {
    HasEnded(0);
    return ExitCode(status_);
}

ToolTest::ToolTest() {
    setenv("MGMT_STORE", (folder_ / "store").c_str(), 1);
}

Outcome ToolTest::Run(const std::vector<std::string>& arguments) const {
    const std::filesystem::path err = folder_ / "err";
    std::filesystem::remove(err);
    RunningTool tool(arguments, err);
    const std::string out = tool.ReadAll();
    return {tool.Finish(), out, ReadFile(err)};
}

Outcome ToolTest::RunOnTerminal(const std::vector<std::string>& arguments, unsigned short columns) const {
    const CommandLine command(arguments);
    winsize size{};
    size.ws_row = 25;
    size.ws_col = columns;
    int terminal = -1;
    const pid_t process = forkpty(&terminal, nullptr, nullptr, &size);
    if (process == 0) {
        execv(MGMTCTL, command.argv());
        _exit(127);
    }
    Outcome outcome;
    char bytes[4096];
    // Reading fails once the other side is closed.
    for (ssize_t count = 0; (count = read(terminal, bytes, sizeof bytes)) > 0;)
        outcome.out.append(bytes, static_cast<std::size_t>(count));
    close(terminal);
    int status = 0;
    waitpid(process, &status, 0);
    outcome.code = ExitCode(status);
    std::erase(outcome.out, '\r');
    return outcome;
}

nlohmann::json ToolTest::RunJson(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), "--json");
    const Outcome outcome = Run(arguments);
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_EQ(outcome.err, "");
    nlohmann::json json = nlohmann::json::parse(outcome.out, nullptr, false);
    EXPECT_FALSE(json.is_discarded()) << outcome.out;
    return json.is_discarded() ? nlohmann::json() : json;
}

void ToolTest::ExpectRefused(const std::vector<std::string>& arguments, int code,
                             const std::string& reason) const {
    const Outcome outcome = Run(arguments);
    EXPECT_EQ(outcome.code, code) << testing::PrintToString(arguments);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, testing::AllOf(testing::StartsWith("mgmtctl: "), testing::HasSubstr(reason)));
}

std::string ToolTest::WriteFile(const std::string& name, const std::string& text) const {
    const std::filesystem::path path = folder_ / name;
    std::ofstream(path, std::ios::binary) << text;
    return path.string();
}

void ToolTest::Import(const std::string& mof) const {
    const Outcome outcome = Run({"import", WriteFile("imported.mof", mof)});
    ASSERT_EQ(outcome.code, 0) << outcome.err;
}
