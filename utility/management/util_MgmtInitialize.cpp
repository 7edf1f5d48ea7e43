#include "utility/management/util_MgmtInitialize.h"

#include "utility/management/util_MgmtScope.h"

bool MgmtInitialize(const wchar_t* path) {
    CMgmtScope scope(path);
    CMgmtScope::SetDefaultMgmtScope(scope);
    return true;
}

void MgmtUninitialize() {
    CMgmtScope scope;
    CMgmtScope::SetDefaultMgmtScope(scope);
}
