// Runs the real tool as a process of its own, on a store of the test's own.
//
//   class Tool : public ToolTest {};
//   const Outcome outcome = Run({"get", "Thing", "a"});
//
// One test, one thread.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

struct Outcome {
    int code = -1;  // the exit code; -1 for a process that a signal ended
    std::string out;
    std::string err;
};

// Gives each test a folder and, in it, a store that MGMT_STORE names.
class ToolTest : public testing::Test {
 protected:
    ToolTest();
    ~ToolTest() override;

    Outcome Run(const std::vector<std::string>& arguments) const;
    // The same with --json; the output is empty JSON, and the test failed, when the tool fails.
    nlohmann::json RunJson(std::vector<std::string> arguments) const;

    // Writes a file into the test's folder and returns its path.
    std::string WriteFile(const std::string& name, const std::string& text) const;
    // Imports text, and fails the test when that fails.
    void Import(const std::string& mof) const;

    const std::filesystem::path& Folder() const { return folder_; }

 private:
    std::filesystem::path folder_;
};
