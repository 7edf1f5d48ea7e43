// HandleTable holds the open handles of this process and the events that they stand for. For the files of
// this folder only.
//
//   HandleTable& table = HandleTable::OfProcess();
//   const HandleTable::Change change(table);
//   const HANDLE handle = change.Add(std::move(event), EVENT_ALL_ACCESS);
//
//   const HandleTable::Use use(table, handle);   // lives on until the use ends, also when it is closed
//   if (use.event() == nullptr) ...              // no open handle
//
// Any thread, also several at once. Two locks, taken in this order: changes_, for as long as an event is made
// or destroyed, and entries_lock_, for a look into the table. Fork waits for both, so a child finds them free
// and no event half made; the uses of threads that it does not have end with the fork. When the process ends,
// it lets go of the events' files as if every handle had been closed.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

#include <windef.h>

#include "platform/system/event.h"

namespace mgmt_platform {

class HandleTable {
    struct Entry {
        std::unique_ptr<Event> event;
        DWORD access;
        unsigned uses;
        bool is_closed;
    };
    using Entries = std::unordered_map<std::uintptr_t, Entry>;

 public:
    static HandleTable& OfProcess();

    // While it lives, its thread may make and destroy events.
    class Change {
     public:
        explicit Change(HandleTable& table) : table_(table), lock_(table.changes_) {}

        // std::bad_alloc destroys the event.
        HANDLE Add(std::unique_ptr<Event> event, DWORD access) const;
        // False for what is no open handle.
        bool Close(HANDLE handle) const;

     private:
        HandleTable& table_;
        std::lock_guard<std::mutex> lock_;
    };

    class Use {
     public:
        Use(HandleTable& table, HANDLE handle);
        ~Use();
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;

        // Null for what is no open handle.
        Event* event() const noexcept { return entry_ == nullptr ? nullptr : entry_->event.get(); }
        DWORD access() const noexcept { return entry_->access; }

     private:
        HandleTable& table_;
        Entry* entry_ = nullptr;
    };

    HandleTable() = default;
    HandleTable(const HandleTable&) = delete;
    HandleTable& operator=(const HandleTable&) = delete;

 private:
    struct AtExit;
    struct AtFork;

    void DestroyClosed();
    void LetGoOfFiles();
    void EndUses() noexcept;

    std::mutex changes_;
    std::mutex entries_lock_;
    Entries entries_;
    std::uintptr_t last_handle_ = 0;
};

}  // namespace mgmt_platform
