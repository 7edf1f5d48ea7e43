#include "tools/mgmtctl/output_file.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/mgmtctl/failure.h"

namespace mgmtctl {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t BUFFER_BYTES = 1 << 16;

// A link stays a link: what it leads to is written.
fs::path BehindLinks(const std::string& path) {
    std::error_code fault;
    fs::path found = fs::weakly_canonical(path, fault);
    return fault ? fs::path(path) : found;
}

// What a file made anew would have, or what the one that is replaced has.
mode_t ModeFor(const fs::path& target) {
    struct stat status = {};
    if (stat(target.c_str(), &status) == 0) return status.st_mode & 07777;
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

// A file's new name is on the disk when its folder is; not every file system can say so.
void SyncFolder(const fs::path& folder) {
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return;
    fsync(descriptor);
    close(descriptor);
}

}  // namespace

OutputFile::OutputFile(const std::string& path) : name_(path), target_(BehindLinks(path)), file_(Create()) {
    buffer_.reserve(BUFFER_BYTES);
}

OutputFile::~OutputFile() {
    if (!written_.empty()) unlink(written_.c_str());
}

int OutputFile::Create() {
    std::error_code fault;
    if (fs::exists(target_, fault) && !fs::is_regular_file(target_, fault)) {
        throw OperationFailure("cannot write " + name_ + ": it is no ordinary file",
                               "Leave --output out, and redirect the output there.");
    }
    std::string made = target_.string() + ".XXXXXX";
    const int descriptor = mkostemp(made.data(), O_CLOEXEC);
    if (descriptor < 0) Fail(errno);
    written_ = std::move(made);
    if (fchmod(descriptor, ModeFor(target_)) != 0) Fail(errno);
    return descriptor;
}

void OutputFile::Write(std::string_view text) {
    buffer_ += text;
    if (buffer_.size() >= BUFFER_BYTES) Flush();
}

void OutputFile::Flush() {
    std::string_view rest = buffer_;
    while (!rest.empty()) {
        const ssize_t count = write(file_.get(), rest.data(), rest.size());
        if (count < 0 && errno != EINTR) Fail(errno);
        rest.remove_prefix(static_cast<std::size_t>(count < 0 ? 0 : count));
    }
    buffer_.clear();
}

void OutputFile::Commit() {
    Flush();
    if (fsync(file_.get()) != 0 || rename(written_.c_str(), target_.c_str()) != 0) Fail(errno);
    written_.clear();
    SyncFolder(target_.parent_path());
}

void OutputFile::Fail(int error) const {
    if (!written_.empty()) unlink(written_.c_str());
    throw OperationFailure(
        "cannot write " + name_ + ": " + std::strerror(error),
        "Nothing was changed there; name a file in a folder that can be written to and has room.");
}

}  // namespace mgmtctl
