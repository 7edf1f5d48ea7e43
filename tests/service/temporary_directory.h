// TemporaryDirectory: an empty directory of its own for one test, removed with all that is in it.
//
//   TemporaryDirectory directory;
//   OpenLmdbStore(directory.path() + "/store");
#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

class TemporaryDirectory {
 public:
    TemporaryDirectory() {
        path_ = (std::filesystem::temp_directory_path() / "mgmt-test-XXXXXX").string();
        if (!mkdtemp(path_.data())) throw std::runtime_error("no temporary directory can be made");
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const noexcept { return path_; }

 private:
    std::string path_;
};
