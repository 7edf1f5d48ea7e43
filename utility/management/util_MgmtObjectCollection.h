// CMgmtObjectCollection shows a list of objects by index, in the order in which they were added.
//
//   for (size_t i = 0; i < objects->GetTotalItemCount(); ++i)
//       Print(objects->GetItem(i)->GetInstanceId());
//
// A view: it holds a pointer to a list that its owner fills, and copies or frees nothing. It must not be read
// while another thread changes the object that handed it out.
#pragma once

#include <cstddef>
#include <vector>

#include "utility/common/mgmt_export.h"

class CMgmtObject;

class MGMT_API CMgmtObjectCollection {
 public:
    // `objects` may be null; it must live as long as the view and its copies are used.
    CMgmtObjectCollection(std::vector<CMgmtObject*>* objects);
    CMgmtObjectCollection(const CMgmtObjectCollection& other);
    CMgmtObjectCollection& operator=(const CMgmtObjectCollection& other);
    virtual ~CMgmtObjectCollection();

    // The object at `index`, counted from 0, or null when there is none. It stays its owner's.
    CMgmtObject* GetItem(size_t index) const;

    size_t GetTotalItemCount() const;

 private:
    std::vector<CMgmtObject*>* m_Objects;
};
