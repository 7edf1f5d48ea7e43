// CMgmtCompletedEventArgs is what a CMgmtCompletedEventHandler is told about a request that has ended.
//
//   CMgmtCompletedEventArgs args;
//   handler.OnCompleted(args);
//
// It has no state, so any thread may do anything with it. The library itself makes none.
#pragma once

#include "utility/common/mgmt_export.h"
#include "utility/management/util_MgmtEventArgs.h"

class MGMT_API CMgmtCompletedEventArgs : public CMgmtEventArgs {
 public:
    CMgmtCompletedEventArgs();
    CMgmtCompletedEventArgs(const CMgmtCompletedEventArgs& other);
    CMgmtCompletedEventArgs& operator=(const CMgmtCompletedEventArgs& other);
    ~CMgmtCompletedEventArgs() override;
};
