// CMgmtEventArrivedHandler is the interface for code that CMgmtEventWatcher calls for every event.
//
//   class CReloader final : public CMgmtEventArrivedHandler {
//       int OnEventArrived(CMgmtEventArrivedArgs& args) override { Reload(*args.GetNewEvent()); return 0; }
//       void Release() override { delete this; }
//   };
//
// OnEventArrived is called on threads of the management service, on several at once, also while it is still
// running; Release on the thread that destroys the watcher.
#pragma once

#include "utility/common/mgmt_export.h"
#include "utility/management/util_MgmtEventArrivedArgs.h"

class MGMT_API CMgmtEventArrivedHandler {
 public:
    CMgmtEventArrivedHandler();
    CMgmtEventArrivedHandler(const CMgmtEventArrivedHandler& other);
    CMgmtEventArrivedHandler& operator=(const CMgmtEventArrivedHandler& other);

    // One event has arrived. `args` is lent for the call and is the same object for all handlers of the
    // watcher, one after the other. The result is ignored. An exception keeps the event from the handlers
    // registered later and is logged (see CMgmtEventWatcher); the next event comes all the same.
    virtual int OnEventArrived(CMgmtEventArrivedArgs& args) = 0;

    // A watcher that the handler was registered with is being destroyed and forgets the handler; called once
    // by each such watcher. The handler may delete itself if this was the last one. Must not throw.
    virtual void Release() = 0;

 protected:
    // Nobody deletes a handler through its interface.
    ~CMgmtEventArrivedHandler() = default;
};
