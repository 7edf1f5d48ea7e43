// Which namespace the library's objects use when they are given no scope of their own.
//
//   MgmtInitialize(L"\\\\.\\root\\Other");
//   ...                  // objects made here use the namespace \\.\root\Other
//   MgmtUninitialize();  // and those made from here on the built-in one
//
// Without MgmtInitialize it is the built-in namespace, \\.\root\Vantrel\Halvenor. Both functions install a
// fresh scope: objects made before keep the one, and the connection, that they took. Neither connects, and
// neither initialises COM. Any thread may call them at any time. An object made meanwhile on another thread
// gets the old default or the new one.
#pragma once

#include "utility/common/mgmt_export.h"

// `path` is copied and not tested: an unreachable namespace shows when an object connects. Returns true.
// Throws CManagementException MGMT_ERR_SHARED_DATA, with the default unchanged, when memory is exhausted.
MGMT_API bool MgmtInitialize(const wchar_t* path);

// Throws as MgmtInitialize does.
MGMT_API void MgmtUninitialize();
