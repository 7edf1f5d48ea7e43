// LmdbFile: looks through LMDB's data file as bytes, and says what is wrong with it. Only for service/store.
//
//   const LmdbFile file(fd);
//   if (std::string fault = file.MetaFault(); !fault.empty()) ...   // LMDB must not open it
//   file.FindFaults(mdb_txn_id(txn), [&](const std::string& fault) { ...; return true; });
//
// LMDB trusts the pages that it maps: a damaged one may lead it anywhere. This reads the file with pread,
// checks every bound before it goes on, and so finds a damaged page without being led astray. It looks at
// structure alone: which page stands where, the order of keys, that no page is used twice or is free and in
// use at once. What the records say their own checksums and `StoreCheck` tell.
//
// The layout is that of LMDB 0.9 with 64-bit page numbers, see lmdb_file.cpp. Any thread; the file
// descriptor stays the caller's.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "service/model/function_ref.h"

namespace service {

class LmdbFile {
 public:
    explicit LmdbFile(int fd) noexcept : fd_(fd) {}

    // What is wrong with the pages that LMDB begins with; empty when nothing is. A file without a byte is a
    // new one.
    std::string MetaFault() const;

    // Whether the file ends within the two pages that LMDB makes a new one with, and has nothing in it.
    bool IsUnfinished() const;

    // Calls found(sentence) for each fault in the state that transaction `number` left, until it returns
    // false. That state must be held by a read transaction that has just begun. False when the state is not
    // the current one any more, and nothing was looked at.
    bool FindFaults(uint64_t number, FunctionRef<bool(const std::string&)> found) const;

 private:
    const int fd_;
};

}  // namespace service
