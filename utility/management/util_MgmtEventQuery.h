// CMgmtEventQuery is the kind of query that asks for events.
//
//   void Describe(const CMgmtQuery& query);
//   Describe(CMgmtEventQuery());
//
// It carries no text and has no state, so any thread may do anything with it. CMgmtEventWatcher takes the
// text of a notification query, not an object of this class.
#pragma once

#include "utility/common/mgmt_export.h"
#include "utility/management/util_MgmtQuery.h"

class MGMT_API CMgmtEventQuery : public CMgmtQuery {
 public:
    CMgmtEventQuery();
    CMgmtEventQuery(const CMgmtEventQuery& other);
    CMgmtEventQuery& operator=(const CMgmtEventQuery& other);
    ~CMgmtEventQuery() override;
};
