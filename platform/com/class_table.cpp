#include "platform/com/class_table.h"

#include <pthread.h>

#include <algorithm>
#include <cstddef>
#include <new>
#include <utility>

namespace mgmt_platform {

ClassTable& ClassTable::OfProcess() noexcept {
    // Never destroyed: what is still registered when the process ends may come from a library that is gone.
    alignas(ClassTable) static std::byte storage[sizeof(ClassTable)];
    static ClassTable* const table = new (storage) ClassTable;
    // A fork waits for the lock, so that the child finds it free and the table whole.
    [[maybe_unused]] static const int handled = pthread_atfork(
        [] { table->mutex_.lock(); }, [] { table->mutex_.unlock(); }, [] { table->mutex_.unlock(); });
    return *table;
}

HRESULT ClassTable::Register(REFCLSID clsid, IUnknown* class_object, DWORD* cookie) noexcept try {
    // Outlives the lock, so that a registration which does not get in is let go without it.
    const auto registration = std::make_shared<const ClassRegistration>(clsid, class_object);
    const std::lock_guard lock(mutex_);
    const DWORD taken = TakeCookie();
    entries_.push_back({taken, registration});
    *cookie = taken;
    return S_OK;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

bool ClassTable::Revoke(DWORD cookie) noexcept {
    std::shared_ptr<const ClassRegistration> revoked;
    const std::lock_guard lock(mutex_);
    const auto entry = std::find_if(entries_.begin(), entries_.end(),
                                    [cookie](const Entry& each) { return each.cookie == cookie; });
    if (entry == entries_.end()) return false;
    revoked = std::move(entry->registration);
    entries_.erase(entry);
    return true;
}

std::shared_ptr<const ClassRegistration> ClassTable::Find(REFCLSID clsid) noexcept {
    const std::lock_guard lock(mutex_);
    const auto entry = std::find_if(entries_.rbegin(), entries_.rend(),
                                    [&clsid](const Entry& each) { return each.registration->IsOf(clsid); });
    return entry != entries_.rend() ? entry->registration : nullptr;
}

bool ClassTable::IsTaken(DWORD cookie) const noexcept {
    return std::any_of(entries_.begin(), entries_.end(),
                       [cookie](const Entry& each) { return each.cookie == cookie; });
}

DWORD ClassTable::TakeCookie() noexcept {
    do {
        ++last_cookie_;
    } while (last_cookie_ == 0 || IsTaken(last_cookie_));
    return last_cookie_;
}

}  // namespace mgmt_platform
