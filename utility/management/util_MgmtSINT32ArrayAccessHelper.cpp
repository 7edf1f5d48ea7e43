#include "utility/management/util_MgmtSINT32ArrayAccessHelper.h"

#include <utility>

#include "utility/management/util_MgmtArrayAccess.h"

namespace {

struct Integers {
    using Element = long;
    using Stored = LONG;
    static constexpr VARTYPE TYPE = VT_I4;

    static long FromArray(LONG stored) noexcept { return stored; }
    static HRESULT ToArray(SAFEARRAY* array, LONG* index, long element) {
        if (!std::in_range<LONG>(element)) return DISP_E_OVERFLOW;
        auto stored = static_cast<LONG>(element);
        return ::SafeArrayPutElement(array, index, &stored);
    }
    static void Free(long /*element*/) noexcept {}
};

}  // namespace

CMgmtSINT32ArrayAccessHelper::CMgmtSINT32ArrayAccessHelper() = default;

CMgmtSINT32ArrayAccessHelper::CMgmtSINT32ArrayAccessHelper(const _variant_t* source) {
    GetElementsFromArray(source);
}

CMgmtSINT32ArrayAccessHelper::CMgmtSINT32ArrayAccessHelper(const CMgmtSINT32ArrayAccessHelper& other) =
    default;

CMgmtSINT32ArrayAccessHelper& CMgmtSINT32ArrayAccessHelper::operator=(
    const CMgmtSINT32ArrayAccessHelper& other) = default;

CMgmtSINT32ArrayAccessHelper::~CMgmtSINT32ArrayAccessHelper() = default;

int CMgmtSINT32ArrayAccessHelper::GetElementsFromArray(const _variant_t* source) {
    return array_access::Read<Integers>(source, m_Elements);
}

bool CMgmtSINT32ArrayAccessHelper::PutElementsIntoArray(_variant_t& target) {
    return array_access::Write<Integers>(m_Elements, target);
}

void CMgmtSINT32ArrayAccessHelper::Add(long value) {
    m_Elements.push_back(value);
}

size_t CMgmtSINT32ArrayAccessHelper::GetElementsCount() {
    return m_Elements.size();
}

long CMgmtSINT32ArrayAccessHelper::GetElement(size_t index) {
    return index < m_Elements.size() ? m_Elements[index] : 0;
}
