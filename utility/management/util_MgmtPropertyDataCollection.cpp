#include "utility/management/util_MgmtPropertyDataCollection.h"

#include <iterator>

CMgmtPropertyDataCollection::CMgmtPropertyDataCollection(std::map<std::wstring, CMgmtPropertyData*>* map)
    : m_PropertyMap(map) {}

CMgmtPropertyDataCollection::CMgmtPropertyDataCollection(const CMgmtPropertyDataCollection& other) = default;

CMgmtPropertyDataCollection& CMgmtPropertyDataCollection::operator=(
    const CMgmtPropertyDataCollection& other) = default;

CMgmtPropertyDataCollection::~CMgmtPropertyDataCollection() = default;

const CMgmtPropertyData* CMgmtPropertyDataCollection::GetItem(size_t index) const {
    if (index >= GetTotalItemCount()) return nullptr;
    return std::next(m_PropertyMap->begin(), static_cast<std::ptrdiff_t>(index))->second;
}

size_t CMgmtPropertyDataCollection::GetTotalItemCount() const {
    return m_PropertyMap != nullptr ? m_PropertyMap->size() : 0;
}
