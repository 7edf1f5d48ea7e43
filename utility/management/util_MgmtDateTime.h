// Readers of the service's date-and-time text (CIM DATETIME), 25 characters:
//
//   yyyymmddHHMMSS.mmmmmm+UUU
//
// that is year, month, day, hour, minute, second, microseconds, and the offset from UTC in minutes.
//
//   SYSTEMTIME time;
//   if (MgmtConvertWMITimeToSystemTime(L"20240131235958.000000+000", &time)) ...
//
// Neither function reads the fraction or the offset: the result is the clock time as written. Stateless; any
// thread may call them. They throw nothing.
#pragma once

#include <windows.h>

#include "utility/common/mgmt_export.h"

// Fills `systemTime` from the first 14 characters; day of the week and milliseconds become 0. A field is a
// number as _wtoi reads it (white space and a sign allowed, no digits give 0), reduced to 16 bits and not
// tested against its range: month 13 comes back as 13. False, with `systemTime` untouched, when a pointer is
// null or the text has fewer than 16 characters.
MGMT_API bool MgmtConvertWMITimeToSystemTime(const wchar_t* wmiTime, SYSTEMTIME* systemTime);

// The same reading as a time in UTC. False, with `fileTime` untouched, when a pointer is null, the text has
// fewer than 16 characters, or a field is out of range.
MGMT_API bool MgmtConvertWMITimeToFileTime(const wchar_t* wmiTime, FILETIME* fileTime);
