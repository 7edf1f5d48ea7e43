#include "tools/mgmtctl/sort_key.h"

#include <cmath>
#include <cwctype>
#include <limits>

#include "tools/mgmtctl/datetime.h"
#include "tools/mgmtctl/text.h"

namespace mgmtctl {

static_assert(std::numeric_limits<long double>::digits >= 64, "a 64-bit integer must keep its value");

namespace {

// Of any type that is neither text, array nor object.
long double NumberOf(CIMTYPE type, const VARIANT& value) {
    switch (type) {
        case CIM_SINT8:
        case CIM_SINT16:
            return value.iVal;
        case CIM_CHAR16:
            return static_cast<WORD>(value.iVal);
        case CIM_UINT8:
            return value.bVal;
        case CIM_UINT32:
            return value.ulVal;
        case CIM_SINT64:
        case CIM_UINT64:
            return std::wcstold(value.bstrVal, nullptr);
        case CIM_REAL32:
            return value.fltVal;
        case CIM_REAL64:
            return value.dblVal;
        case CIM_BOOLEAN:
            return value.boolVal != VARIANT_FALSE ? 1 : 0;
        case CIM_DATETIME:
            return OrderOfDatetime(Utf8(value.bstrVal));
        default:
            return value.lVal;
    }
}

}  // namespace

bool CanSortBy(CIMTYPE type) {
    return !IsArray(type) && type != CIM_OBJECT;
}

SortKey::SortKey(CIMTYPE type, const VARIANT& value) {
    if (IsNull(value) || !CanSortBy(type)) return;
    if (type == CIM_STRING || type == CIM_REFERENCE) {
        SetText({value.bstrVal, SysStringLen(value.bstrVal)});
    } else {
        SetNumber(NumberOf(type, value));
    }
}

bool SortKey::operator<(const SortKey& other) const {
    if (kind_ != other.kind_) return kind_ < other.kind_;
    return kind_ == Kind::TEXT ? text_ < other.text_ : number_ < other.number_;
}

void SortKey::SetNumber(long double number) {
    kind_ = std::isnan(number) ? Kind::NOT_A_NUMBER : Kind::NUMBER;
    if (kind_ == Kind::NUMBER) number_ = number;
}

void SortKey::SetText(std::wstring text) {
    kind_ = Kind::TEXT;
    text_ = std::move(text);
    for (wchar_t& unit : text_)
        unit = static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(unit)));
}

}  // namespace mgmtctl
