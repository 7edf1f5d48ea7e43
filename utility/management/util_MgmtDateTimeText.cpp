#include "utility/management/util_MgmtDateTimeText.h"

#include <algorithm>
#include <cwctype>

namespace date_time_text {
namespace {

bool IsSpace(wchar_t unit) noexcept {
    return std::iswspace(static_cast<wint_t>(unit)) != 0;
}
bool IsSign(wchar_t unit) noexcept {
    return unit == L'+' || unit == L'-';
}
bool IsDigit(wchar_t unit) noexcept {
    return unit >= L'0' && unit <= L'9';
}

struct Number {
    unsigned value = 0;  // negated, as unsigned numbers are, where the text has a minus
    bool found = false;
    const wchar_t* end = nullptr;
};

// An optional sign and digits in [begin, end); at most nine digits, so nothing overflows.
Number ScanNumber(const wchar_t* begin, const wchar_t* end) noexcept {
    const bool negative = begin != end && *begin == L'-';
    if (begin != end && IsSign(*begin)) ++begin;

    Number number;
    for (; begin != end && IsDigit(*begin); ++begin) {
        number.value = number.value * 10 + static_cast<unsigned>(*begin - L'0');
        number.found = true;
    }
    if (negative) number.value = 0U - number.value;
    number.end = begin;
    return number;
}

// Moves `cursor` behind a number of at most `width` characters.
bool ScanField(const wchar_t*& cursor, std::size_t width, WORD& field) noexcept {
    while (IsSpace(*cursor))
        ++cursor;
    const wchar_t* end = cursor;
    while (*end != L'\0' && end != cursor + width)
        ++end;

    const Number number = ScanNumber(cursor, end);
    if (!number.found) return false;
    cursor = number.end;
    field = static_cast<WORD>(number.value);
    return true;
}

}  // namespace

Text::Text(const SYSTEMTIME& time, unsigned fraction) noexcept {
    Append(time.wYear, 4);
    Append(time.wMonth, 2);
    Append(time.wDay, 2);
    Append(time.wHour, 2);
    Append(time.wMinute, 2);
    Append(time.wSecond, 2);
    Append(L".");
    Append(fraction, 6);
    Append(L"+000");
    m_Units[m_Length] = L'\0';
}

void Text::Append(std::wstring_view text) noexcept {
    std::copy(text.begin(), text.end(), m_Units.begin() + static_cast<std::ptrdiff_t>(m_Length));
    m_Length += text.size();
}

void Text::Append(unsigned number, std::size_t digits) noexcept {
    constexpr std::size_t MOST_DIGITS = 10;
    wchar_t reversed[MOST_DIGITS];
    std::size_t count = 0;
    for (; number != 0 || count < digits; number /= 10)
        reversed[count++] = static_cast<wchar_t>(L'0' + number % 10);
    while (count > 0)
        m_Units[m_Length++] = reversed[--count];
}

bool Scan(const wchar_t* text, SYSTEMTIME& time) noexcept {
    const wchar_t* cursor = text;
    return ScanField(cursor, 4, time.wYear) && ScanField(cursor, 2, time.wMonth) &&
           ScanField(cursor, 2, time.wDay) && ScanField(cursor, 2, time.wHour) &&
           ScanField(cursor, 2, time.wMinute) && ScanField(cursor, 2, time.wSecond) && *cursor++ == L'.' &&
           ScanField(cursor, 6, time.wMilliseconds);
}

WORD ReadNumber(std::wstring_view field) noexcept {
    const auto begin = std::find_if_not(field.begin(), field.end(), IsSpace);
    const wchar_t* const end = field.data() + field.size();
    return static_cast<WORD>(ScanNumber(field.data() + (begin - field.begin()), end).value);
}

}  // namespace date_time_text
