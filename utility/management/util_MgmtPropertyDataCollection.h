// CMgmtPropertyDataCollection shows the properties of an object by index, in the order of their names.
//
//   CMgmtPropertyDataCollection* properties = object.GetProperties();
//   for (size_t i = 0; i < properties->GetTotalItemCount(); ++i)
//       Print(*properties->GetItem(i)->GetName());
//
// A view: it holds a pointer to a map that its owner fills, and copies or frees nothing. It must not be read
// while another thread changes the object that handed it out.
//
// Names are compared unit by unit, so "Name" and "name" are two properties and "Name" comes first.
#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "utility/common/mgmt_export.h"
#include "utility/management/util_MgmtPropertyData.h"

class MGMT_API CMgmtPropertyDataCollection {
 public:
    // `map` may be null; it must live as long as the view and its copies are used.
    CMgmtPropertyDataCollection(std::map<std::wstring, CMgmtPropertyData*>* map);
    CMgmtPropertyDataCollection(const CMgmtPropertyDataCollection& other);
    CMgmtPropertyDataCollection& operator=(const CMgmtPropertyDataCollection& other);
    virtual ~CMgmtPropertyDataCollection();

    // The record at `index`, counted from 0, or null when there is none. It stays its owner's and is valid
    // until the property is set again. Takes `index` steps.
    const CMgmtPropertyData* GetItem(size_t index) const;

    size_t GetTotalItemCount() const;

 private:
    std::map<std::wstring, CMgmtPropertyData*>* m_PropertyMap;
};
