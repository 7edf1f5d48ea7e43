// Runs the real tool as a process of its own, on a store of the test's own.
//
//   class Tool : public ToolTest {};
//   const Outcome outcome = Run({"get", "Thing", "a"});
//
// One test, one thread.
#pragma once

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/types.h>
#include <nlohmann/json.hpp>

#include "tests/service/temporary_directory.h"

struct Outcome {
    int code = -1;  // the exit code; -1 for a process that a signal ended
    std::string out;
    std::string err;
};

// The tool while it runs, with its standard output in a pipe that nobody reads but the test. Killed, if
// it still runs, when this ends.
class RunningTool {
 public:
    // Its errors go into the file `errors`.
    explicit RunningTool(const std::vector<std::string>& arguments,
                         const std::filesystem::path& errors = "/dev/null");
    ~RunningTool();
    RunningTool(const RunningTool&) = delete;
    RunningTool& operator=(const RunningTool&) = delete;

    // One line without its end; empty at the end of the output.
    std::string ReadLine();
    // The rest of the output.
    std::string ReadAll();
    bool IsRunning();
    void Interrupt(int signal = SIGINT) const;

    // Waits for the end: the exit code, -1 where a signal ended it.
    int Finish();
    // The most memory that it had, in KiB; once it has ended.
    long PeakKib() const { return peak_kib_; }

 private:
    bool HasEnded(int how);

    pid_t process_ = 0;
    std::FILE* output_ = nullptr;
    int status_ = 0;
    bool has_ended_ = false;
    long peak_kib_ = 0;
};

// Gives each test a folder and, in it, a store that MGMT_STORE names.
class ToolTest : public testing::Test {
 protected:
    ToolTest();

    Outcome Run(const std::vector<std::string>& arguments) const;
    // The same with --json; the output is empty JSON, and the test failed, when the tool fails.
    nlohmann::json RunJson(std::vector<std::string> arguments) const;

    // The same with a terminal of so many columns for its output and its errors, which come together.
    Outcome RunOnTerminal(const std::vector<std::string>& arguments, unsigned short columns) const;

    // A command that fails prints nothing but the reason, to the standard error.
    void ExpectRefused(const std::vector<std::string>& arguments, int code, const std::string& reason) const;

    // Writes a file into the test's folder and returns its path.
    std::string WriteFile(const std::string& name, const std::string& text) const;
    // Imports text, and fails the test when that fails.
    void Import(const std::string& mof) const;

    const std::filesystem::path& Folder() const { return folder_; }

 private:
    const TemporaryDirectory directory_;
    const std::filesystem::path folder_ = directory_.path();
};
