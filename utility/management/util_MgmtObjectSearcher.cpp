#include "utility/management/util_MgmtObjectSearcher.h"

CMgmtObjectSearcher::CMgmtObjectSearcher() = default;
CMgmtObjectSearcher::CMgmtObjectSearcher(const CMgmtObjectSearcher& other) = default;
CMgmtObjectSearcher& CMgmtObjectSearcher::operator=(const CMgmtObjectSearcher& other) = default;
CMgmtObjectSearcher::~CMgmtObjectSearcher() = default;
