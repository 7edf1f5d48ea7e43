// Narrow text to wide.
//
//   const int size = MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, "text", -1, nullptr, 0);
//   std::vector<wchar_t> wide(size);
//   MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, "text", -1, wide.data(), size);
//
// Any thread. The locale must not be changed by setlocale on another thread meanwhile.
#pragma once

#include <platform_api.h>
#include <windef.h>

// The encoding of the calling thread's locale; UTF-8 where the program has set none, that is in the locale
// "C".
inline constexpr UINT CP_ACP = 0;
inline constexpr UINT CP_UTF8 = 65001;

// Text that is not valid in its encoding is refused. It is so without this flag, too: a replaced character
// would be lost without a word, and a name would become another name.
inline constexpr DWORD MB_ERR_INVALID_CHARS = 0x00000008;

// Converts `cbMultiByte` bytes, null characters included, or with -1 the text up to and with its closing
// null. Any other encoding is named by its number, 1252 for instance, as far as the system's iconv knows it
// as "CP" and the number.
//
// Returns the number of units stored in the `cchWideChar` units of `lpWideCharStr`, or, when cchWideChar is
// 0, the number needed. On a failure returns 0, what the buffer holds is not defined, and the last error is
//
//   ERROR_INVALID_PARAMETER       null or equal pointers, a length of 0 or below -1, a negative size, an
//                                 unknown encoding
//   ERROR_INVALID_FLAGS           any flag but the one above
//   ERROR_NO_UNICODE_TRANSLATION  text that is not valid in its encoding, or ends within a character
//   ERROR_INSUFFICIENT_BUFFER     the units do not fit
//   ERROR_OUTOFMEMORY             memory is exhausted, or more than 2147483647 units are needed
//
// A success leaves the last error as it was. UTF-8 is read without allocating.
MGMT_PLATFORM_API int WINAPI MultiByteToWideChar(UINT CodePage, DWORD dwFlags, LPCSTR lpMultiByteStr,
                                                 int cbMultiByte, LPWSTR lpWideCharStr,
                                                 int cchWideChar) noexcept;
