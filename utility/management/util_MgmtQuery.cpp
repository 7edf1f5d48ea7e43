#include "utility/management/util_MgmtQuery.h"

CMgmtQuery::CMgmtQuery() = default;
CMgmtQuery::CMgmtQuery(const CMgmtQuery& other) = default;
CMgmtQuery& CMgmtQuery::operator=(const CMgmtQuery& other) = default;
CMgmtQuery::~CMgmtQuery() = default;
