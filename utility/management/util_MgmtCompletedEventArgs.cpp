#include "utility/management/util_MgmtCompletedEventArgs.h"

CMgmtCompletedEventArgs::CMgmtCompletedEventArgs() = default;
CMgmtCompletedEventArgs::CMgmtCompletedEventArgs(const CMgmtCompletedEventArgs& other) = default;
CMgmtCompletedEventArgs& CMgmtCompletedEventArgs::operator=(const CMgmtCompletedEventArgs& other) = default;
CMgmtCompletedEventArgs::~CMgmtCompletedEventArgs() = default;
