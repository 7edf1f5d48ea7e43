// Automation values: counted strings (BSTR), tagged values (VARIANT) and arrays (SAFEARRAY), with the calls
// that make, copy, convert and free them, and the conversions between variant dates and calendar fields.
//
//   BSTR text = SysAllocString(L"text");
//   VARIANT value;  VariantInit(&value);  value.vt = VT_BSTR;  value.bstrVal = text;
//   VariantClear(&value);  // frees the text
//
// Callers normally hold these through _bstr_t and _variant_t (comutil.h) or CComBSTR and CComVariant
// (atlbase.h).
//
// A value belongs to one thread at a time; different values may be used on different threads. The lock count
// of an array is changed atomically. All memory comes from ::operator new(size, std::nothrow).
#pragma once

#include <errorinfo.h>
#include <platform_api.h>
#include <unknwn.h>
#include <winbase.h>
#include <winerror.h>
#include <wtypes.h>

// ---- Strings ---------------------------------------------------------------------------------------------

// Each allocation call returns null when memory is exhausted or the length in bytes, with the closing null,
// does not fit 32 bits. The caller frees the result with SysFreeString.

// A copy of the text up to its null unit; null for a null `text`.
MGMT_PLATFORM_API BSTR SysAllocString(const OLECHAR* text) noexcept;

// `length` units copied from `text`, null units included. With a null `text` the units are left unset.
MGMT_PLATFORM_API BSTR SysAllocStringLen(const OLECHAR* text, UINT length) noexcept;

// `byteLength` bytes copied from `bytes`, or left unset when it is null. The length need not be whole units;
// the bytes that fill up the last unit, and the unit after it, are zero.
MGMT_PLATFORM_API BSTR SysAllocStringByteLen(LPCSTR bytes, UINT byteLength) noexcept;

// Replaces *target by a copy of `text` and frees the old string, of which `text` may be a part. FALSE when
// the copy cannot be allocated: *target is then unchanged.
MGMT_PLATFORM_API INT SysReAllocString(BSTR* target, const OLECHAR* text) noexcept;

// The same with `length` units. With a null `text` the old text is kept as far as it goes.
MGMT_PLATFORM_API INT SysReAllocStringLen(BSTR* target, const OLECHAR* text, UINT length) noexcept;

// Null is ignored.
MGMT_PLATFORM_API void SysFreeString(BSTR text) noexcept;

// The length in whole units, without the closing null; 0 for null.
MGMT_PLATFORM_API UINT SysStringLen(BSTR text) noexcept;

// The length in bytes, without the closing null; 0 for null.
MGMT_PLATFORM_API UINT SysStringByteLen(BSTR text) noexcept;

// ---- Arrays: layout --------------------------------------------------------------------------------------

struct SAFEARRAYBOUND {
    ULONG cElements;
    LONG lLbound;
};

// How an array's memory came about and what its elements are (SAFEARRAY::fFeatures).
inline constexpr USHORT FADF_AUTO = 0x0001;
inline constexpr USHORT FADF_STATIC = 0x0002;
inline constexpr USHORT FADF_EMBEDDED = 0x0004;
inline constexpr USHORT FADF_FIXEDSIZE = 0x0010;
inline constexpr USHORT FADF_RECORD = 0x0020;
inline constexpr USHORT FADF_HAVEIID = 0x0040;
inline constexpr USHORT FADF_HAVEVARTYPE = 0x0080;
inline constexpr USHORT FADF_BSTR = 0x0100;
inline constexpr USHORT FADF_UNKNOWN = 0x0200;
inline constexpr USHORT FADF_DISPATCH = 0x0400;
inline constexpr USHORT FADF_VARIANT = 0x0800;

// An array's descriptor. Elements lie with the leftmost index running fastest. `rgsabound` has cDims entries,
// the rightmost dimension first, the reverse of the order in which the calls take bounds and indices. Made by
// SafeArrayCreate only: the element type lies before the descriptor.
struct SAFEARRAY {
    USHORT cDims;
    USHORT fFeatures;
    ULONG cbElements;
    ULONG cLocks;
    LPVOID pvData;
    SAFEARRAYBOUND rgsabound[1];
};
using LPSAFEARRAY = SAFEARRAY*;

