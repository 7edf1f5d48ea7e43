#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <tuple>
#include <utility>

#include <oleauto.h>
#include <windows.h>

namespace {

SYSTEMTIME Time(int year, int month, int day, int hour = 0, int minute = 0, int second = 0,
                int milliseconds = 0) {
    const auto word = [](int number) { return static_cast<WORD>(number); };
    return {word(year), word(month),  word(0),      word(day),
            word(hour), word(minute), word(second), word(milliseconds)};
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
    const struct {
        SYSTEMTIME time;
        std::uint64_t ticks;
        int day_of_week;
    } cases[] = {{Time(1601, 1, 1, 0, 0, 0, 1), 10'000, 1},
                 {Time(1970, 1, 1), 116'444'736'000'000'000, 4},
                 {Time(2000, 2, 29, 23, 59, 59, 999), 125'963'423'999'990'000, 2}};
    for (const auto& [time, ticks, day_of_week] : cases) {
        FILETIME file_time = {};
        ASSERT_TRUE(SystemTimeToFileTime(&time, &file_time));
        EXPECT_EQ(Ticks(file_time), ticks);
        SYSTEMTIME back = {};
        ASSERT_TRUE(FileTimeToSystemTime(&file_time, &back));
        EXPECT_EQ(Fields(back), Fields(time));
        EXPECT_EQ(back.wDayOfWeek, day_of_week);
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
        Time(1600, 12, 31),
        Time(30828, 1, 1),
        Time(2024, 0, 1),
        Time(2024, 13, 1),
        Time(2024, 1, 0),
        Time(1900, 2, 29),
        Time(2024, 4, 31),
        Time(2024, 257, 1),
        Time(2024, 1, 257),
        Time(2024, 1, 1, 24),
        Time(2024, 1, 1, 0, 60),
        Time(2024, 1, 1, 0, 0, 60),
        Time(2024, 1, 1, 0, 0, 0, 1000),
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
    EXPECT_FALSE(SystemTimeToFileTime(nullptr, &file_time) || SystemTimeToFileTime(&time, nullptr));
    EXPECT_FALSE(FileTimeToSystemTime(nullptr, &time) || FileTimeToSystemTime(&file_time, nullptr));
}

TEST(FileTimeTest, EndsWhereTheSignBitBegins) {
    FILETIME file_time = FileTime(0x7FFF'FFFF'FFFF'FFFF);
    SYSTEMTIME time = {};
    ASSERT_TRUE(FileTimeToSystemTime(&file_time, &time));
    EXPECT_EQ(Fields(time), Fields(Time(30828, 9, 14, 2, 48, 5, 477)));
    file_time = FileTime(0x8000'0000'0000'0000);
    EXPECT_FALSE(FileTimeToSystemTime(&file_time, &time));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(time.wYear, 30828);
    time = Time(30827, 12, 31, 23, 59, 59, 999);
    EXPECT_TRUE(SystemTimeToFileTime(&time, &file_time));
}

TEST(VariantTimeTest, CountsDaysFrom30December1899AndRollsThemOverTheMonthsBounds) {
    const struct {
        SYSTEMTIME time;
        double date;
        SYSTEMTIME meant;
    } cases[] = {
        {Time(1900, 1, 1), 2.0, Time(1900, 1, 1)},
        {Time(1899, 12, 30, 18), 0.75, Time(1899, 12, 30, 18)},
        {Time(1899, 12, 29, 6), -1.25, Time(1899, 12, 29, 6)},
        {Time(100, 1, 1, 12), -657434.5, Time(100, 1, 1, 12)},
        {Time(9999, 12, 31), 2958465.0, Time(9999, 12, 31)},
        {Time(2024, 1, 0), 45291.0, Time(2023, 12, 31)},
        {Time(2024, 3, 0), 45351.0, Time(2024, 2, 29)},
        {Time(2023, 2, 31), 44988.0, Time(2023, 3, 3)},
        {Time(2024, 4, 31), 45413.0, Time(2024, 5, 1)},
        // Milliseconds are dropped, also where the unscaled microseconds of a DATETIME text come as such.
        {Time(2024, 1, 31, 23, 59, 59, 999), 45322.0 + 86'399 / 86'400.0, Time(2024, 1, 31, 23, 59, 59)},
        {Time(2024, 1, 31, 12, 0, 0, 65'535), 45322.5, Time(2024, 1, 31, 12)},
    };
    for (auto [time, date, meant] : cases) {
        double counted = 0;
        ASSERT_EQ(SystemTimeToVariantTime(&time, &counted), 1) << date;
        EXPECT_DOUBLE_EQ(counted, date);
        ASSERT_EQ(VariantTimeToSystemTime(counted, &time), 1) << date;
        EXPECT_EQ(Fields(time), Fields(meant)) << date;
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

TEST(VariantTimeTest, RoundsToTheSecond) {
    constexpr double SECOND = 1.0 / 86'400;
    // Rounding up over midnight, too, forwards in time on both sides of day 0.
    const std::pair<double, SYSTEMTIME> cases[] = {
        {2.0 + 10.4 * SECOND, Time(1900, 1, 1, 0, 0, 10)}, {2.0 + 10.6 * SECOND, Time(1900, 1, 1, 0, 0, 11)},
        {2.0 + 59.7 * SECOND, Time(1900, 1, 1, 0, 1, 0)},  {3.0 - 0.3 * SECOND, Time(1900, 1, 2)},
        {-2.0 + 0.3 * SECOND, Time(1899, 12, 30)},         {-0.75, Time(1899, 12, 30, 18)}};
    for (const auto& [date, rounded] : cases) {
        SYSTEMTIME time = {};
        ASSERT_EQ(VariantTimeToSystemTime(date, &time), 1);
        EXPECT_EQ(Fields(time), Fields(rounded)) << date;
    }
    SYSTEMTIME time = {};
    ASSERT_EQ(VariantTimeToSystemTime(45322.75, &time), 1);
    EXPECT_EQ(time.wDayOfWeek, 3);
}

TEST(VariantTimeTest, RefusesWhatIsOutOfRange) {
    const SYSTEMTIME refused[] = {
        Time(99, 12, 31),     Time(10000, 1, 1),          Time(100, 1, 0),
        Time(2024, 0, 1),     Time(2024, 13, 1),          Time(2024, 1, 32),
        Time(2024, 1, 1, 24), Time(2024, 1, 1, 0, 60),    Time(2024, 257, 1),
        Time(65535, 1, 1),    Time(2024, 1, 1, 0, 0, 60),
    };
    for (SYSTEMTIME time : refused) {
        double date = 42;
        EXPECT_EQ(SystemTimeToVariantTime(&time, &date), 0) << time.wYear << '-' << time.wMonth;
        EXPECT_EQ(date, 42);
    }
    SYSTEMTIME time = Time(2024, 1, 1);
    for (const double date : {-657435.0, 2958466.0, std::numeric_limits<double>::infinity(), std::nan(""),
                              std::nextafter(2958466.0, 0.0)}) {
        EXPECT_EQ(VariantTimeToSystemTime(date, &time), 0) << date;
        EXPECT_EQ(Fields(time), Fields(Time(2024, 1, 1)));
    }
    EXPECT_EQ(VariantTimeToSystemTime(2958465.9999, &time), 1);
}

}  // namespace
