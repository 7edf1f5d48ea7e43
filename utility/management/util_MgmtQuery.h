// CMgmtQuery is the base of the kinds of queries, CMgmtObjectQuery and CMgmtEventQuery.
//
//   void Describe(const CMgmtQuery& query);
//   Describe(CMgmtEventQuery());
//
// It carries no text and has no state, so any thread may do anything with it. A query's text is given to
// CMgmtEventWatcher.
#pragma once

#include "utility/common/mgmt_export.h"

class MGMT_API CMgmtQuery {
 public:
    CMgmtQuery();
    CMgmtQuery(const CMgmtQuery& other);
    CMgmtQuery& operator=(const CMgmtQuery& other);
    virtual ~CMgmtQuery();
};
