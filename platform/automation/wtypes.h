// The base types of automation values: text units, type codes, booleans, dates and currency.
//
//   VARTYPE type = VT_ARRAY | VT_BSTR;
//   VARIANT_BOOL yes = VARIANT_TRUE;
//
// Plain values; no state, any thread.
#pragma once

#include <windef.h>

// One unit of wide text: the native wide character. It is UTF-16 where wchar_t has 16 bits and one code point
// a unit where it has 32.
using OLECHAR = wchar_t;
using LPOLESTR = OLECHAR*;
using LPCOLESTR = const OLECHAR*;
using LPSTR = char*;
using LPCSTR = const char*;

// A counted wide string. The pointer leads to the first unit; the length in bytes lies before it and a null
// unit behind it, so the text may hold null units itself. Allocated and freed by the Sys*String functions
// only. A null BSTR is a valid string of length 0.
using BSTR = OLECHAR*;
using LPBSTR = BSTR*;

// True is -1, all bits set; false is 0.
using VARIANT_BOOL = short;
inline constexpr VARIANT_BOOL VARIANT_TRUE = -1;
inline constexpr VARIANT_BOOL VARIANT_FALSE = 0;

// A status code stored in a variant (VT_ERROR).
using SCODE = LONG;

// Days since 30 December 1899, 00:00. Before that moment the whole days are negative and the fraction still
// counts forwards: -1.25 is 29 December 1899, 06:00.
using DATE = double;
using DOUBLE = double;
using FLOAT = float;

// A fixed-point amount in ten-thousandths.
union CY {
    LONGLONG int64;
};

// The type code of a variant or of an array's elements, one of VARENUM with the modifiers below.
using VARTYPE = unsigned short;

enum VARENUM {
    VT_EMPTY = 0,
    VT_NULL = 1,
    VT_I2 = 2,
    VT_I4 = 3,
    VT_R4 = 4,
    VT_R8 = 5,
    VT_CY = 6,
    VT_DATE = 7,
    VT_BSTR = 8,
    VT_DISPATCH = 9,
    VT_ERROR = 10,
    VT_BOOL = 11,
    VT_VARIANT = 12,
    VT_UNKNOWN = 13,
    VT_DECIMAL = 14,
    VT_I1 = 16,
    VT_UI1 = 17,
    VT_UI2 = 18,
    VT_UI4 = 19,
    VT_I8 = 20,
    VT_UI8 = 21,
    VT_INT = 22,
    VT_UINT = 23,
    VT_VOID = 24,
    VT_HRESULT = 25,
    VT_PTR = 26,
    VT_SAFEARRAY = 27,
    VT_CARRAY = 28,
    VT_USERDEFINED = 29,
    VT_LPSTR = 30,
    VT_LPWSTR = 31,
    VT_RECORD = 36,
    VT_INT_PTR = 37,
    VT_UINT_PTR = 38,
    VT_FILETIME = 64,
    VT_BLOB = 65,
    VT_CLSID = 72,
    VT_VECTOR = 0x1000,
    VT_ARRAY = 0x2000,
    VT_BYREF = 0x4000,
    VT_RESERVED = 0x8000,
    VT_ILLEGAL = 0xffff,
    VT_TYPEMASK = 0x0fff
};
