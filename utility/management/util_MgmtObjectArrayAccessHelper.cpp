#include "utility/management/util_MgmtObjectArrayAccessHelper.h"

#include <memory>

#include "utility/management/util_MgmtArrayAccess.h"

namespace {

struct Objects {
    using Element = CMgmtObjectBase*;
    using Stored = IUnknown*;
    static constexpr VARTYPE TYPE = VT_UNKNOWN;

    static std::unique_ptr<CMgmtObjectBase> FromArray(IUnknown* stored) {
        const _variant_t object(stored);
        return std::make_unique<CMgmtObjectBase>(&object, true);
    }
    static HRESULT ToArray(SAFEARRAY* array, LONG* index, CMgmtObjectBase* element) {
        const _variant_t object = *element;
        return ::SafeArrayPutElement(array, index, object.vt == VT_UNKNOWN ? object.punkVal : nullptr);
    }
    static void Free(CMgmtObjectBase* element) noexcept { delete element; }
};

}  // namespace

CMgmtObjectArrayAccessHelper::CMgmtObjectArrayAccessHelper() = default;

CMgmtObjectArrayAccessHelper::CMgmtObjectArrayAccessHelper(const _variant_t* source) {
    GetElementsFromArray(source);
}

CMgmtObjectArrayAccessHelper::CMgmtObjectArrayAccessHelper(const CMgmtObjectArrayAccessHelper& other) {
    *this = other;
}

CMgmtObjectArrayAccessHelper& CMgmtObjectArrayAccessHelper::operator=(
    const CMgmtObjectArrayAccessHelper& other) {
    if (this == &other) return *this;
    array_access::Building<Objects> copy;
    copy.elements.reserve(other.m_Elements.size());
    for (const CMgmtObjectBase* const element : other.m_Elements)
        array_access::Append(copy.elements, std::make_unique<CMgmtObjectBase>(*element));
    m_Elements.swap(copy.elements);
    return *this;
}

CMgmtObjectArrayAccessHelper::~CMgmtObjectArrayAccessHelper() {
    Reset();
}

int CMgmtObjectArrayAccessHelper::GetElementsFromArray(const _variant_t* source) {
    return array_access::Read<Objects>(source, m_Elements);
}

bool CMgmtObjectArrayAccessHelper::PutElementsIntoArray(_variant_t& target) {
    return array_access::Write<Objects>(m_Elements, target);
}

void CMgmtObjectArrayAccessHelper::Add(const CMgmtObjectBase* value) {
    if (value == nullptr) return;
    // Writing a bag into its object is not for const objects; a copy shares bag and object.
    CMgmtObjectBase written(*value);
    const _variant_t object = written;
    if (object.vt != VT_UNKNOWN) return;
    array_access::Append(m_Elements, std::make_unique<CMgmtObjectBase>(&object, true));
}

size_t CMgmtObjectArrayAccessHelper::GetElementsCount() {
    return m_Elements.size();
}

CMgmtObjectBase* CMgmtObjectArrayAccessHelper::GetElement(size_t index) {
    return index < m_Elements.size() ? m_Elements[index] : nullptr;
}

void CMgmtObjectArrayAccessHelper::Reset() noexcept {
    array_access::Building<Objects> freed;
    m_Elements.swap(freed.elements);
}
