#include "utility/management/util_MgmtEventQuery.h"

CMgmtEventQuery::CMgmtEventQuery() = default;
CMgmtEventQuery::CMgmtEventQuery(const CMgmtEventQuery& other) = default;
CMgmtEventQuery& CMgmtEventQuery::operator=(const CMgmtEventQuery& other) = default;
CMgmtEventQuery::~CMgmtEventQuery() = default;
