#include <chrono>
#include <cmath>

#include <oleauto.h>

namespace {

using std::chrono::days;
using std::chrono::sys_days;
using std::chrono::year_month_day;

constexpr int SECONDS_A_DAY = 86'400;

constexpr sys_days DATE_EPOCH{std::chrono::year{1899} / 12 / 30};
constexpr sys_days FIRST_DAY{std::chrono::year{100} / 1 / 1};
constexpr sys_days LAST_DAY{std::chrono::year{9999} / 12 / 31};

bool IsDateOrRollsOver(const SYSTEMTIME& time) noexcept {
    return time.wYear <= 9999 && time.wMonth >= 1 && time.wMonth <= 12 && time.wDay <= 31;
}

bool IsTimeOfDay(const SYSTEMTIME& time) noexcept {
    return time.wHour <= 23 && time.wMinute <= 59 && time.wSecond <= 59;
}

// Day 0 is the last day of the month before; a day past the month's end is one of the next month.
sys_days DayOf(const SYSTEMTIME& time) noexcept {
    const sys_days first_of_month{std::chrono::year{time.wYear} / time.wMonth / 1};
    return first_of_month + days{time.wDay - 1};
}

bool IsInRange(sys_days day) noexcept {
    return day >= FIRST_DAY && day <= LAST_DAY;
}

void SetDate(SYSTEMTIME& time, sys_days day) noexcept {
    const year_month_day date{day};
    time.wYear = static_cast<WORD>(static_cast<int>(date.year()));
    time.wMonth = static_cast<WORD>(static_cast<unsigned>(date.month()));
    time.wDayOfWeek = static_cast<WORD>(std::chrono::weekday{day}.c_encoding());
    time.wDay = static_cast<WORD>(static_cast<unsigned>(date.day()));
}

void SetTimeOfDay(SYSTEMTIME& time, int second_of_day) noexcept {
    time.wHour = static_cast<WORD>(second_of_day / 3600);
    time.wMinute = static_cast<WORD>(second_of_day / 60 % 60);
    time.wSecond = static_cast<WORD>(second_of_day % 60);
    time.wMilliseconds = 0;
}

}  // namespace

INT SystemTimeToVariantTime(SYSTEMTIME* time, DOUBLE* date) noexcept {
    if (time == nullptr || date == nullptr) return 0;
    if (!IsDateOrRollsOver(*time) || !IsTimeOfDay(*time)) return 0;
    const sys_days day = DayOf(*time);
    if (!IsInRange(day)) return 0;

    const double number = static_cast<double>((day - DATE_EPOCH).count());
    const double fraction =
        static_cast<double>((time->wHour * 60 + time->wMinute) * 60 + time->wSecond) / SECONDS_A_DAY;
    // The fraction counts forwards from the day's start even where the day's number is negative.
    *date = number < 0 ? number - fraction : number + fraction;
    return 1;
}

INT VariantTimeToSystemTime(DOUBLE date, SYSTEMTIME* time) noexcept {
    if (time == nullptr) return 0;
    const double number = std::trunc(date);
    // Written so that a NaN fails; it also bounds the number before it becomes an integer.
    if (!(std::fabs(number) < 10'000'000)) return 0;
    sys_days day = DATE_EPOCH + days{static_cast<int>(number)};
    if (!IsInRange(day)) return 0;

    auto second_of_day = static_cast<int>(std::lround(std::fabs(date - number) * SECONDS_A_DAY));
    if (second_of_day == SECONDS_A_DAY) {
        second_of_day = 0;
        day += days{1};
        if (!IsInRange(day)) return 0;
    }
    SetDate(*time, day);
    SetTimeOfDay(*time, second_of_day);
    return 1;
}