// ---- Variants: layout ------------------------------------------------------------------------------------

// A value with its type. `vt` says which member of the union is in use; with VT_BYREF the member is a pointer
// to a value that the variant does not own. Interfaces of both kinds, VT_UNKNOWN and VT_DISPATCH, are held in
// punkVal.
struct VARIANT {
    VARTYPE vt;
    WORD wReserved1;
    WORD wReserved2;
    WORD wReserved3;
    union {
        LONGLONG llVal;
        LONG lVal;
        BYTE bVal;
        short iVal;
        FLOAT fltVal;
        DOUBLE dblVal;
        VARIANT_BOOL boolVal;
        SCODE scode;
        CY cyVal;
        DATE date;
        BSTR bstrVal;
        IUnknown* punkVal;
        SAFEARRAY* parray;
        BYTE* pbVal;
        short* piVal;
        LONG* plVal;
        LONGLONG* pllVal;
        FLOAT* pfltVal;
        DOUBLE* pdblVal;
        VARIANT_BOOL* pboolVal;
        SCODE* pscode;
        CY* pcyVal;
        DATE* pdate;
        BSTR* pbstrVal;
        IUnknown** ppunkVal;
        SAFEARRAY** pparray;
        VARIANT* pvarVal;
        LPVOID byref;
        char cVal;
        USHORT uiVal;
        ULONG ulVal;
        ULONGLONG ullVal;
        INT intVal;
        UINT uintVal;
        char* pcVal;
        USHORT* puiVal;
        ULONG* pulVal;
        ULONGLONG* pullVal;
        INT* pintVal;
        UINT* puintVal;
    };
};
using LPVARIANT = VARIANT*;
using VARIANTARG = VARIANT;

// Flags of VariantChangeType: booleans become "True" and "False" instead of "-1" and "0"; the others have no
// effect.
inline constexpr USHORT VARIANT_NOVALUEPROP = 0x01;
inline constexpr USHORT VARIANT_ALPHABOOL = 0x02;

// ---- Variants: calls -------------------------------------------------------------------------------------

// Makes an empty variant of unset memory; frees nothing.
inline void VariantInit(VARIANT* value) noexcept {
    *value = VARIANT{};
}

// Frees what the variant owns and makes it VT_EMPTY. A value by reference is only forgotten.
// DISP_E_BADVARTYPE for a type no variant can have, DISP_E_ARRAYISLOCKED for a locked array: the variant is
// then unchanged. E_INVALIDARG for null.
MGMT_PLATFORM_API HRESULT VariantClear(VARIANT* value) noexcept;

// Clears `target` (which must be initialised) and makes it a deep copy of `source`: strings over their full
// length, arrays with their elements, interfaces with a reference of their own; of a value by reference the
// reference is copied. Copying a variant onto itself does nothing. When `target` cannot be cleared it is
// unchanged; when `source` cannot be copied (E_OUTOFMEMORY, DISP_E_BADVARTYPE) `target` is VT_EMPTY.
MGMT_PLATFORM_API HRESULT VariantCopy(VARIANT* target, const VARIANT* source) noexcept;

// As VariantCopy, but a value by reference is copied itself. `source` may be `target`, which is then replaced
// by the value it refers to. E_INVALIDARG for a null reference.
MGMT_PLATFORM_API HRESULT VariantCopyInd(VARIANT* target, const VARIANT* source) noexcept;

// Makes `target` a copy of `source` in the type `type`; both may be the same variant, and a value by
// reference is converted itself. Numbers are checked for range (DISP_E_OVERFLOW); reals round to the nearest
// integer, halves to the even one; true is -1, all bits of an unsigned type; VT_EMPTY is 0, false or the
// empty string. Text is read as a number with a decimal point, or for a boolean as "True" or "False"; a
// number becomes the shortest text that reads back the same. DISP_E_TYPEMISMATCH where the types have no
// conversion: VT_NULL, an array, an interface, a status or an amount into another type, a date into text or
// back, a text that is no number. DISP_E_BADVARTYPE for an unknown type. `target` is unchanged on an error.
MGMT_PLATFORM_API HRESULT VariantChangeType(VARIANT* target, const VARIANT* source, USHORT flags,
                                            VARTYPE type) noexcept;

