#include "utility/management/util_MgmtCompletedEventHandler.h"

CMgmtCompletedEventHandler::CMgmtCompletedEventHandler() = default;
CMgmtCompletedEventHandler::CMgmtCompletedEventHandler(const CMgmtCompletedEventHandler& other) = default;
CMgmtCompletedEventHandler& CMgmtCompletedEventHandler::operator=(const CMgmtCompletedEventHandler& other) =
    default;
