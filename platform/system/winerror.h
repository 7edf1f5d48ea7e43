// The published result codes.
//
//   const HRESULT hr = services->GetObject(...);
//   if (FAILED(hr)) return hr;
//   switch (hr) { case S_FALSE: ... }
//
// A negative code is a failure. Every code is a constant expression of type HRESULT; the ERROR_ codes are
// what GetLastError returns.
#pragma once

#include <cstdint>

using HRESULT = std::int32_t;
// The same as an automation value.
using SCODE = HRESULT;

namespace mgmt_platform {
// `bits` is the code as published, in hexadecimal; the failing ones do not fit a signed literal.
constexpr HRESULT ToResult(std::uint32_t bits) noexcept {
    return static_cast<HRESULT>(bits);
}
}  // namespace mgmt_platform

constexpr bool SUCCEEDED(HRESULT hr) noexcept {
    return hr >= 0;
}
constexpr bool FAILED(HRESULT hr) noexcept {
    return hr < 0;
}

inline constexpr int SEVERITY_SUCCESS = 0;
inline constexpr int SEVERITY_ERROR = 1;

inline constexpr int FACILITY_NULL = 0;
inline constexpr int FACILITY_RPC = 1;
inline constexpr int FACILITY_DISPATCH = 2;
inline constexpr int FACILITY_STORAGE = 3;
inline constexpr int FACILITY_ITF = 4;
inline constexpr int FACILITY_WIN32 = 7;

constexpr int HRESULT_CODE(HRESULT hr) noexcept {
    return hr & 0xFFFF;
}
constexpr int HRESULT_FACILITY(HRESULT hr) noexcept {
    return (hr >> 16) & 0x1FFF;
}
constexpr int HRESULT_SEVERITY(HRESULT hr) noexcept {
    return (hr >> 31) & 1;
}
constexpr HRESULT MAKE_HRESULT(int severity, int facility, int code) noexcept {
    return mgmt_platform::ToResult(static_cast<std::uint32_t>(severity) << 31 |
                                   static_cast<std::uint32_t>(facility) << 16 |
                                   static_cast<std::uint32_t>(code));
}
// The failure that stands for a code of GetLastError; 0 and codes that already are results stay as they are.
constexpr HRESULT HRESULT_FROM_WIN32(std::uint32_t error) noexcept {
    const HRESULT hr = mgmt_platform::ToResult(error);
    if (hr <= 0) return hr;
    return mgmt_platform::ToResult((error & 0xFFFF) | static_cast<std::uint32_t>(FACILITY_WIN32) << 16 |
                                   0x80000000U);
}

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT NOERROR = 0;

inline constexpr HRESULT E_NOTIMPL = mgmt_platform::ToResult(0x80004001);
inline constexpr HRESULT E_NOINTERFACE = mgmt_platform::ToResult(0x80004002);
inline constexpr HRESULT E_POINTER = mgmt_platform::ToResult(0x80004003);
inline constexpr HRESULT E_ABORT = mgmt_platform::ToResult(0x80004004);
inline constexpr HRESULT E_FAIL = mgmt_platform::ToResult(0x80004005);
inline constexpr HRESULT E_UNEXPECTED = mgmt_platform::ToResult(0x8000FFFF);
inline constexpr HRESULT E_PENDING = mgmt_platform::ToResult(0x8000000A);
inline constexpr HRESULT E_BOUNDS = mgmt_platform::ToResult(0x8000000B);
inline constexpr HRESULT E_ACCESSDENIED = mgmt_platform::ToResult(0x80070005);
inline constexpr HRESULT E_HANDLE = mgmt_platform::ToResult(0x80070006);
inline constexpr HRESULT E_OUTOFMEMORY = mgmt_platform::ToResult(0x8007000E);
inline constexpr HRESULT E_INVALIDARG = mgmt_platform::ToResult(0x80070057);

inline constexpr HRESULT DISP_E_UNKNOWNINTERFACE = mgmt_platform::ToResult(0x80020001);
inline constexpr HRESULT DISP_E_MEMBERNOTFOUND = mgmt_platform::ToResult(0x80020003);
inline constexpr HRESULT DISP_E_PARAMNOTFOUND = mgmt_platform::ToResult(0x80020004);
inline constexpr HRESULT DISP_E_TYPEMISMATCH = mgmt_platform::ToResult(0x80020005);
inline constexpr HRESULT DISP_E_UNKNOWNNAME = mgmt_platform::ToResult(0x80020006);
inline constexpr HRESULT DISP_E_BADVARTYPE = mgmt_platform::ToResult(0x80020008);
inline constexpr HRESULT DISP_E_EXCEPTION = mgmt_platform::ToResult(0x80020009);
inline constexpr HRESULT DISP_E_OVERFLOW = mgmt_platform::ToResult(0x8002000A);
inline constexpr HRESULT DISP_E_BADINDEX = mgmt_platform::ToResult(0x8002000B);
inline constexpr HRESULT DISP_E_ARRAYISLOCKED = mgmt_platform::ToResult(0x8002000D);
inline constexpr HRESULT DISP_E_DIVBYZERO = mgmt_platform::ToResult(0x80020012);

inline constexpr HRESULT CLASS_E_NOAGGREGATION = mgmt_platform::ToResult(0x80040110);
inline constexpr HRESULT CLASS_E_CLASSNOTAVAILABLE = mgmt_platform::ToResult(0x80040111);
inline constexpr HRESULT REGDB_E_CLASSNOTREG = mgmt_platform::ToResult(0x80040154);
inline constexpr HRESULT CO_E_NOTINITIALIZED = mgmt_platform::ToResult(0x800401F0);
inline constexpr HRESULT CO_E_ALREADYINITIALIZED = mgmt_platform::ToResult(0x800401F1);
inline constexpr HRESULT CO_E_DLLNOTFOUND = mgmt_platform::ToResult(0x800401F8);
inline constexpr HRESULT CO_E_ERRORINDLL = mgmt_platform::ToResult(0x800401F9);
inline constexpr HRESULT CO_E_OBJNOTREG = mgmt_platform::ToResult(0x800401FB);
inline constexpr HRESULT RPC_E_CHANGED_MODE = mgmt_platform::ToResult(0x80010106);
inline constexpr HRESULT RPC_E_DISCONNECTED = mgmt_platform::ToResult(0x80010108);

inline constexpr std::uint32_t NO_ERROR = 0;
inline constexpr std::uint32_t ERROR_SUCCESS = 0;
inline constexpr std::uint32_t ERROR_FILE_NOT_FOUND = 2;
inline constexpr std::uint32_t ERROR_PATH_NOT_FOUND = 3;
inline constexpr std::uint32_t ERROR_TOO_MANY_OPEN_FILES = 4;
inline constexpr std::uint32_t ERROR_ACCESS_DENIED = 5;
inline constexpr std::uint32_t ERROR_INVALID_HANDLE = 6;
inline constexpr std::uint32_t ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr std::uint32_t ERROR_OUTOFMEMORY = 14;
inline constexpr std::uint32_t ERROR_INVALID_PARAMETER = 87;
inline constexpr std::uint32_t ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr std::uint32_t ERROR_INVALID_NAME = 123;
inline constexpr std::uint32_t ERROR_ALREADY_EXISTS = 183;
inline constexpr std::uint32_t ERROR_FILENAME_EXCED_RANGE = 206;
inline constexpr std::uint32_t ERROR_INVALID_FLAGS = 1004;
inline constexpr std::uint32_t ERROR_NO_UNICODE_TRANSLATION = 1113;
