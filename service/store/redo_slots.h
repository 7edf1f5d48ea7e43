// RedoSlots: what makes a commit durable with one flush of the disk instead of two. Only for service/store.
//
//   slots.Write(mdb_txn_id(txn), operations);      // before the commit, which need not flush its meta page
//   ...
//   if (slots.Read(last + 1, operations)) ...      // after a crash: the commit whose meta page was lost
//
// LMDB commits in two steps: it flushes the new pages, then writes and flushes the meta page that makes them
// the current ones. Without the second flush (MDB_NOMETASYNC) the store stays whole after a crash of the
// system, but may have lost the last commit. So the operations of a commit are written into the data file
// too, before it: the flush of its pages carries them to the disk, and when the meta page did not make it,
// the next process that opens the store after the system was started anew carries them out again.
//
// There are two slots, for odd and even transactions. A commit's slot is overwritten only by the next but
// one, and the next one's flush has carried the meta page by then. A crash of a process loses nothing that
// was written, so what such a process leaves in a slot was never acknowledged.
//
// The slots are a value in an LMDB table of their own, large enough to have pages to itself. LMDB never moves
// a value that is not changed through it, so its place in the file is fixed, and it is written past LMDB.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <lmdb.h>

namespace service {

class RedoSlots {
 public:
    // Operations of at most so many bytes fit; larger commits flush twice.
    static constexpr size_t kCapacity = size_t{96} << 10;

    // Makes the slots in a new store. LMDB's result.
    static int Create(MDB_txn* txn, MDB_dbi table);

    // Finds the slots' place in the data file. LMDB's result.
    // `boot` is a number of the system's run since it was started; 0 when it is not known.
    int Locate(MDB_env* env, MDB_txn* txn, MDB_dbi table, uint64_t boot);

    // Writes the operations of transaction `number`, to be flushed with its pages. Called by the writer that
    // holds LMDB's lock. False when they do not fit or cannot be written: the commit must flush twice.
    bool Write(uint64_t number, std::string_view operations) noexcept;

    // Empties the slots in a copy of the data file; errno tells why not.
    bool EmptyIn(int fd) const;

    // The operations of transaction `number`, if its slot holds them whole.
    bool Read(uint64_t number, std::string& operations) const;

    // The same, only if it was written before the system was started anew. What was written since is in the
    // system's memory, the meta page too: without it the commit never was, and must not come back later.
    bool ReadLost(uint64_t number, std::string& operations) const;

 private:
    bool IsPlaceOf(const MDB_val& value) const;
    int64_t PlaceOf(uint64_t number) const noexcept;

    bool Read(uint64_t number, std::string& operations, uint64_t& boot) const;

    int fd_ = -1;  // LMDB's own
    uint64_t boot_ = 0;
    int64_t place_ = 0;
    std::string buffer_;  // used under LMDB's lock
};

}  // namespace service
