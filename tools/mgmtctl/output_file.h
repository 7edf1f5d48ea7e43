// A file that is written whole or not at all.
//
//   OutputFile file("policies.mof");
//   file.Write(text);
//   file.Commit();            // now it is there, in place of an older one
//
// Until Commit everything goes into a file of another name in the same folder, which is gone when this is.
// Faults are thrown as OperationFailure. One thread.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "tools/mgmtctl/file_descriptor.h"

namespace mgmtctl {

class OutputFile {
 public:
    explicit OutputFile(const std::string& path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void Write(std::string_view text);

    // Safe on the disk when it returns.
    void Commit();

 private:
    int Create();
    void Flush();
    [[noreturn]] void Fail(int error) const;

    const std::string name_;              // as it was given
    const std::filesystem::path target_;  // behind symbolic links
    std::string written_;                 // what is written until then; empty when there is nothing to remove
    const FileDescriptor file_;
    std::string buffer_;
};

}  // namespace mgmtctl