// ---- Arrays: calls ---------------------------------------------------------------------------------------

// A new array whose elements are zero, null or empty. `bounds` lists `dimensions` entries, the leftmost
// first; a dimension may have 0 elements. Null when memory is exhausted, for a type that cannot be an
// element, 0 dimensions, an upper bound outside 32 bits, or a size of more than 4 GB or elements. The caller
// destroys it.
MGMT_PLATFORM_API SAFEARRAY* SafeArrayCreate(VARTYPE type, UINT dimensions,
                                             const SAFEARRAYBOUND* bounds) noexcept;

// The same for one dimension.
MGMT_PLATFORM_API SAFEARRAY* SafeArrayCreateVector(VARTYPE type, LONG lowerBound, ULONG elements) noexcept;

// Frees the elements and the array; null is ignored. DISP_E_ARRAYISLOCKED while locked: nothing is freed.
MGMT_PLATFORM_API HRESULT SafeArrayDestroy(SAFEARRAY* array) noexcept;

// A deep copy with the same bounds, not locked. E_OUTOFMEMORY leaves *copy null. The copy of null is null.
MGMT_PLATFORM_API HRESULT SafeArrayCopy(SAFEARRAY* array, SAFEARRAY** copy) noexcept;

// The number of dimensions and the size of an element in bytes; 0 for null.
MGMT_PLATFORM_API UINT SafeArrayGetDim(SAFEARRAY* array) noexcept;
MGMT_PLATFORM_API UINT SafeArrayGetElemsize(SAFEARRAY* array) noexcept;

// The bounds of a dimension, counted from 1 at the leftmost; an empty dimension's upper bound is one below
// its lower bound. DISP_E_BADINDEX for a dimension that the array has not.
MGMT_PLATFORM_API HRESULT SafeArrayGetUBound(SAFEARRAY* array, UINT dimension, LONG* upperBound) noexcept;
MGMT_PLATFORM_API HRESULT SafeArrayGetLBound(SAFEARRAY* array, UINT dimension, LONG* lowerBound) noexcept;

MGMT_PLATFORM_API HRESULT SafeArrayGetVartype(SAFEARRAY* array, VARTYPE* type) noexcept;

// Locks nest, up to 65535; a locked array is not destroyed. Unlock without a lock: E_UNEXPECTED.
MGMT_PLATFORM_API HRESULT SafeArrayLock(SAFEARRAY* array) noexcept;
MGMT_PLATFORM_API HRESULT SafeArrayUnlock(SAFEARRAY* array) noexcept;

// Locks the array and hands out its elements, valid until the array is unlocked.
MGMT_PLATFORM_API HRESULT SafeArrayAccessData(SAFEARRAY* array, void** data) noexcept;
MGMT_PLATFORM_API HRESULT SafeArrayUnaccessData(SAFEARRAY* array) noexcept;

// `indices` has one index a dimension, the leftmost first; DISP_E_BADINDEX for one out of bounds.
//
// Get stores a copy of the element at `value`, overwriting what was there; the caller owns it (SysFreeString,
// Release, VariantClear). Put stores a copy and frees the element it replaces; `value` is the BSTR or the
// interface itself for such elements, else a pointer to the value. On a failure nothing was changed.
MGMT_PLATFORM_API HRESULT SafeArrayGetElement(SAFEARRAY* array, const LONG* indices, void* value) noexcept;
MGMT_PLATFORM_API HRESULT SafeArrayPutElement(SAFEARRAY* array, const LONG* indices, void* value) noexcept;

// ---- Dates -----------------------------------------------------------------------------------------------

// Both return TRUE, or FALSE with the output untouched. Years 100 to 9999; milliseconds are ignored on the
// way in and 0 on the way out. Day 0 is the last day of the month before, a day up to 31 that the month has
// not rolls over; a month outside 1 to 12, a day above 31 or a time out of range fails.
MGMT_PLATFORM_API INT SystemTimeToVariantTime(SYSTEMTIME* time, DOUBLE* date) noexcept;

// Rounds to the nearest second.
MGMT_PLATFORM_API INT VariantTimeToSystemTime(DOUBLE date, SYSTEMTIME* time) noexcept;
