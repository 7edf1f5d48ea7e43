#include "utility/management/util_MgmtEventArgs.h"

CMgmtEventArgs::CMgmtEventArgs() = default;
CMgmtEventArgs::CMgmtEventArgs(const CMgmtEventArgs& other) = default;
CMgmtEventArgs& CMgmtEventArgs::operator=(const CMgmtEventArgs& other) = default;
CMgmtEventArgs::~CMgmtEventArgs() = default;
