#include "utility/management/util_MgmtEventArrivedHandler.h"

CMgmtEventArrivedHandler::CMgmtEventArrivedHandler() = default;
CMgmtEventArrivedHandler::CMgmtEventArrivedHandler(const CMgmtEventArrivedHandler& other) = default;
CMgmtEventArrivedHandler& CMgmtEventArrivedHandler::operator=(const CMgmtEventArrivedHandler& other) =
    default;
