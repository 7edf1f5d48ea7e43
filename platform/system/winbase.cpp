#include <dlfcn.h>
#include <sched.h>

#include <chrono>
#include <cstdint>

#include <winbase.h>

namespace {

using std::chrono::days;
using std::chrono::sys_days;
using std::chrono::year_month_day;

// 100-nanosecond intervals.
constexpr std::uint64_t TICKS_A_MILLISECOND = 10'000;
constexpr std::uint64_t MILLISECONDS_A_DAY = 86'400'000;

constexpr sys_days FILE_TIME_EPOCH{std::chrono::year{1601} / 1 / 1};
constexpr WORD FIRST_FILE_TIME_YEAR = 1601;
constexpr WORD LAST_FILE_TIME_YEAR = 30827;

thread_local DWORD last_error = ERROR_SUCCESS;

BOOL FailWith(DWORD error) noexcept {
    last_error = error;
    return FALSE;
}

year_month_day DateOf(const SYSTEMTIME& time) noexcept {
    return {std::chrono::year{time.wYear}, std::chrono::month{time.wMonth}, std::chrono::day{time.wDay}};
}

bool IsFileTimeDate(const SYSTEMTIME& time) noexcept {
    // The calendar's own types keep eight bits of a month or a day, so the bounds come first.
    return time.wYear >= FIRST_FILE_TIME_YEAR && time.wYear <= LAST_FILE_TIME_YEAR && time.wMonth <= 12 &&
           time.wDay <= 31 && DateOf(time).ok();
}

bool IsTimeOfDay(const SYSTEMTIME& time) noexcept {
    return time.wHour <= 23 && time.wMinute <= 59 && time.wSecond <= 59 && time.wMilliseconds <= 999;
}

std::uint64_t MillisecondOfDay(const SYSTEMTIME& time) noexcept {
    const std::uint64_t second = (time.wHour * 60U + time.wMinute) * 60U + time.wSecond;
    return second * 1000 + time.wMilliseconds;
}

void MakeMutex(LPCRITICAL_SECTION section) noexcept {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&section->mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

[[maybe_unused]] const int counts_forks =
    pthread_atfork(nullptr, nullptr, [] { mgmt_platform::fork_count += 2; });

}  // namespace

unsigned mgmt_platform::fork_count = 0;

// One thread makes the mutex, the others wait; one that a further fork left at it is not waited for.
void mgmt_platform::FreeAfterFork(LPCRITICAL_SECTION section) noexcept {
    unsigned seen = __atomic_load_n(&section->forks, __ATOMIC_ACQUIRE);
    while (seen != fork_count) {
        if (seen == fork_count + 1) {
            sched_yield();
            seen = __atomic_load_n(&section->forks, __ATOMIC_ACQUIRE);
        } else if (__atomic_compare_exchange_n(&section->forks, &seen, fork_count + 1, false,
                                               __ATOMIC_ACQUIRE, __ATOMIC_ACQUIRE)) {
            MakeMutex(section);
            seen = fork_count;
            __atomic_store_n(&section->forks, fork_count, __ATOMIC_RELEASE);
        }
    }
}

void WINAPI InitializeCriticalSection(LPCRITICAL_SECTION lpCriticalSection) noexcept {
    MakeMutex(lpCriticalSection);
    lpCriticalSection->forks = mgmt_platform::fork_count;
}

BOOL WINAPI SystemTimeToFileTime(const SYSTEMTIME* lpSystemTime, LPFILETIME lpFileTime) noexcept {
    if (lpSystemTime == nullptr || lpFileTime == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
    if (!IsFileTimeDate(*lpSystemTime) || !IsTimeOfDay(*lpSystemTime))
        return FailWith(ERROR_INVALID_PARAMETER);

    const auto day = static_cast<std::uint64_t>((sys_days{DateOf(*lpSystemTime)} - FILE_TIME_EPOCH).count());
    const std::uint64_t ticks =
        (day * MILLISECONDS_A_DAY + MillisecondOfDay(*lpSystemTime)) * TICKS_A_MILLISECOND;
    lpFileTime->dwLowDateTime = static_cast<DWORD>(ticks);
    lpFileTime->dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    return TRUE;
}

BOOL WINAPI FileTimeToSystemTime(const FILETIME* lpFileTime, LPSYSTEMTIME lpSystemTime) noexcept {
    if (lpFileTime == nullptr || lpSystemTime == nullptr) return FailWith(ERROR_INVALID_PARAMETER);
    const std::uint64_t ticks =
        static_cast<std::uint64_t>(lpFileTime->dwHighDateTime) << 32 | lpFileTime->dwLowDateTime;
    if (ticks > static_cast<std::uint64_t>(INT64_MAX)) return FailWith(ERROR_INVALID_PARAMETER);

    const std::uint64_t milliseconds = ticks / TICKS_A_MILLISECOND;
    const std::uint64_t of_day = milliseconds % MILLISECONDS_A_DAY;
    const sys_days day = FILE_TIME_EPOCH + days{static_cast<int>(milliseconds / MILLISECONDS_A_DAY)};
    const year_month_day date{day};
    lpSystemTime->wYear = static_cast<WORD>(static_cast<int>(date.year()));
    lpSystemTime->wMonth = static_cast<WORD>(static_cast<unsigned>(date.month()));
    lpSystemTime->wDayOfWeek = static_cast<WORD>(std::chrono::weekday{day}.c_encoding());
    lpSystemTime->wDay = static_cast<WORD>(static_cast<unsigned>(date.day()));
    lpSystemTime->wHour = static_cast<WORD>(of_day / 3'600'000);
    lpSystemTime->wMinute = static_cast<WORD>(of_day / 60'000 % 60);
    lpSystemTime->wSecond = static_cast<WORD>(of_day / 1000 % 60);
    lpSystemTime->wMilliseconds = static_cast<WORD>(of_day % 1000);
    return TRUE;
}

DWORD WINAPI GetLastError() noexcept {
    return last_error;
}

void WINAPI SetLastError(DWORD dwErrCode) noexcept {
    last_error = dwErrCode;
}

BOOL WINAPI DisableThreadLibraryCalls(HMODULE hLibModule) noexcept {
    Dl_info image = {};
    const bool is_image_base = dladdr(hLibModule, &image) != 0 && image.dli_fbase == hLibModule;
    return is_image_base ? TRUE : FailWith(ERROR_INVALID_HANDLE);
}
