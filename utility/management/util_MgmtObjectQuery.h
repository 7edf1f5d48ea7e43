// CMgmtObjectQuery is the kind of query that asks for objects.
//
//   void Describe(const CMgmtQuery& query);
//   Describe(CMgmtObjectQuery());
//
// It carries no text and has no state, so any thread may do anything with it.
#pragma once

#include "utility/common/mgmt_export.h"
#include "utility/management/util_MgmtQuery.h"

class MGMT_API CMgmtObjectQuery : public CMgmtQuery {
 public:
    CMgmtObjectQuery();
    CMgmtObjectQuery(const CMgmtObjectQuery& other);
    CMgmtObjectQuery& operator=(const CMgmtObjectQuery& other);
    ~CMgmtObjectQuery() override;
};
