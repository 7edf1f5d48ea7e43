// CMgmtEventArrivedArgs carries one event to the handlers of a CMgmtEventWatcher.
//
//   int CReloader::OnEventArrived(CMgmtEventArrivedArgs& args) {
//       const _variant_t* days = args.GetNewEvent()->GetPropertyValue(L"KeepDays");
//       ...
//   }
//
// It lives until the last handler has returned, and so does what GetNewEvent returns. A handler that needs an
// event for longer copies the object; the copy shares its values with the object that later handlers read, so
// another thread may use it only after the handlers of this event are through.
//
// Nothing is locked: one thread at a time.
#pragma once

#include <memory>

#include <comutil.h>

#include "utility/common/mgmt_export.h"
#include "utility/management/util_MgmtObjectBase.h"

class MGMT_API CMgmtEventArrivedArgs {
 public:
    // `targetInstance` is the event's instance, a VT_UNKNOWN, or empty where the event has none. It is
    // copied; throws _com_error when that fails.
    CMgmtEventArrivedArgs(const _variant_t& targetInstance);

    // Copies the target instance alone: a copy makes an event object of its own when it is asked for one.
    // Assignment destroys the event object that this object had, unless it is assigned to itself. Both throw
    // _com_error when the target instance cannot be copied; nothing has changed then.
    CMgmtEventArrivedArgs(const CMgmtEventArrivedArgs& other);
    CMgmtEventArrivedArgs& operator=(const CMgmtEventArrivedArgs& other);
    virtual ~CMgmtEventArrivedArgs();

    // The instance that the event is about, with all its properties: as it was created or modified, or as it
    // was before it was deleted. Without properties where the event has no instance. Never null; made by the
    // first call and the same one ever after; not to be deleted. Throws what the constructor of
    // CMgmtObjectBase throws; a later call tries again.
    CMgmtObjectBase* GetNewEvent();

 private:
    MGMT_LOCAL void SetTargetInstance(const _variant_t& value);

    _variant_t m_TargetInstance;
    std::unique_ptr<CMgmtObjectBase> m_NewEvent;
};
