// CMgmtOperationObserver is the base for code of the product that follows an operation.
//
//   class CProgress : public CMgmtOperationObserver { ... };
//   CProgress observer;
//
// The library tells it nothing and it has no state, so any thread may do anything with it. CMgmtEventWatcher
// tells handlers of changes to instances.
#pragma once

#include "utility/common/mgmt_export.h"

class MGMT_API CMgmtOperationObserver {
 public:
    CMgmtOperationObserver();
    CMgmtOperationObserver(const CMgmtOperationObserver& other);
    CMgmtOperationObserver& operator=(const CMgmtOperationObserver& other);
    virtual ~CMgmtOperationObserver();
};
