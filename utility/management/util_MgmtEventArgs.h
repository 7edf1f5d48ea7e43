// CMgmtEventArgs is the base of the arguments of events that carry no data of their own.
//
//   class CSavedEventArgs : public CMgmtEventArgs { ... };
//   CSavedEventArgs args;
//   handler.OnSaved(args);
//
// It has no state, so any thread may do anything with it. The arguments of an arrived event,
// CMgmtEventArrivedArgs, are a class by themselves.
#pragma once

#include "utility/common/mgmt_export.h"

class MGMT_API CMgmtEventArgs {
 public:
    CMgmtEventArgs();
    CMgmtEventArgs(const CMgmtEventArgs& other);
    CMgmtEventArgs& operator=(const CMgmtEventArgs& other);
    virtual ~CMgmtEventArgs();
};
