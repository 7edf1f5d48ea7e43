#include "utility/management/util_MgmtLocalPropertyData.h"

#include <atomic>
#include <cstdint>

#include "utility/management/util_SharedHandle.h"

struct MGMT_LOCAL CMgmtLocalPropertyData::SharedData {
    SharedData() = default;
    SharedData(const wchar_t* name, const _variant_t& value) : m_Name(name), m_Value(value) {}

    std::atomic<std::int32_t> m_RefCount{1};
    _bstr_t m_Name;
    _variant_t m_Value;
};

CMgmtLocalPropertyData::CMgmtLocalPropertyData(const wchar_t* name, _variant_t& value)
    : m_SharedData(shared_handle::MakeRecord<SharedData>(L"" __FILE__, __LINE__, name, value)) {}

CMgmtLocalPropertyData::CMgmtLocalPropertyData(const CMgmtLocalPropertyData& other) noexcept
    : m_SharedData(other.m_SharedData) {
    _AddRef();
}

CMgmtLocalPropertyData& CMgmtLocalPropertyData::operator=(const CMgmtLocalPropertyData& other) noexcept {
    if (this != &other) shared_handle::Assign(m_SharedData, other.m_SharedData);
    return *this;
}

CMgmtLocalPropertyData::~CMgmtLocalPropertyData() {
    _Free();
}

const wchar_t* CMgmtLocalPropertyData::GetName() {
    return _Ensure(__LINE__).m_Name;
}

_variant_t& CMgmtLocalPropertyData::GetValue() {
    return _Ensure(__LINE__).m_Value;
}

void CMgmtLocalPropertyData::SetName(const wchar_t* name) {
    _Ensure(__LINE__).m_Name = _bstr_t(name);
}

void CMgmtLocalPropertyData::SetValue(const _variant_t& value) {
    SharedData& data = _Ensure(__LINE__);
    // The copy stands before the old value goes: a copy that fails changes nothing, and `value` may be a part
    // of the old one.
    _variant_t copy(value);
    data.m_Value.Attach(copy);
}

void CMgmtLocalPropertyData::_Replace(const _bstr_t& name, _variant_t& value) {
    SharedData& data = _Ensure(__LINE__);
    data.m_Value.Attach(value);
    data.m_Name = name;
}

void CMgmtLocalPropertyData::_AddRef() noexcept {
    shared_handle::AddReference(m_SharedData);
}

void CMgmtLocalPropertyData::_Free() noexcept {
    shared_handle::Release(m_SharedData);
}

CMgmtLocalPropertyData::SharedData& CMgmtLocalPropertyData::_Ensure(int line) {
    return shared_handle::Ensure(m_SharedData, L"" __FILE__, line);
}
