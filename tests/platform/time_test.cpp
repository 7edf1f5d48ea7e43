#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <tuple>
#include <vector>

#include <oleauto.h>
#include <windows.h>

namespace {

SYSTEMTIME Time(int year, int month, int day, int hour = 0, int minute = 0, int second = 0,
                int milliseconds = 0) {
    SYSTEMTIME time = {};
    time.wYear = static_cast<WORD>(year);
    time.wMonth = static_cast<WORD>(month);
    time.wDay = static_cast<WORD>(day);
    time.wHour = static_cast<WORD>(hour);
    time.wMinute = static_cast<WORD>(minute);
    time.wSecond = static_cast<WORD>(second);
    time.wMilliseconds = static_cast<WORD>(milliseconds);
    return time;
}

auto Fields(const SYSTEMTIME& time) {
    return std::tuple(time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond,
                      time.wMilliseconds);
}

std::uint64_t Ticks(const FILETIME& time) {
    return static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

FILETIME FileTime(std::uint64_t ticks) {
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

TEST(FileTimeTest, CountsFrom1601AndReadsBack) {
    struct Case {
        SYSTEMTIME time;
        std::uint64_t ticks;
        int day_of_week;
    };
    const Case cases[] = {
        {Time(1601, 1, 1), 0, 1},
        {Time(1601, 1, 1, 0, 0, 0, 1), 10'000, 1},
        {Time(1970, 1, 1), 116'444'736'000'000'000, 4},
        {Time(2000, 2, 29, 23, 59, 59, 999), 125'963'423'999'990'000, 2},
        {Time(2024, 1, 31, 23, 59, 58, 500), 133'512'191'985'000'000, 3},
    };
    for (const Case& each : cases) {
        FILETIME file_time = {};
        ASSERT_TRUE(SystemTimeToFileTime(&each.time, &file_time));
        EXPECT_EQ(Ticks(file_time), each.ticks) << each.time.wYear;
        SYSTEMTIME back = {};
        ASSERT_TRUE(FileTimeToSystemTime(&file_time, &back));
        EXPECT_EQ(Fields(back), Fields(each.time));
        EXPECT_EQ(back.wDayOfWeek, each.day_of_week);
    }
}

TEST(FileTimeTest, EveryDayOfFourCenturiesReadsBack) {
    constexpr std::uint64_t TICKS_A_DAY = 864'000'000'000;
    for (std::uint64_t day = 0; day < 146'097; ++day) {
        const FILETIME before = FileTime(day * TICKS_A_DAY + TICKS_A_DAY - 10'000);
        SYSTEMTIME time = {};
        FILETIME after = {};
        ASSERT_TRUE(FileTimeToSystemTime(&before, &time));
        ASSERT_EQ(time.wDayOfWeek, (day + 1) % 7);
        ASSERT_TRUE(SystemTimeToFileTime(&time, &after));
        ASSERT_EQ(Ticks(after), Ticks(before));
    }
}

TEST(FileTimeTest, RefusesFieldsOutOfRange) {
    const SYSTEMTIME refused[] = {
        Time(1600, 12, 31),         Time(30828, 1, 1),
        Time(2024, 0, 1),           Time(2024, 13, 1),
        Time(2024, 1, 0),           Time(2023, 2, 29),
        Time(1900, 2, 29),          Time(2024, 4, 31),
        Time(2024, 257, 1),         Time(2024, 1, 257),
        Time(2024, 1, 1, 24),       Time(2024, 1, 1, 0, 60),
        Time(2024, 1, 1, 0, 0, 60), Time(2024, 1, 1, 0, 0, 0, 1000),
    };
    for (const SYSTEMTIME& time : refused) {
        FILETIME file_time = FileTime(42);
        SetLastError(ERROR_SUCCESS);
        EXPECT_FALSE(SystemTimeToFileTime(&time, &file_time)) << time.wYear << '-' << time.wMonth;
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
        EXPECT_EQ(Ticks(file_time), 42U);
    }
    FILETIME file_time = {};
    SYSTEMTIME time = Time(2024, 1, 1);
    EXPECT_FALSE(SystemTimeToFileTime(nullptr, &file_time));
    EXPECT_FALSE(SystemTimeToFileTime(&time, nullptr));
    EXPECT_FALSE(FileTimeToSystemTime(nullptr, &time));
    EXPECT_FALSE(FileTimeToSystemTime(&file_time, nullptr));
}

TEST(FileTimeTest, EndsWhereTheSignBitBegins) {
    const SYSTEMTIME last = Time(30827, 12, 31, 23, 59, 59, 999);
    FILETIME file_time = {};
    EXPECT_TRUE(SystemTimeToFileTime(&last, &file_time));

    SYSTEMTIME time = {};
    file_time = FileTime(0x7FFF'FFFF'FFFF'FFFF);
    ASSERT_TRUE(FileTimeToSystemTime(&file_time, &time));
    EXPECT_EQ(Fields(time), Fields(Time(30828, 9, 14, 2, 48, 5, 477)));

    file_time = FileTime(0x8000'0000'0000'0000);
    time = Time(2024, 1, 31);
    EXPECT_FALSE(FileTimeToSystemTime(&file_time, &time));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(Fields(time), Fields(Time(2024, 1, 31)));
}

TEST(VariantTimeTest, CountsDaysFrom30December1899) {
    struct Case {
        SYSTEMTIME time;
        double date;
    };
    const Case cases[] = {
        {Time(1900, 1, 1), 2.0},          {Time(1899, 12, 30), 0.0},       {Time(1899, 12, 30, 18), 0.75},
        {Time(1899, 12, 29, 6), -1.25},   {Time(1899, 12, 29), -1.0},      {Time(100, 1, 1), -657434.0},
        {Time(100, 1, 1, 12), -657434.5}, {Time(9999, 12, 31), 2958465.0}, {Time(2000, 2, 29), 36585.0},
        {Time(2024, 1, 31, 12), 45322.5},
    };
    for (Case each : cases) {
        double date = 0;
        ASSERT_EQ(SystemTimeToVariantTime(&each.time, &date), 1) << each.date;
        EXPECT_EQ(date, each.date);
        SYSTEMTIME back = {};
        ASSERT_EQ(VariantTimeToSystemTime(each.date, &back), 1) << each.date;
        EXPECT_EQ(Fields(back), Fields(each.time)) << each.date;
    }
}

TEST(VariantTimeTest, EverySecondReadsBackAtBothEnds) {
    for (SYSTEMTIME time : {Time(100, 1, 1), Time(1899, 12, 29), Time(1899, 12, 30), Time(9999, 12, 31)}) {
        for (int second = 0; second < 86'400; ++second) {
            time.wHour = static_cast<WORD>(second / 3600);
            time.wMinute = static_cast<WORD>(second / 60 % 60);
            time.wSecond = static_cast<WORD>(second % 60);
            double date = 0;
            SYSTEMTIME back = {};
            ASSERT_EQ(SystemTimeToVariantTime(&time, &date), 1);
            ASSERT_EQ(VariantTimeToSystemTime(date, &back), 1);
            ASSERT_EQ(Fields(back), Fields(time)) << second;
        }
    }
}

TEST(VariantTimeTest, DropsMillisecondsAndRoundsToTheSecond) {
    SYSTEMTIME time = Time(2024, 1, 31, 23, 59, 58, 999);
    double date = 0;
    ASSERT_EQ(SystemTimeToVariantTime(&time, &date), 1);
    ASSERT_EQ(VariantTimeToSystemTime(date, &time), 1);
    EXPECT_EQ(Fields(time), Fields(Time(2024, 1, 31, 23, 59, 58)));
    EXPECT_EQ(time.wDayOfWeek, 3);

    // The unscaled microseconds of a DATETIME text come in the same member.
    time.wMilliseconds = 65'535;
    EXPECT_EQ(SystemTimeToVariantTime(&time, &date), 1);

    constexpr double SECOND = 1.0 / 86'400;
    ASSERT_EQ(VariantTimeToSystemTime(2.0 + 10.4 * SECOND, &time), 1);
    EXPECT_EQ(time.wSecond, 10);
    ASSERT_EQ(VariantTimeToSystemTime(2.0 + 10.6 * SECOND, &time), 1);
    EXPECT_EQ(time.wSecond, 11);
    ASSERT_EQ(VariantTimeToSystemTime(2.0 + 59.7 * SECOND, &time), 1);
    EXPECT_EQ(Fields(time), Fields(Time(1900, 1, 1, 0, 1, 0)));
    // Rounding up over midnight, forwards in time on both sides of day 0.
    ASSERT_EQ(VariantTimeToSystemTime(3.0 - 0.3 * SECOND, &time), 1);
    EXPECT_EQ(Fields(time), Fields(Time(1900, 1, 2)));
    ASSERT_EQ(VariantTimeToSystemTime(-2.0 + 0.3 * SECOND, &time), 1);
    EXPECT_EQ(Fields(time), Fields(Time(1899, 12, 30)));
    ASSERT_EQ(VariantTimeToSystemTime(-0.75, &time), 1);
    EXPECT_EQ(Fields(time), Fields(Time(1899, 12, 30, 18)));
}

TEST(VariantTimeTest, RollsDaysOverWithinTheMonthsBounds) {
    struct Case {
        SYSTEMTIME given;
        SYSTEMTIME meant;
    };
    const Case cases[] = {
        {Time(2024, 3, 0), Time(2024, 2, 29)},  {Time(2023, 3, 0), Time(2023, 2, 28)},
        {Time(2024, 1, 0), Time(2023, 12, 31)}, {Time(2023, 2, 31), Time(2023, 3, 3)},
        {Time(2024, 2, 30), Time(2024, 3, 1)},  {Time(2024, 4, 31), Time(2024, 5, 1)},
    };
    for (Case each : cases) {
        double date = 0;
        SYSTEMTIME time = {};
        ASSERT_EQ(SystemTimeToVariantTime(&each.given, &date), 1);
        ASSERT_EQ(VariantTimeToSystemTime(date, &time), 1);
        EXPECT_EQ(Fields(time), Fields(each.meant));
    }
}

TEST(VariantTimeTest, RefusesWhatIsOutOfRange) {
    const SYSTEMTIME refused[] = {
        Time(99, 12, 31),        Time(0, 1, 1),
        Time(10000, 1, 1),       Time(100, 1, 0),
        Time(2024, 0, 1),        Time(2024, 13, 1),
        Time(2024, 1, 32),       Time(2024, 1, 1, 24),
        Time(2024, 1, 1, 0, 60), Time(2024, 1, 1, 0, 0, 60),
        Time(2024, 257, 1),      Time(65535, 1, 1),
    };
    for (SYSTEMTIME time : refused) {
        double date = 42;
        EXPECT_EQ(SystemTimeToVariantTime(&time, &date), 0) << time.wYear << '-' << time.wMonth;
        EXPECT_EQ(date, 42);
    }
    SYSTEMTIME time = Time(2024, 1, 1);
    const double infinity = std::numeric_limits<double>::infinity();
    for (const double date : {-657435.0, 2958466.0, 1e300, -1e300, infinity, -infinity, std::nan(""),
                              std::nextafter(2958466.0, 0.0)}) {
        EXPECT_EQ(VariantTimeToSystemTime(date, &time), 0) << date;
        EXPECT_EQ(Fields(time), Fields(Time(2024, 1, 1)));
    }
    EXPECT_EQ(VariantTimeToSystemTime(-657434.5, &time), 1);
    EXPECT_EQ(VariantTimeToSystemTime(2958465.9999, &time), 1);
}

}  // namespace
