#include <comutil.h>

#include <cstring>
#include <limits>

#include <comdef.h>

#include "platform/automation/narrow_text.h"

BSTR _com_util::ConvertStringToBSTR(const char* narrow) {
    BSTR wide = nullptr;
    CheckError(NarrowToBstr(narrow, &wide));
    return wide;
}

_bstr_t _bstr_t::Joined(std::wstring_view left, std::wstring_view right) {
    if (left.data() == nullptr && right.data() == nullptr) return _bstr_t();
    const std::size_t length = left.size() + right.size();
    if (length > std::numeric_limits<UINT>::max()) _com_issue_error(E_OUTOFMEMORY);
    const BSTR joined = ::SysAllocStringLen(nullptr, static_cast<UINT>(length));
    if (joined == nullptr) _com_issue_error(E_OUTOFMEMORY);
    left.copy(joined, left.size());
    right.copy(joined + left.size(), right.size());
    return _bstr_t(joined, false);
}

bool _variant_t::Equal(const VARIANT& left, const VARIANT& right) {
    if (&left == &right) return true;
    if (left.vt != right.vt) return false;
    switch (left.vt) {
        case VT_EMPTY:
        case VT_NULL:
            return true;
        case VT_I1:
        case VT_UI1:
            return left.bVal == right.bVal;
        case VT_I2:
        case VT_UI2:
        case VT_BOOL:
            return left.uiVal == right.uiVal;
        case VT_I4:
        case VT_UI4:
        case VT_INT:
        case VT_UINT:
        case VT_ERROR:
            return left.ulVal == right.ulVal;
        case VT_I8:
        case VT_UI8:
        case VT_CY:
            return left.ullVal == right.ullVal;
        case VT_R4:
            return left.fltVal == right.fltVal;
        case VT_R8:
        case VT_DATE:
            return left.dblVal == right.dblVal;
        case VT_UNKNOWN:
        case VT_DISPATCH:
            return left.punkVal == right.punkVal;
        case VT_BSTR: {
            const UINT length = ::SysStringByteLen(left.bstrVal);
            return length == ::SysStringByteLen(right.bstrVal) &&
                   (length == 0 || std::memcmp(left.bstrVal, right.bstrVal, length) == 0);
        }
        default:
            _com_issue_error(E_INVALIDARG);
    }
}
