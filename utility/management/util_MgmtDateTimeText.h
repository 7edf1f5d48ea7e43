// The scanning and writing of date-and-time text behind the library's conversions. Internal to the library.
//
// Stateless, and independent of the process's locale but for what counts as white space.
#pragma once

#include <array>
#include <string_view>

#include <windows.h>

namespace date_time_text {

// The text of one date and time, null-terminated. 25 characters where every field is in its range.
class Text {
 public:
    // year, month, day, hour, minute, second, six digits of `fraction`, "+000".
    Text(const SYSTEMTIME& time, unsigned fraction) noexcept;

    std::wstring_view View() const noexcept { return {m_Units.data(), m_Length}; }
    const wchar_t* CString() const noexcept { return m_Units.data(); }

 private:
    void Append(std::wstring_view text) noexcept;
    void Append(unsigned number, std::size_t digits) noexcept;

    // Seven fields of at most five or six digits each leave plenty of room.
    std::array<wchar_t, 48> m_Units;
    std::size_t m_Length = 0;
};

// Reads "%4hu%2hu%2hu%2hu%2hu%2hu.%6hu" as the C library's scanf does: white space before a number is
// skipped, a sign counts as a character of the number, and a number is reduced to 16 bits. The last number
// goes into the milliseconds as it is. False when not all seven numbers are there; `time` may then be partly
// filled.
bool Scan(const wchar_t* text, SYSTEMTIME& time) noexcept;

// The number at the front of `field` as _wtoi reads it, reduced to 16 bits.
WORD ReadNumber(std::wstring_view field) noexcept;

}  // namespace date_time_text
