// All of the library's public headers.
//
//   #include "utility/management/mgmt.h"
//
//   CoInitializeEx(nullptr, COINIT_MULTITHREADED);       // on every thread that uses the library
//   CMgmtObject policy(L"RetentionPolicy", L"default", nullptr);
//   if (policy.Get()) ...
//
// An object and its copies are for one thread at a time; scopes, and the default scope, may be used by many.
// The handlers of a CMgmtEventWatcher are called on threads of the management service.
#pragma once

#include "utility/management/util_ManagementException.h"
#include "utility/management/util_MgmtBSTRArrayAccessHelper.h"
#include "utility/management/util_MgmtClass.h"
#include "utility/management/util_MgmtCompletedEventArgs.h"
#include "utility/management/util_MgmtCompletedEventHandler.h"
#include "utility/management/util_MgmtDateTime.h"
#include "utility/management/util_MgmtEventArgs.h"
#include "utility/management/util_MgmtEventArrivedArgs.h"
#include "utility/management/util_MgmtEventArrivedHandler.h"
#include "utility/management/util_MgmtEventQuery.h"
#include "utility/management/util_MgmtEventWatcher.h"
#include "utility/management/util_MgmtInitialize.h"
#include "utility/management/util_MgmtLocalPropertyData.h"
#include "utility/management/util_MgmtLocalPropertyDataCollection.h"
#include "utility/management/util_MgmtObject.h"
#include "utility/management/util_MgmtObjectArrayAccessHelper.h"
#include "utility/management/util_MgmtObjectBase.h"
#include "utility/management/util_MgmtObjectCollection.h"
#include "utility/management/util_MgmtObjectQuery.h"
#include "utility/management/util_MgmtObjectSearcher.h"
#include "utility/management/util_MgmtOperationObserver.h"
#include "utility/management/util_MgmtPropertyData.h"
#include "utility/management/util_MgmtPropertyDataCollection.h"
#include "utility/management/util_MgmtQuery.h"
#include "utility/management/util_MgmtScope.h"
#include "utility/management/util_MgmtSINT32ArrayAccessHelper.h"
