// The published names of the fixed-size types.
//
//   DWORD flags = 0;
//   BOOL done = FALSE;
//
// LONG, ULONG and DWORD have 32 bits here as on the published platform, although the compiler's `long`
// has 64.
#pragma once

#include <cstddef>
#include <cstdint>

using BOOL = int;
using BOOLEAN = std::uint8_t;
using BYTE = std::uint8_t;
using UCHAR = std::uint8_t;
using CHAR = char;
using WCHAR = wchar_t;
using SHORT = std::int16_t;
using USHORT = std::uint16_t;
using WORD = std::uint16_t;
using INT = int;
using UINT = unsigned int;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using DWORD = std::uint32_t;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using FLOAT = float;
using DOUBLE = double;
using INT_PTR = std::intptr_t;
using UINT_PTR = std::uintptr_t;
using LONG_PTR = std::intptr_t;
using ULONG_PTR = std::uintptr_t;
using SIZE_T = std::size_t;

using LPVOID = void*;
using LPCVOID = const void*;
using PVOID = void*;
using LPSTR = char*;
using LPCSTR = const char*;
using LPWSTR = wchar_t*;
using LPCWSTR = const wchar_t*;
using LPBYTE = BYTE*;
using LPDWORD = DWORD*;
using LPLONG = LONG*;

using HANDLE = void*;
// A loaded image, named by the address that it was loaded at. Two names of one thing.
struct HINSTANCE__;
using HINSTANCE = HINSTANCE__*;
using HMODULE = HINSTANCE;

#define FALSE 0
#define TRUE 1

#define WINAPI
#define CALLBACK
#define APIENTRY WINAPI
#define STDMETHODCALLTYPE
#define STDAPICALLTYPE

#define CONST const
#define MAX_PATH 260
