#include "utility/management/util_MgmtPropertyData.h"

CMgmtPropertyData::CMgmtPropertyData(const std::wstring& name, const _variant_t& value)
    : m_Name(name), m_Value(value) {}

CMgmtPropertyData::CMgmtPropertyData(const CMgmtPropertyData& other) = default;

CMgmtPropertyData& CMgmtPropertyData::operator=(const CMgmtPropertyData& other) {
    _variant_t value(other.m_Value);
    m_Name = other.m_Name;
    m_Value.Attach(value);
    return *this;
}

CMgmtPropertyData::~CMgmtPropertyData() = default;

const std::wstring* CMgmtPropertyData::GetName() const {
    return &m_Name;
}

const _variant_t* CMgmtPropertyData::GetValue() const {
    return &m_Value;
}
