// CMgmtObjectSearcher is the base for code of the product that searches for objects.
//
//   class CExpiredPolicies : public CMgmtObjectSearcher { ... };
//   CExpiredPolicies searcher;
//
// It offers no search of its own and has no state, so any thread may do anything with it. CMgmtClass lists
// the instances of a class.
#pragma once

#include "utility/common/mgmt_export.h"

class MGMT_API CMgmtObjectSearcher {
 public:
    CMgmtObjectSearcher();
    CMgmtObjectSearcher(const CMgmtObjectSearcher& other);
    CMgmtObjectSearcher& operator=(const CMgmtObjectSearcher& other);
    virtual ~CMgmtObjectSearcher();
};
