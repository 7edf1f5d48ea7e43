#include "utility/management/util_MgmtObjectCollection.h"

CMgmtObjectCollection::CMgmtObjectCollection(std::vector<CMgmtObject*>* objects) : m_Objects(objects) {}

CMgmtObjectCollection::CMgmtObjectCollection(const CMgmtObjectCollection& other) = default;

CMgmtObjectCollection& CMgmtObjectCollection::operator=(const CMgmtObjectCollection& other) = default;

CMgmtObjectCollection::~CMgmtObjectCollection() = default;

CMgmtObject* CMgmtObjectCollection::GetItem(size_t index) const {
    return index < GetTotalItemCount() ? (*m_Objects)[index] : nullptr;
}

size_t CMgmtObjectCollection::GetTotalItemCount() const {
    return m_Objects != nullptr ? m_Objects->size() : 0;
}
