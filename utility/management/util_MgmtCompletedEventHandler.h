// CMgmtCompletedEventHandler is the interface for code that is to be called when a request has ended.
//
//   class CReporter final : public CMgmtCompletedEventHandler {
//       int OnCompleted(CMgmtCompletedEventArgs&) override { return Report(); }
//   };
//
// The library itself calls none. An implementation says by itself which threads may call it.
#pragma once

#include "utility/common/mgmt_export.h"
#include "utility/management/util_MgmtCompletedEventArgs.h"

class MGMT_API CMgmtCompletedEventHandler {
 public:
    CMgmtCompletedEventHandler();
    CMgmtCompletedEventHandler(const CMgmtCompletedEventHandler& other);
    CMgmtCompletedEventHandler& operator=(const CMgmtCompletedEventHandler& other);

    // `args` is the caller's and lent for the call. What the result means is for who calls to say.
    virtual int OnCompleted(CMgmtCompletedEventArgs& args) = 0;

 protected:
    // Nobody deletes a handler through its interface.
    ~CMgmtCompletedEventHandler() = default;
};
