#include "utility/management/util_MgmtOperationObserver.h"

CMgmtOperationObserver::CMgmtOperationObserver() = default;
CMgmtOperationObserver::CMgmtOperationObserver(const CMgmtOperationObserver& other) = default;
CMgmtOperationObserver& CMgmtOperationObserver::operator=(const CMgmtOperationObserver& other) = default;
CMgmtOperationObserver::~CMgmtOperationObserver() = default;
