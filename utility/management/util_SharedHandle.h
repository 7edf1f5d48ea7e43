// What the library's handle classes have in common. Internal to the library.
//
// A handle holds one pointer, m_SharedData, to a heap record of its own type. The record's first field,
// `std::atomic<std::int32_t> m_RefCount`, is 1 when the record is made and counts the handles that share it;
// the handle that brings it to 0 destroys the record. Handles of one record may be copied and destroyed on
// any thread. A handle without a record makes one on first use.
//
//   Handle::Handle(const Handle& other) noexcept : m_SharedData(other.m_SharedData) { _AddRef(); }
//   Handle& Handle::operator=(const Handle& other) noexcept {
//       if (this != &other) shared_handle::Assign(m_SharedData, other.m_SharedData);
//       return *this;
//   }
//   Handle::~Handle() { _Free(); }
//   void Handle::Use() { shared_handle::Ensure(m_SharedData, L"" __FILE__, __LINE__).m_Value = 5; }
#pragma once

#include <atomic>
#include <new>
#include <utility>

#include "utility/management/util_ManagementException.h"

namespace shared_handle {

template <typename Record>
void AddReference(Record* record) noexcept {
    if (record != nullptr) record->m_RefCount.fetch_add(1, std::memory_order_relaxed);
}

// Lets the reference of `record` go and sets the pointer to null.
template <typename Record>
void Release(Record*& record) noexcept {
    Record* const released = std::exchange(record, nullptr);
    if (released == nullptr) return;
    if (released->m_RefCount.fetch_sub(1, std::memory_order_acq_rel) == 1) delete released;
}

// Makes a handle share the record of another one.
template <typename Record>
void Assign(Record*& record, Record* other) noexcept {
    // The reference is taken first: this handle may be the last one of the record that the other lies in.
    AddReference(other);
    Record* released = std::exchange(record, other);
    Release(released);
}

// A new record that belongs to the caller. Throws CManagementException MGMT_ERR_SHARED_DATA, naming
// `sourceFile` and `line`, when there is no memory for it, and what the record's constructor throws.
template <typename Record, typename... Arguments>
Record* MakeRecord(const wchar_t* sourceFile, int line, Arguments&&... arguments) {
    Record* const record = new (std::nothrow) Record(std::forward<Arguments>(arguments)...);
    if (record == nullptr) throw CManagementException(MGMT_ERR_SHARED_DATA, sourceFile, line);
    return record;
}

// The record of a handle; a new one, made of `defaults`, when it has none. Throws as MakeRecord.
template <typename Record, typename... Arguments>
Record& Ensure(Record*& record, const wchar_t* sourceFile, int line, Arguments&&... defaults) {
    if (record == nullptr)
        record = MakeRecord<Record>(sourceFile, line, std::forward<Arguments>(defaults)...);
    return *record;
}

}  // namespace shared_handle
