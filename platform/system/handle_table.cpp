#include "platform/system/handle_table.h"

#include <algorithm>
#include <cstddef>
#include <new>
#include <utility>

#include <pthread.h>

namespace mgmt_platform {

namespace {

// The two lowest bits of a handle are 0, as on the published platform.
constexpr std::uintptr_t HANDLE_STEP = 4;

std::uintptr_t NumberOf(HANDLE handle) noexcept {
    return reinterpret_cast<std::uintptr_t>(handle);
}

}  // namespace

struct HandleTable::AtFork {
    static void Prepare() {
        OfProcess().changes_.lock();
        OfProcess().entries_lock_.lock();
    }
    static void Release() {
        OfProcess().entries_lock_.unlock();
        OfProcess().changes_.unlock();
    }
    static void ReleaseInChild() {
        OfProcess().EndUses();
        Release();
        OfProcess().DestroyClosed();
    }
};

struct HandleTable::AtExit {
    ~AtExit() { OfProcess().LetGoOfFiles(); }
};

HandleTable& HandleTable::OfProcess() {
    // Never destroyed: threads may still wait when the process ends.
    alignas(HandleTable) static std::byte storage[sizeof(HandleTable)];
    static HandleTable* const table = new (storage) HandleTable;
    [[maybe_unused]] static const int handled =
        pthread_atfork(AtFork::Prepare, AtFork::Release, AtFork::ReleaseInChild);
    static const AtExit at_exit;
    return *table;
}

HANDLE HandleTable::Change::Add(std::unique_ptr<Event> event, DWORD access) const {
    const std::lock_guard lock(table_.entries_lock_);
    const std::uintptr_t number = table_.last_handle_ + HANDLE_STEP;
    table_.entries_.emplace(number, Entry{std::move(event), access, 0, false});
    table_.last_handle_ = number;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a handle is a number in a pointer's type.
    return reinterpret_cast<HANDLE>(number);
}

bool HandleTable::Change::Close(HANDLE handle) const {
    Entries::node_type closed;
    const std::lock_guard lock(table_.entries_lock_);
    const auto entry = table_.entries_.find(NumberOf(handle));
    if (entry == table_.entries_.end() || entry->second.is_closed) return false;
    entry->second.is_closed = true;
    if (entry->second.uses == 0) closed = table_.entries_.extract(entry);
    return true;
}

HandleTable::Use::Use(HandleTable& table, HANDLE handle) : table_(table) {
    const std::lock_guard lock(table_.entries_lock_);
    const auto entry = table_.entries_.find(NumberOf(handle));
    if (entry == table_.entries_.end() || entry->second.is_closed) return;
    entry_ = &entry->second;
    ++entry_->uses;
}

HandleTable::Use::~Use() {
    if (entry_ == nullptr) return;
    {
        const std::lock_guard lock(table_.entries_lock_);
        --entry_->uses;
        if (!entry_->is_closed || entry_->uses != 0) return;
    }
    table_.DestroyClosed();
}

void HandleTable::DestroyClosed() {
    const std::lock_guard change(changes_);
    for (;;) {
        Entries::node_type closed;
        const std::lock_guard lock(entries_lock_);
        const auto entry = std::find_if(entries_.begin(), entries_.end(), [](const auto& each) {
            return each.second.is_closed && each.second.uses == 0;
        });
        if (entry == entries_.end()) return;
        closed = entries_.extract(entry);
    }
}

void HandleTable::LetGoOfFiles() {
    const std::lock_guard change(changes_);
    const std::lock_guard lock(entries_lock_);
    for (auto& [number, entry] : entries_)
        entry.event->LetGoOfFile();
}

void HandleTable::EndUses() noexcept {
    for (auto& [number, entry] : entries_)
        entry.uses = 0;
}

}  // namespace mgmt_platform
