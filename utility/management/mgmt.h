// All of the library's public headers.
//
//   #include "utility/management/mgmt.h"
//
//   CoInitializeEx(nullptr, COINIT_MULTITHREADED);       // on every thread that uses the library
//   CMgmtObject policy(L"RetentionPolicy", L"default", nullptr);
//   if (policy.Get()) ...
//
// An object and its copies are for one thread at a time; scopes, and the default scope, may be used by many.
#pragma once

#include "utility/management/util_ManagementException.h"
#include "utility/management/util_MgmtBSTRArrayAccessHelper.h"
#include "utility/management/util_MgmtClass.h"
#include "utility/management/util_MgmtDateTime.h"
#include "utility/management/util_MgmtInitialize.h"
#include "utility/management/util_MgmtLocalPropertyData.h"
#include "utility/management/util_MgmtLocalPropertyDataCollection.h"
#include "utility/management/util_MgmtObject.h"
#include "utility/management/util_MgmtObjectArrayAccessHelper.h"
#include "utility/management/util_MgmtObjectBase.h"
#include "utility/management/util_MgmtObjectCollection.h"
#include "utility/management/util_MgmtPropertyData.h"
#include "utility/management/util_MgmtPropertyDataCollection.h"
#include "utility/management/util_MgmtScope.h"
#include "utility/management/util_MgmtSINT32ArrayAccessHelper.h"
