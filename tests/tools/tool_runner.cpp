#include "tests/tools/tool_runner.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string ReadFile(const std::filesystem::path& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

std::filesystem::path MakeFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "mgmtctl-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no folder for the test");
    return name;
}

}  // namespace

ToolTest::ToolTest() : folder_(MakeFolder()) {
    setenv("MGMT_STORE", (folder_ / "store").c_str(), 1);
}

ToolTest::~ToolTest() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

Outcome ToolTest::Run(const std::vector<std::string>& arguments) const {
    std::vector<std::string> words{MGMTCTL};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    const std::filesystem::path out = folder_ / "out";
    const std::filesystem::path err = folder_ / "err";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    pid_t process = 0;
    const int fault = posix_spawn(&process, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (fault != 0) return {-1, "", "the tool cannot be started"};

    int status = 0;
    waitpid(process, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(out), ReadFile(err)};
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

std::string ToolTest::WriteFile(const std::string& name, const std::string& text) const {
    const std::filesystem::path path = folder_ / name;
    std::ofstream(path, std::ios::binary) << text;
    return path.string();
}

void ToolTest::Import(const std::string& mof) const {
    const Outcome outcome = Run({"import", WriteFile("imported.mof", mof)});
    ASSERT_EQ(outcome.code, 0) << outcome.err;
}
