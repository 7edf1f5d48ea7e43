#include "utility/management/util_MgmtBSTRArrayAccessHelper.h"

#include "utility/management/util_MgmtArrayAccess.h"

namespace {

struct Strings {
    using Element = _bstr_t;
    using Stored = BSTR;
    static constexpr VARTYPE TYPE = VT_BSTR;

    static _bstr_t FromArray(BSTR stored) { return _bstr_t(static_cast<const wchar_t*>(stored)); }
    static HRESULT ToArray(SAFEARRAY* array, LONG* index, const _bstr_t& element) {
        return ::SafeArrayPutElement(array, index, element.GetBSTR());
    }
    static void Free(_bstr_t& /*element*/) noexcept {}
};

}  // namespace

CMgmtBSTRArrayAccessHelper::CMgmtBSTRArrayAccessHelper() = default;

CMgmtBSTRArrayAccessHelper::CMgmtBSTRArrayAccessHelper(const _variant_t* source) {
    GetElementsFromArray(source);
}

CMgmtBSTRArrayAccessHelper::CMgmtBSTRArrayAccessHelper(const CMgmtBSTRArrayAccessHelper& other) = default;

CMgmtBSTRArrayAccessHelper& CMgmtBSTRArrayAccessHelper::operator=(const CMgmtBSTRArrayAccessHelper& other) =
    default;

CMgmtBSTRArrayAccessHelper::~CMgmtBSTRArrayAccessHelper() = default;

int CMgmtBSTRArrayAccessHelper::GetElementsFromArray(const _variant_t* source) {
    return array_access::Read<Strings>(source, m_Elements);
}

bool CMgmtBSTRArrayAccessHelper::PutElementsIntoArray(_variant_t& target) {
    return array_access::Write<Strings>(m_Elements, target);
}

void CMgmtBSTRArrayAccessHelper::Add(const wchar_t* value) {
    m_Elements.emplace_back(value);
}

void CMgmtBSTRArrayAccessHelper::Add(const char* value) {
    m_Elements.emplace_back(value);
}

size_t CMgmtBSTRArrayAccessHelper::GetElementsCount() {
    return m_Elements.size();
}

const wchar_t* CMgmtBSTRArrayAccessHelper::GetElement(size_t index) {
    return index < m_Elements.size() ? static_cast<const wchar_t*>(m_Elements[index]) : nullptr;
}
