// Handles of the system's objects.
//
//   const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
//   ...
//   CloseHandle(event);
//
// Any thread. A handle is a number that is looked up, never an address that is followed: a call with a value
// that is no open handle, closed twice for instance, fails and does nothing. Numbers are not used again.
#pragma once

#include <platform_api.h>
#include <windef.h>

// FALSE, with ERROR_INVALID_HANDLE as the last error, for what is no open handle. A wait on the handle that
// another thread has begun goes on, and the object lives until it ends.
MGMT_PLATFORM_API BOOL WINAPI CloseHandle(HANDLE hObject) noexcept;
