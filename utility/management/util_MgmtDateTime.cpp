#include "utility/management/util_MgmtDateTime.h"

#include <cwchar>
#include <string_view>

#include "utility/management/util_MgmtDateTimeText.h"

bool MgmtConvertWMITimeToSystemTime(const wchar_t* wmiTime, SYSTEMTIME* systemTime) {
    if (wmiTime == nullptr || systemTime == nullptr) return false;

    constexpr std::size_t SHORTEST = 16;
    if (wcsnlen(wmiTime, SHORTEST) < SHORTEST) return false;

    const std::wstring_view text(wmiTime, SHORTEST);
    const auto field = [text](std::size_t position, std::size_t width) {
        return date_time_text::ReadNumber(text.substr(position, width));
    };
    *systemTime = SYSTEMTIME{};
    systemTime->wYear = field(0, 4);
    systemTime->wMonth = field(4, 2);
    systemTime->wDay = field(6, 2);
    systemTime->wHour = field(8, 2);
    systemTime->wMinute = field(10, 2);
    systemTime->wSecond = field(12, 2);
    return true;
}

bool MgmtConvertWMITimeToFileTime(const wchar_t* wmiTime, FILETIME* fileTime) {
    if (wmiTime == nullptr || fileTime == nullptr) return false;

    SYSTEMTIME systemTime;
    if (!MgmtConvertWMITimeToSystemTime(wmiTime, &systemTime)) return false;

    FILETIME converted;
    if (!SystemTimeToFileTime(&systemTime, &converted)) return false;
    *fileTime = converted;
    return true;
}
