#include "utility/management/util_MgmtLocalPropertyDataCollection.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <utility>
#include <vector>

#include "utility/management/util_SharedHandle.h"
#include "utility/management/util_SLock.h"

namespace {

using Entry = std::pair<int, CMgmtLocalPropertyData>;

bool IsEmpty(const _variant_t& value) noexcept {
    return value.vt == VT_EMPTY || value.vt == VT_NULL;
}

[[noreturn]] void ThrowValueType(int line) {
    throw CManagementException(MGMT_ERR_VALUE_TYPE, L"" __FILE__, line);
}

}  // namespace

// Its operations are called with the lock held.
struct MGMT_LOCAL CMgmtLocalPropertyDataCollection::SharedData {
    // The entry of `index`, or null.
    Entry* Find(int index) noexcept;
    void Append(int index, const CMgmtLocalPropertyData& data);
    // The value of `index`, or the empty one.
    _variant_t& ValueOf(int index);

    std::atomic<std::int32_t> m_RefCount{1};
    std::vector<Entry> m_Entries;
    bool m_Sorted = false;
    _variant_t m_EmptyValue;
    CSLock m_Lock;
};

Entry* CMgmtLocalPropertyDataCollection::SharedData::Find(int index) noexcept {
    const auto found = std::ranges::find(m_Entries, index, &Entry::first);
    return found != m_Entries.end() ? &*found : nullptr;
}

void CMgmtLocalPropertyDataCollection::SharedData::Append(int index, const CMgmtLocalPropertyData& data) {
    m_Entries.emplace_back(index, data);
    m_Sorted = false;
}

_variant_t& CMgmtLocalPropertyDataCollection::SharedData::ValueOf(int index) {
    if (!m_Sorted) {
        std::ranges::sort(m_Entries, {}, &Entry::first);
        m_Sorted = true;
    }
    const auto found = std::ranges::lower_bound(m_Entries, index, {}, &Entry::first);
    if (found != m_Entries.end() && found->first == index) return found->second.GetValue();

    // Only after somebody wrote to it: other threads may be reading it, and clearing an empty value writes.
    if (m_EmptyValue.vt != VT_EMPTY) ::VariantClear(&m_EmptyValue);
    return m_EmptyValue;
}

CMgmtLocalPropertyDataCollection::CMgmtLocalPropertyDataCollection()
    : m_SharedData(shared_handle::MakeRecord<SharedData>(L"" __FILE__, __LINE__)) {}

CMgmtLocalPropertyDataCollection::CMgmtLocalPropertyDataCollection(
    const CMgmtLocalPropertyDataCollection& other) noexcept
    : m_SharedData(other.m_SharedData) {
    _AddRef();
}

CMgmtLocalPropertyDataCollection& CMgmtLocalPropertyDataCollection::operator=(
    const CMgmtLocalPropertyDataCollection& other) noexcept {
    if (this != &other) shared_handle::Assign(m_SharedData, other.m_SharedData);
    return *this;
}

CMgmtLocalPropertyDataCollection::~CMgmtLocalPropertyDataCollection() {
    _Free();
}

void CMgmtLocalPropertyDataCollection::AddPropertyData(int index, CMgmtLocalPropertyData& data) {
    SharedData& shared = _Ensure(__LINE__);
    // Only the exchange happens under the lock: letting the old record go may release an interface.
    CMgmtLocalPropertyData given(data);
    Guard<CSLock> guard(shared.m_Lock);
    if (Entry* const entry = shared.Find(index)) {
        std::swap(entry->second.m_SharedData, given.m_SharedData);
    } else {
        shared.Append(index, given);
    }
}

void CMgmtLocalPropertyDataCollection::AddPropertyData(int index, const wchar_t* name, _variant_t& value) {
    SharedData& shared = _Ensure(__LINE__);
    Guard<CSLock> guard(shared.m_Lock);
    if (Entry* const entry = shared.Find(index)) {
        const _bstr_t newName(name);
        _variant_t newValue(value);
        entry->second._Replace(newName, newValue);
    } else {
        shared.Append(index, CMgmtLocalPropertyData(name, value));
    }
}

_variant_t& CMgmtLocalPropertyDataCollection::GetValue(int index) {
    SharedData& shared = _Ensure(__LINE__);
    Guard<CSLock> guard(shared.m_Lock);
    return shared.ValueOf(index);
}

int CMgmtLocalPropertyDataCollection::GetIntValue(int index) {
    SharedData& shared = _Ensure(__LINE__);
    Guard<CSLock> guard(shared.m_Lock);
    const _variant_t& value = shared.ValueOf(index);
    switch (value.vt) {
        case VT_INT:
        case VT_I4:
            return value.lVal;
        case VT_UINT:
        case VT_UI4:
            return static_cast<int>(value.ulVal);
        default:
            if (!IsEmpty(value)) ThrowValueType(__LINE__);
            return 0;
    }
}

const wchar_t* CMgmtLocalPropertyDataCollection::GetStrValue(int index) {
    SharedData& shared = _Ensure(__LINE__);
    Guard<CSLock> guard(shared.m_Lock);
    const _variant_t& value = shared.ValueOf(index);
    if (value.vt == VT_BSTR) return value.bstrVal;
    if (!IsEmpty(value)) ThrowValueType(__LINE__);
    return L"";
}

bool CMgmtLocalPropertyDataCollection::GetBoolValue(int index) {
    SharedData& shared = _Ensure(__LINE__);
    Guard<CSLock> guard(shared.m_Lock);
    const _variant_t& value = shared.ValueOf(index);
    if (value.vt == VT_BOOL) return value.boolVal != VARIANT_FALSE;
    if (!IsEmpty(value)) ThrowValueType(__LINE__);
    return false;
}

int CMgmtLocalPropertyDataCollection::GetPropertyDataCount() {
    SharedData& shared = _Ensure(__LINE__);
    Guard<CSLock> guard(shared.m_Lock);
    return static_cast<int>(shared.m_Entries.size());
}

void CMgmtLocalPropertyDataCollection::_AddRef() noexcept {
    shared_handle::AddReference(m_SharedData);
}

void CMgmtLocalPropertyDataCollection::_Free() noexcept {
    shared_handle::Release(m_SharedData);
}

CMgmtLocalPropertyDataCollection::SharedData& CMgmtLocalPropertyDataCollection::_Ensure(int line) {
    return shared_handle::Ensure(m_SharedData, L"" __FILE__, line);
}
