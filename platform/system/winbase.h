// The kernel's names that the product uses: critical sections, atomic counts, calendar time, the calling
// thread's last error, and what a library's entry point is told.
//
//   CRITICAL_SECTION section;
//   InitializeCriticalSection(&section);
//   EnterCriticalSection(&section); ... LeaveCriticalSection(&section);
//   DeleteCriticalSection(&section);
//
// Every function here may be called on any thread.
#pragma once

#include <pthread.h>

#include <platform_api.h>
#include <windef.h>
#include <winerror.h>

// A recursive lock: its owner may enter again and leaves as often. It must not be copied or moved, and is
// deleted only when no thread owns it or waits for it. Nothing is allocated and nothing can fail. A forked
// child finds it free, whoever owned it: the threads that did are not there.
struct CRITICAL_SECTION {
    pthread_mutex_t mutex;
    unsigned forks;  // the process's fork_count when the mutex was made; one more while it is being made anew
};
using LPCRITICAL_SECTION = CRITICAL_SECTION*;

namespace mgmt_platform {
// Grows by 2 with each fork between the first process and this one; never changes within a process.
MGMT_PLATFORM_API extern unsigned fork_count;
MGMT_PLATFORM_API void FreeAfterFork(LPCRITICAL_SECTION section) noexcept;
}  // namespace mgmt_platform

// The section must not be initialised already.
MGMT_PLATFORM_API void WINAPI InitializeCriticalSection(LPCRITICAL_SECTION lpCriticalSection) noexcept;
inline void WINAPI DeleteCriticalSection(LPCRITICAL_SECTION lpCriticalSection) noexcept {
    pthread_mutex_destroy(&lpCriticalSection->mutex);
}
// Blocks until the calling thread owns the section.
inline void WINAPI EnterCriticalSection(LPCRITICAL_SECTION lpCriticalSection) noexcept {
    if (__atomic_load_n(&lpCriticalSection->forks, __ATOMIC_ACQUIRE) != mgmt_platform::fork_count)
        mgmt_platform::FreeAfterFork(lpCriticalSection);
    pthread_mutex_lock(&lpCriticalSection->mutex);
}
// Called by the owner alone.
inline void WINAPI LeaveCriticalSection(LPCRITICAL_SECTION lpCriticalSection) noexcept {
    pthread_mutex_unlock(&lpCriticalSection->mutex);
}

// Both return the new value and order memory fully.
inline LONG WINAPI InterlockedIncrement(volatile LONG* Addend) noexcept {
    return __atomic_add_fetch(Addend, 1, __ATOMIC_SEQ_CST);
}
inline LONG WINAPI InterlockedDecrement(volatile LONG* Addend) noexcept {
    return __atomic_sub_fetch(Addend, 1, __ATOMIC_SEQ_CST);
}

// A calendar date and a time of day; months and days count from 1, the day of the week from Sunday, 0.
struct SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};
using PSYSTEMTIME = SYSTEMTIME*;
using LPSYSTEMTIME = SYSTEMTIME*;

// Intervals of 100 nanoseconds since 1 January 1601, 00:00, as two halves of one 64-bit number.
struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};
using PFILETIME = FILETIME*;
using LPFILETIME = FILETIME*;

// Takes the years 1601 to 30827; the day of the week is not read. No time zone is applied. FALSE, with
// ERROR_INVALID_PARAMETER as the last error and the output untouched, for a field out of its range.
MGMT_PLATFORM_API BOOL WINAPI SystemTimeToFileTime(const SYSTEMTIME* lpSystemTime,
                                                   LPFILETIME lpFileTime) noexcept;
// Drops what is finer than a millisecond. FALSE, likewise, for a time of 0x8000000000000000 or more.
MGMT_PLATFORM_API BOOL WINAPI FileTimeToSystemTime(const FILETIME* lpFileTime,
                                                   LPSYSTEMTIME lpSystemTime) noexcept;

// The calling thread's last error. A call that succeeds leaves it as it was unless it says otherwise.
MGMT_PLATFORM_API DWORD WINAPI GetLastError() noexcept;
MGMT_PLATFORM_API void WINAPI SetLastError(DWORD dwErrCode) noexcept;

// Why a library's entry point is called (see dllentry.h).
#define DLL_PROCESS_DETACH 0
#define DLL_PROCESS_ATTACH 1
#define DLL_THREAD_ATTACH 2
#define DLL_THREAD_DETACH 3

// No library is told of threads here, so there is nothing to turn off. FALSE, with ERROR_INVALID_HANDLE, for
// a handle that is not the base of a loaded image.
MGMT_PLATFORM_API BOOL WINAPI DisableThreadLibraryCalls(HMODULE hLibModule) noexcept;
