// Events: flags that threads wait for, in one process or, by name, in all processes of one user.
//
//   const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, L"Reload");   // the process that waits
//   if (WaitForSingleObject(event, 1000) == WAIT_OBJECT_0) Reload();
//
//   const HANDLE event = OpenEventW(EVENT_MODIFY_STATE, FALSE, L"Reload");   // one that signals
//   if (event != nullptr) SetEvent(event), CloseHandle(event);
//
// Any thread, in any number, on one handle or on several. Every call that fails sets the last error.
//
// A manual event, once set, lets every wait through until it is reset; who waited when it was set is let
// through even if it is reset at once. An automatic one lets exactly one wait through: setting it releases
// one of those that wait, and only when none does the event stays set, until a wait takes it or it is reset.
// Which one is released is not defined.
//
// Names. A name has up to MAX_PATH units and stands for one event on the machine. There are no sessions, so
// "Global\" or "Local\" before it is read over: L"Global\\E", L"Local\\E" and L"E" are one event. Otherwise
// there is no backslash in it. Letters' case counts, that of the prefixes too.
//
// Life. An event is there as long as a process has it open; one that was killed has not. No state outlives
// the last handle, so who creates the event next gets a new one.
//
// Users. An event belongs to the user who created it, and nobody else may open it, the superuser included.
// Where all processes that had an event open were killed, its name stays refused to other users than its
// owner and the superuser until one of these uses it or the system is started anew.
//
// Fork. A child has its parent's handles and shares their events; each closes its own. No handle is passed on
// to a program that is executed.
#pragma once

#include <platform_api.h>
#include <windef.h>

// Security attributes cannot be given: always null.
struct SECURITY_ATTRIBUTES;
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;

inline constexpr DWORD EVENT_MODIFY_STATE = 0x0002;    // SetEvent, ResetEvent
inline constexpr DWORD SYNCHRONIZE = 0x00100000;       // WaitForSingleObject
inline constexpr DWORD EVENT_ALL_ACCESS = 0x001F0003;  // these and what has no use here

inline constexpr DWORD INFINITE = 0xFFFFFFFF;
inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;

// A handle with EVENT_ALL_ACCESS, to be closed by CloseHandle. `lpName` null makes an event without a name.
// Where the named event exists, it is opened as it is, the kind and the state asked for are not looked at,
// and the last error is ERROR_ALREADY_EXISTS; a new event sets it to ERROR_SUCCESS. Null on a failure:
//
//   ERROR_INVALID_PARAMETER       security attributes
//   ERROR_INVALID_NAME            an empty name, or nothing behind the prefix
//   ERROR_FILENAME_EXCED_RANGE    a name of more than MAX_PATH units
//   ERROR_PATH_NOT_FOUND          a backslash in the name, or the system has no shared memory (/dev/shm)
//   ERROR_ACCESS_DENIED           another user's event, or something else lies in its place
//   ERROR_TOO_MANY_OPEN_FILES     every named handle takes one of the process's files
//   ERROR_NOT_ENOUGH_MEMORY       in the process, or the shared memory is full
MGMT_PLATFORM_API HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES lpEventAttributes, BOOL bManualReset,
                                             BOOL bInitialState, LPCWSTR lpName) noexcept;

// A handle with the rights of `dwDesiredAccess`, any of EVENT_ALL_ACCESS. `bInheritHandle` changes nothing.
// Null on a failure: ERROR_FILE_NOT_FOUND where no process has such an event open, ERROR_INVALID_PARAMETER
// for a null name, ERROR_ACCESS_DENIED also for rights that an event does not have; otherwise as above.
MGMT_PLATFORM_API HANDLE WINAPI OpenEventW(DWORD dwDesiredAccess, BOOL bInheritHandle,
                                           LPCWSTR lpName) noexcept;

// FALSE with ERROR_INVALID_HANDLE for what is no open handle, ERROR_ACCESS_DENIED for one without
// EVENT_MODIFY_STATE. What the caller did before SetEvent is seen by who is let through.
MGMT_PLATFORM_API BOOL WINAPI SetEvent(HANDLE hEvent) noexcept;
MGMT_PLATFORM_API BOOL WINAPI ResetEvent(HANDLE hEvent) noexcept;

// WAIT_OBJECT_0 when the event let the caller through, WAIT_TIMEOUT when `dwMilliseconds` passed first (0
// only looks, INFINITE never ends; the time in which the system is suspended is not counted). WAIT_FAILED
// with ERROR_INVALID_HANDLE for what is no open handle, ERROR_ACCESS_DENIED for one without SYNCHRONIZE.
MGMT_PLATFORM_API DWORD WINAPI WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds) noexcept;
