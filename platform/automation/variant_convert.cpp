#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <utility>

#include <oleauto.h>

// VariantChangeType. A value is first read as a Number, whatever its type, then written in the type asked
// for.

namespace {

// The first moments before 1 January 100 and after 31 December 9999.
constexpr double DATE_BELOW_RANGE = -657435.0;
constexpr double DATE_ABOVE_RANGE = 2958466.0;

// No number needs a longer text to be exact; a longer text is taken for no number.
constexpr std::size_t MAX_NUMBER_TEXT = 1100;

struct Number {
    enum class Kind { SIGNED, UNSIGNED, REAL };

    static Number Signed(std::int64_t value) noexcept { return {Kind::SIGNED, value, 0, 0.0, false}; }
    static Number Unsigned(std::uint64_t value) noexcept { return {Kind::UNSIGNED, 0, value, 0.0, false}; }
    static Number Real(double value, bool isSingle = false) noexcept {
        return {Kind::REAL, 0, 0, value, isSingle};
    }

    Kind kind = Kind::SIGNED;
    std::int64_t signedValue = 0;
    std::uint64_t unsignedValue = 0;
    double real = 0.0;
    // The real was a float, so a float's digits are enough for its text.
    bool isSingle = false;
};

double ToReal(const Number& number) noexcept {
    switch (number.kind) {
        case Number::Kind::SIGNED:
            return static_cast<double>(number.signedValue);
        case Number::Kind::UNSIGNED:
            return static_cast<double>(number.unsignedValue);
        default:
            return number.real;
    }
}

bool IsZero(const Number& number) noexcept {
    return number.signedValue == 0 && number.unsignedValue == 0 && number.real == 0.0;
}

template <class Integer>
HRESULT ToInteger(const Number& number, Integer* result) noexcept {
    if (number.kind == Number::Kind::REAL) {
        // The bounds are powers of two, so they are exact as doubles; NaN is in no range.
        constexpr double BELOW = static_cast<double>(std::numeric_limits<Integer>::min());
        constexpr double ABOVE =
            2.0 * static_cast<double>(Integer{1} << (std::numeric_limits<Integer>::digits - 1));
        const double rounded = std::nearbyint(number.real);
        if (!(rounded >= BELOW && rounded < ABOVE)) return DISP_E_OVERFLOW;
        *result = static_cast<Integer>(rounded);
        return S_OK;
    }
    const bool fits = number.kind == Number::Kind::SIGNED ? std::in_range<Integer>(number.signedValue)
                                                          : std::in_range<Integer>(number.unsignedValue);
    if (!fits) return DISP_E_OVERFLOW;
    *result = number.kind == Number::Kind::SIGNED ? static_cast<Integer>(number.signedValue)
                                                  : static_cast<Integer>(number.unsignedValue);
    return S_OK;
}

bool IsSpace(OLECHAR unit) noexcept {
    return unit == L' ' || (unit >= L'\t' && unit <= L'\r');
}

std::wstring_view Trimmed(std::wstring_view text) noexcept {
    while (!text.empty() && IsSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && IsSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

// `lowerCase` has no other characters than small letters.
bool EqualsWord(std::wstring_view text, std::wstring_view lowerCase) noexcept {
    if (text.size() != lowerCase.size()) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const OLECHAR unit = text[i] >= L'A' && text[i] <= L'Z' ? text[i] - L'A' + L'a' : text[i];
        if (unit != lowerCase[i]) return false;
    }
    return true;
}

// Whole numbers are read exactly as far as 64 bits go, everything else as a real.
HRESULT ParseNumber(std::wstring_view text, Number* number) noexcept {
    text = Trimmed(text);
    if (!text.empty() && text.front() == L'+') {
        text.remove_prefix(1);
        if (!text.empty() && text.front() == L'-') return DISP_E_TYPEMISMATCH;
    }
    if (text.empty() || text.size() > MAX_NUMBER_TEXT) return DISP_E_TYPEMISMATCH;

    char digits[MAX_NUMBER_TEXT];
    std::size_t length = 0;
    for (const OLECHAR unit : text) {
        const bool isNumeric = (unit >= L'0' && unit <= L'9') || unit == L'.' || unit == L'-' ||
                               unit == L'+' || unit == L'e' || unit == L'E';
        if (!isNumeric) return DISP_E_TYPEMISMATCH;
        digits[length++] = static_cast<char>(unit);
    }
    const char* const end = digits + length;

    std::int64_t signedValue = 0;
    const auto asSigned = std::from_chars(digits, end, signedValue);
    if (asSigned.ec == std::errc() && asSigned.ptr == end) {
        *number = Number::Signed(signedValue);
        return S_OK;
    }
    std::uint64_t unsignedValue = 0;
    const auto asUnsigned = std::from_chars(digits, end, unsignedValue);
    if (asUnsigned.ec == std::errc() && asUnsigned.ptr == end) {
        *number = Number::Unsigned(unsignedValue);
        return S_OK;
    }
    double real = 0.0;
    const auto asReal = std::from_chars(digits, end, real);
    if (asReal.ec == std::errc::invalid_argument || asReal.ptr != end) return DISP_E_TYPEMISMATCH;
    if (asReal.ec != std::errc()) return DISP_E_OVERFLOW;
    *number = Number::Real(real);
    return S_OK;
}

std::wstring_view TextOf(const VARIANT& value) noexcept {
    return {value.bstrVal, SysStringLen(value.bstrVal)};
}

HRESULT ReadNumber(const VARIANT& value, Number* number) noexcept {
    switch (value.vt) {
        case VT_EMPTY:
            *number = Number();
            return S_OK;
        case VT_I1:
            *number = Number::Signed(static_cast<signed char>(value.cVal));
            return S_OK;
        case VT_I2:
            *number = Number::Signed(value.iVal);
            return S_OK;
        case VT_I4:
        case VT_INT:
            *number = Number::Signed(value.lVal);
            return S_OK;
        case VT_I8:
            *number = Number::Signed(value.llVal);
            return S_OK;
        case VT_UI1:
            *number = Number::Unsigned(value.bVal);
            return S_OK;
        case VT_UI2:
            *number = Number::Unsigned(value.uiVal);
            return S_OK;
        case VT_UI4:
        case VT_UINT:
            *number = Number::Unsigned(value.ulVal);
            return S_OK;
        case VT_UI8:
            *number = Number::Unsigned(value.ullVal);
            return S_OK;
        case VT_R4:
            *number = Number::Real(value.fltVal, true);
            return S_OK;
        case VT_R8:
        case VT_DATE:
            *number = Number::Real(value.dblVal);
            return S_OK;
        case VT_BOOL:
            *number = Number::Signed(value.boolVal != VARIANT_FALSE ? VARIANT_TRUE : VARIANT_FALSE);
            return S_OK;
        case VT_BSTR:
            return ParseNumber(TextOf(value), number);
        default:
            return DISP_E_TYPEMISMATCH;
    }
}

template <class Value>
HRESULT WriteInteger(const VARIANT& source, Value VARIANT::*member, VARIANT* result) noexcept {
    Number number;
    const HRESULT status = ReadNumber(source, &number);
    if (FAILED(status)) return status;
    if (source.vt == VT_BOOL) {
        // True has all bits set in every integer type.
        result->*member = static_cast<Value>(number.signedValue);
        return S_OK;
    }
    using Integer = std::conditional_t<std::is_same_v<Value, char>, signed char, Value>;
    Integer integer = 0;
    const HRESULT converted = ToInteger(number, &integer);
    result->*member = static_cast<Value>(integer);
    return converted;
}

HRESULT WriteReal(const VARIANT& source, VARTYPE type, VARIANT* result) noexcept {
    if (type == VT_DATE && source.vt == VT_BSTR) return DISP_E_TYPEMISMATCH;
    Number number;
    const HRESULT status = ReadNumber(source, &number);
    if (FAILED(status)) return status;
    const double real = ToReal(number);
    if (type == VT_R4) {
        if (std::isfinite(real) && std::fabs(real) > std::numeric_limits<float>::max())
            return DISP_E_OVERFLOW;
        result->fltVal = static_cast<float>(real);
        return S_OK;
    }
    if (type == VT_DATE && !(real > DATE_BELOW_RANGE && real < DATE_ABOVE_RANGE)) return DISP_E_OVERFLOW;
    result->dblVal = real;
    return S_OK;
}

HRESULT WriteBoolean(const VARIANT& source, VARIANT* result) noexcept {
    if (source.vt == VT_BSTR) {
        const std::wstring_view text = Trimmed(TextOf(source));
        const bool isTrue = EqualsWord(text, L"true");
        if (isTrue || EqualsWord(text, L"false")) {
            result->boolVal = isTrue ? VARIANT_TRUE : VARIANT_FALSE;
            return S_OK;
        }
    }
    Number number;
    const HRESULT status = ReadNumber(source, &number);
    result->boolVal = IsZero(number) ? VARIANT_FALSE : VARIANT_TRUE;
    return status;
}

HRESULT SetText(std::string_view ascii, VARIANT* result) noexcept {
    const BSTR text = SysAllocStringLen(nullptr, static_cast<UINT>(ascii.size()));
    if (text == nullptr) return E_OUTOFMEMORY;
    for (std::size_t i = 0; i < ascii.size(); ++i) {
        text[i] = ascii[i] == 'e' ? L'E' : static_cast<OLECHAR>(ascii[i]);
    }
    result->bstrVal = text;
    return S_OK;
}

// The fewest digits that read back the same, with an exponent where zeros would have to be filled in.
template <class Real>
std::to_chars_result WriteDigits(char* begin, char* end, Real value) noexcept {
    const double magnitude = std::fabs(value);
    const bool isPlain = magnitude == 0.0 || (magnitude >= 1e-4 && magnitude < 1e15);
    return std::to_chars(begin, end, value,
                         isPlain ? std::chars_format::fixed : std::chars_format::scientific);
}

HRESULT WriteText(const VARIANT& source, USHORT flags, VARIANT* result) noexcept {
    if (source.vt == VT_EMPTY) return SetText("", result);
    if (source.vt == VT_DATE) return DISP_E_TYPEMISMATCH;
    if (source.vt == VT_BOOL && (flags & VARIANT_ALPHABOOL) != 0) {
        const BSTR word = SysAllocString(source.boolVal != VARIANT_FALSE ? L"True" : L"False");
        result->bstrVal = word;
        return word != nullptr ? S_OK : E_OUTOFMEMORY;
    }
    Number number;
    const HRESULT status = ReadNumber(source, &number);
    if (FAILED(status)) return status;
    if (!std::isfinite(number.real)) return DISP_E_OVERFLOW;

    char text[64];
    char* const end = text + sizeof(text);
    std::to_chars_result written{};
    if (number.kind == Number::Kind::SIGNED) {
        written = std::to_chars(text, end, number.signedValue);
    } else if (number.kind == Number::Kind::UNSIGNED) {
        written = std::to_chars(text, end, number.unsignedValue);
    } else if (number.isSingle) {
        written = WriteDigits(text, end, static_cast<float>(number.real));
    } else {
        written = WriteDigits(text, end, number.real);
    }
    return SetText(std::string_view(text, static_cast<std::size_t>(written.ptr - text)), result);
}

// `result` is empty; its type is set by the caller.
HRESULT WriteAs(VARTYPE type, const VARIANT& source, USHORT flags, VARIANT* result) noexcept {
    switch (type) {
        case VT_I1:
            return WriteInteger(source, &VARIANT::cVal, result);
        case VT_I2:
            return WriteInteger(source, &VARIANT::iVal, result);
        case VT_I4:
        case VT_INT:
            return WriteInteger(source, &VARIANT::lVal, result);
        case VT_I8:
            return WriteInteger(source, &VARIANT::llVal, result);
        case VT_UI1:
            return WriteInteger(source, &VARIANT::bVal, result);
        case VT_UI2:
            return WriteInteger(source, &VARIANT::uiVal, result);
        case VT_UI4:
        case VT_UINT:
            return WriteInteger(source, &VARIANT::ulVal, result);
        case VT_UI8:
            return WriteInteger(source, &VARIANT::ullVal, result);
        case VT_R4:
        case VT_R8:
        case VT_DATE:
            return WriteReal(source, type, result);
        case VT_BOOL:
            return WriteBoolean(source, result);
        case VT_BSTR:
            return WriteText(source, flags, result);
        case VT_EMPTY:
        case VT_NULL:
        case VT_CY:
        case VT_ERROR:
        case VT_UNKNOWN:
        case VT_DISPATCH:
            return DISP_E_TYPEMISMATCH;
        default:
            return (type & (VT_ARRAY | VT_BYREF)) != 0 ? DISP_E_TYPEMISMATCH : DISP_E_BADVARTYPE;
    }
}

// Makes `result`, which is empty, the value in the type; it stays empty on a failure.
HRESULT Convert(const VARIANT& source, USHORT flags, VARTYPE type, VARIANT* result) noexcept {
    if (source.vt == type) return VariantCopy(result, &source);
    VARIANT converted{};
    const HRESULT status = WriteAs(type, source, flags, &converted);
    if (FAILED(status)) return status;
    converted.vt = type;
    *result = converted;
    return S_OK;
}

}  // namespace

HRESULT VariantChangeType(VARIANT* target, const VARIANT* source, USHORT flags, VARTYPE type) noexcept {
    if (target == nullptr || source == nullptr) return E_INVALIDARG;
    VARIANT followed{};
    if ((source->vt & VT_BYREF) != 0) {
        const HRESULT status = VariantCopyInd(&followed, source);
        if (FAILED(status)) return status;
        source = &followed;
    }
    VARIANT converted{};
    HRESULT status = Convert(*source, flags, type, &converted);
    VariantClear(&followed);
    if (FAILED(status)) return status;

    status = VariantClear(target);
    if (SUCCEEDED(status)) {
        *target = converted;
    } else {
        VariantClear(&converted);
    }
    return status;
}
