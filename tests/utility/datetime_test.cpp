#include <limits>
#include <string>

#include <gtest/gtest.h>

#include <oleauto.h>

#include "utility/management/mgmt.h"

namespace {

bool SameTime(const SYSTEMTIME& time, WORD year, WORD month, WORD day, WORD hour, WORD minute, WORD second) {
    return time.wYear == year && time.wMonth == month && time.wDay == day && time.wHour == hour &&
           time.wMinute == minute && time.wSecond == second && time.wMilliseconds == 0 &&
           time.wDayOfWeek == 0;
}

TEST(WmiTime, IsReadLenientlyByPositionAndItsOffsetIgnored) {
    SYSTEMTIME time;
    for (const wchar_t* text :
         {L"20240131235958.123456+060", L"20240131235958.*", L"20240131235958xx and what may follow"}) {
        time = {1, 1, 1, 1, 1, 1, 1, 1};
        ASSERT_TRUE(MgmtConvertWMITimeToSystemTime(text, &time)) << std::wstring(text).size();
        EXPECT_TRUE(SameTime(time, 2024, 1, 31, 23, 59, 58));
    }
    ASSERT_TRUE(MgmtConvertWMITimeToSystemTime(L"2024130112000000", &time));
    EXPECT_TRUE(SameTime(time, 2024, 13, 1, 12, 0, 0));
    ASSERT_TRUE(MgmtConvertWMITimeToSystemTime(L" 12 +5-1xx 71 ..", &time));
    EXPECT_TRUE(SameTime(time, 12, 5, 65535, 0, 7, 1));
}

TEST(WmiTime, ShortTextAndNullPointersLeaveTheOutputAlone) {
    SYSTEMTIME time = {1, 2, 3, 4, 5, 6, 7, 8};
    FILETIME file = {9, 9};
    for (const wchar_t* text : {L"", L"20240131235958.", static_cast<const wchar_t*>(nullptr)})
        EXPECT_FALSE(MgmtConvertWMITimeToSystemTime(text, &time) ||
                     MgmtConvertWMITimeToFileTime(text, &file));
    EXPECT_EQ(time.wYear, 1);
    EXPECT_EQ(file.dwLowDateTime, 9U);
    EXPECT_FALSE(MgmtConvertWMITimeToSystemTime(L"20240131235958.123456+060", nullptr));
    EXPECT_FALSE(MgmtConvertWMITimeToFileTime(L"20240131235958.123456+060", nullptr));
}

TEST(WmiTime, FileTimeTakesTheClockTimeAsUtcAndChecksFields) {
    FILETIME file = {};
    ASSERT_TRUE(MgmtConvertWMITimeToFileTime(L"16010101000001.999999+060", &file));
    EXPECT_EQ(file.dwLowDateTime, 10000000U);
    EXPECT_EQ(file.dwHighDateTime, 0U);
    EXPECT_FALSE(MgmtConvertWMITimeToFileTime(L"2024130112000000", &file));
    EXPECT_FALSE(MgmtConvertWMITimeToFileTime(L"2024010125000000", &file));
}

TEST(DateTimeText, BecomesADateOnlyWhenAllSevenNumbersAreThere) {
    double date = -1;
    for (const wchar_t* text :
         {L"20240131235958", L"2024-01-31", L"", L"20240131235958.", L"20240131235958 .0",
          L"20240131235958,000000+000", L"20241331235958.000000+000", L"00000008120000.000000:000",
          L"2024013123xx58.000000+000", static_cast<const wchar_t*>(nullptr)}) {
        EXPECT_FALSE(CMgmtObjectBase::DATETIME2Date(text, &date))
            << (text != nullptr ? std::wstring(text).size() : 0);
        EXPECT_EQ(date, -1);
    }
    EXPECT_FALSE(CMgmtObjectBase::DATETIME2Date(L"20240131235958.000000+000", nullptr));

    ASSERT_TRUE(CMgmtObjectBase::DATETIME2Date(L"19000101060000.000000-999", &date));
    EXPECT_DOUBLE_EQ(date, 2.25);
    // As scanf reads it: white space between numbers, a sign within a number, fewer digits than allowed.
    ASSERT_TRUE(CMgmtObjectBase::DATETIME2Date(L"  1900 1 +1 6 0 0.0", &date));
    EXPECT_DOUBLE_EQ(date, 2.25);
}

TEST(DateTimeText, IsWrittenWholeOrReportedAsCut) {
    double date = 0;
    ASSERT_TRUE(CMgmtObjectBase::DATETIME2Date(L"20240131235958.000000+000", &date));
    const std::wstring untouched(64, L'#');
    std::wstring buffer;
    for (const unsigned long count : {0UL, 1UL, 15UL, 25UL, 26UL, 64UL}) {
        buffer = untouched;
        EXPECT_EQ(CMgmtObjectBase::Date2DATETIME(date, buffer.data(), count), count >= 26) << count;
        const std::wstring written = std::wstring(L"20240131235958.000000+000", 0, count > 0 ? count - 1 : 0);
        EXPECT_EQ(buffer.substr(0, written.size()), written);
        EXPECT_EQ(buffer[written.size()], count > 0 ? L'\0' : L'#');
        EXPECT_EQ(buffer.find(L'#', written.size()), count > 0 ? written.size() + 1 : 0)
            << "nothing behind it";
    }
    for (const double outside : {1e9, -1e9, std::numeric_limits<double>::quiet_NaN()}) {
        buffer = untouched;
        EXPECT_FALSE(CMgmtObjectBase::Date2DATETIME(outside, buffer.data(), 64)) << outside;
        EXPECT_EQ(buffer, untouched);
    }
}

}  // namespace
