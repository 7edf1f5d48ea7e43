// The directory and the files of a store, before LMDB gets to see them. Only for service/store.
//
//   if (!HasStore(directory)) ...                     // nothing to be read: the first write makes it
//   SERVICE_RETURN_IF_ERROR(MakeDirectory(directory));
//   SERVICE_RETURN_IF_ERROR(AllocateLockFile(directory, max_readers));
//
// Stateless but for StandardDescriptors.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "service/model/status.h"

namespace service {

inline constexpr mode_t kStoreFileMode = 0600;

// The status of the system's error met while doing `what`, with a way out.
Status SystemFault(int error, const std::string& what);

// Whether there is something in `directory` that has to be opened to be read. False only where it is certain
// that there is no store: the directory or the data file is not there, or nothing was written to it yet.
bool HasStore(const std::string& directory) noexcept;

// Whether what stands beside an empty data file tells that there was something in it.
bool WasInUse(const std::string& directory) noexcept;

// Opens a file beside the data file for reading and writing, made if it is not there; -1 with errno. One that
// root makes belongs to the account that the directory belongs to, so that root may look at a store without
// shutting its owner out. None but a file that was made just here is given away, and no link is followed:
// what stands in the directory is its owner's choice.
int OpenStoreFile(const std::string& path);

// Makes the directory and those above it. A store's own directory is for its account alone.
// WBEM_E_NOT_AVAILABLE for a directory that holds other files but no store.
Status MakeDirectory(const std::string& directory);

// Gives the lock file all its blocks. LMDB only sets its length, and a page of it that finds no room on the
// disk when it is first touched would kill the process. Before LMDB opens the file, not after: closing it
// drops the process's locks on it.
Status AllocateLockFile(const std::string& directory, unsigned max_readers);

// So that what was made in `directory`, and it itself, is still there after a power failure.
void SyncDirectory(const std::string& directory) noexcept;

// Identifies the run of the system since it was started; 0 where it is not known.
uint64_t NumberOfBoot();

// Takes the standard descriptors that the program has closed while it lives: what is printed or logged must
// not get into the store's files.
class StandardDescriptors {
 public:
    StandardDescriptors() noexcept;
    ~StandardDescriptors();
    StandardDescriptors(const StandardDescriptors&) = delete;
    StandardDescriptors& operator=(const StandardDescriptors&) = delete;

 private:
    std::array<int, STDERR_FILENO + 1> taken_{};
    size_t count_ = 0;
};

}  // namespace service
