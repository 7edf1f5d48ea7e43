#include "utility/management/util_MgmtObjectQuery.h"

CMgmtObjectQuery::CMgmtObjectQuery() = default;
CMgmtObjectQuery::CMgmtObjectQuery(const CMgmtObjectQuery& other) = default;
CMgmtObjectQuery& CMgmtObjectQuery::operator=(const CMgmtObjectQuery& other) = default;
CMgmtObjectQuery::~CMgmtObjectQuery() = default;
