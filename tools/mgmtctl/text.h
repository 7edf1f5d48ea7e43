// Text between the tool's UTF-8 and the library's wide strings, and text as a terminal shows it.
//
//   std::wstring name = Wide(argument);              // UsageFailure for what is not UTF-8
//   std::cout << Printable(Utf8(name)) << '\n';
//
// All functions are stateless, but DisplayWidth needs the process's character type to be UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <wtypes.h>

namespace mgmtctl {

// The wide form of UTF-8 text; nothing for text that is not well-formed: overlong forms, lone surrogates,
// values above 0x10FFFF and cut-off sequences.
std::optional<std::wstring> TryWide(std::string_view utf8);

// The same; throws UsageFailure.
std::wstring Wide(std::string_view utf8);

// The UTF-8 form. A unit that has none, which the service never hands out, becomes U+FFFD.
std::string Utf8(std::wstring_view wide);
// Over its whole length; null counts as empty.
std::string Utf8(BSTR text);

// The text with control characters shown as escapes, so that a value can neither break a table's line nor
// command the terminal.
std::string Printable(std::string_view utf8);

// The columns that printable text takes on a terminal.
std::size_t DisplayWidth(std::string_view utf8);

// Printable text that takes at most so many columns: itself, or its beginning with an ellipsis behind it.
std::string Cut(const std::string& utf8, std::size_t columns);

// 1234567 as "1,234,567".
std::string Grouped(std::uint64_t number);

// Whether two names are the same to the service, as far as their letters are ASCII.
bool EqualNames(std::wstring_view left, std::wstring_view right);

}  // namespace mgmtctl
