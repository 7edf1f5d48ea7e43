#include "service/com/variant_conversion.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include <atlbase.h>

#include "service/model/limits.h"
#include "service/model/text.h"

namespace service {
namespace {

class ArrayOwner {
 public:
    explicit ArrayOwner(SAFEARRAY* array) : array_(array) {
        if (!array_) throw std::bad_alloc();
    }
    ~ArrayOwner() {
        if (array_) SafeArrayDestroy(array_);
    }
    ArrayOwner(const ArrayOwner&) = delete;
    ArrayOwner& operator=(const ArrayOwner&) = delete;
    SAFEARRAY* get() const noexcept { return array_; }
    SAFEARRAY* Detach() noexcept { return std::exchange(array_, nullptr); }

 private:
    SAFEARRAY* array_;
};

// Holds an array's elements accessible.
class ElementAccess {
 public:
    explicit ElementAccess(SAFEARRAY* array) noexcept : array_(array) {
        if (FAILED(SafeArrayAccessData(array_, &data_))) data_ = nullptr;
    }
    ~ElementAccess() {
        if (data_) SafeArrayUnaccessData(array_);
    }
    ElementAccess(const ElementAccess&) = delete;
    ElementAccess& operator=(const ElementAccess&) = delete;
    char* data() const noexcept { return static_cast<char*>(data_); }

 private:
    SAFEARRAY* array_;
    void* data_ = nullptr;
};

VARTYPE VariantTypeOf(CimType type) noexcept {
    switch (type) {
        case CimType::kSint8:
        case CimType::kSint16:
        case CimType::kChar16:
            return VT_I2;
        case CimType::kUint8:
            return VT_UI1;
        case CimType::kUint16:
        case CimType::kSint32:
        case CimType::kUint32:
            return VT_I4;
        case CimType::kReal32:
            return VT_R4;
        case CimType::kReal64:
            return VT_R8;
        case CimType::kBoolean:
            return VT_BOOL;
        case CimType::kObject:
            return VT_UNKNOWN;
        default:
            return VT_BSTR;
    }
}

template <typename Integer>
BSTR MakeDecimal(Integer number) {
    std::array<char, 24> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    std::array<wchar_t, 24> wide{};
    const auto count = static_cast<size_t>(end - digits.data());
    WriteWide({digits.data(), count}, wide.data());
    BSTR text = SysAllocStringLen(wide.data(), static_cast<UINT>(count));
    if (!text) throw std::bad_alloc();
    return text;
}

void StoreInteger(VARTYPE variant_type, uint64_t bits, VARIANT& variant) noexcept {
    if (variant_type == VT_I2) {
        variant.iVal = static_cast<short>(bits);
    } else if (variant_type == VT_UI1) {
        variant.bVal = static_cast<BYTE>(bits);
    } else {
        variant.lVal = static_cast<LONG>(bits);
    }
}

// `value` is not null and of the type's representation. `variant.vt` is left to the caller.
Status StoreScalar(CimType type, const ValueView& value, WrapObject wrap, VARIANT& variant) {
    const VARTYPE variant_type = VariantTypeOf(type);
    if (const auto* text = std::get_if<std::string_view>(&value)) {
        SERVICE_ASSIGN_OR_RETURN(variant.bstrVal, MakeBstr(*text));
    } else if (const auto* number = std::get_if<int64_t>(&value)) {
        if (variant_type == VT_BSTR) {
            variant.bstrVal = MakeDecimal(*number);
        } else {
            StoreInteger(variant_type, static_cast<uint64_t>(*number), variant);
        }
    } else if (const auto* natural = std::get_if<uint64_t>(&value)) {
        if (variant_type == VT_BSTR) {
            variant.bstrVal = MakeDecimal(*natural);
        } else {
            StoreInteger(variant_type, *natural, variant);
        }
    } else if (const auto* flag = std::get_if<bool>(&value)) {
        variant.boolVal = *flag ? VARIANT_TRUE : VARIANT_FALSE;
    } else if (const auto* real = std::get_if<double>(&value)) {
        if (variant_type == VT_R4) {
            variant.fltVal = static_cast<float>(*real);
        } else {
            variant.dblVal = *real;
        }
    } else if (const auto* object = std::get_if<const ObjectPtr*>(&value)) {
        SERVICE_ASSIGN_OR_RETURN(variant.punkVal, wrap(**object));
    }
    return {};
}

Status StoreArray(CimType type, const Array& elements, WrapObject wrap, VARIANT& variant) {
    const VARTYPE element_type = VariantTypeOf(type);
    ArrayOwner array(SafeArrayCreateVector(element_type, 0, static_cast<ULONG>(elements.size())));
    {
        const ElementAccess access(array.get());
        const size_t size = SafeArrayGetElemsize(array.get());
        for (size_t i = 0; i < elements.size(); ++i) {
            const ValueView element = ViewOf(elements[i]);
            if (IsNull(element)) continue;  // a null text or object is a null pointer, as the array was made
            VARIANT held{};
            SERVICE_RETURN_IF_ERROR(StoreScalar(type, element, wrap, held));
            std::memcpy(access.data() + i * size, &held.llVal, size);
        }
    }
    variant.parray = array.Detach();
    variant.vt = static_cast<VARTYPE>(VT_ARRAY | element_type);
    return {};
}

// "uint8, which takes 0 to 255".
std::string DescribeAllowed(const PropertyType& type) {
    const Representation held = RepresentationOf(type.type);
    if (held != Representation::kSigned && held != Representation::kUnsigned) return DescribeType(type);
    const IntegerRange range = RangeOf(type.type);
    return DescribeType(type) + ", which takes " + std::to_string(range.low) + " to " +
           std::to_string(range.high);
}

Status Mismatch(const PropertyType& type, const std::string& found) {
    return {WBEM_E_TYPE_MISMATCH, found + " cannot become a value of type " + DescribeAllowed(type)};
}

// With what it holds where that is short.
std::string DescribeVariant(const VARIANT& variant) {
    constexpr size_t kMaxShown = 40;
    switch (variant.vt) {
        case VT_EMPTY:
            return "an empty variant";
        case VT_BSTR:
            return "the text \"" +
                   ClipForMessage(ToUtf8Lossy({variant.bstrVal, SysStringLen(variant.bstrVal)}), kMaxShown) +
                   '"';
        case VT_BOOL:
            return variant.boolVal ? "the boolean TRUE" : "the boolean FALSE";
        case VT_UI1:
            return "the number " + std::to_string(variant.bVal);
        case VT_I2:
            return "the number " + std::to_string(variant.iVal);
        case VT_I4:
            return "the number " + std::to_string(variant.lVal);
        case VT_R4:
        case VT_R8:
            return "the real " + std::to_string(variant.vt == VT_R4 ? variant.fltVal : variant.dblVal);
        case VT_UNKNOWN:
        case VT_DISPATCH:
            return "an object";
        default:
            return (variant.vt & VT_ARRAY ? "an array of variants of type " : "a variant of type ") +
                   std::to_string(variant.vt & VT_TYPEMASK);
    }
}

// What a scalar variant says, whatever integer or real type it says it in.
using Plain = std::variant<std::monostate, int64_t, uint64_t, double, bool, std::string>;

Result<Plain> ReadPlain(const VARIANT& variant) {
    switch (variant.vt) {
        case VT_I1:
            return Plain(int64_t{static_cast<signed char>(variant.cVal)});
        case VT_I2:
            return Plain(int64_t{variant.iVal});
        case VT_I4:
            return Plain(int64_t{variant.lVal});
        case VT_INT:
            return Plain(int64_t{variant.intVal});
        case VT_I8:
            return Plain(int64_t{variant.llVal});
        case VT_UI1:
            return Plain(uint64_t{variant.bVal});
        case VT_UI2:
            return Plain(uint64_t{variant.uiVal});
        case VT_UI4:
            return Plain(uint64_t{variant.ulVal});
        case VT_UINT:
            return Plain(uint64_t{variant.uintVal});
        case VT_UI8:
            return Plain(uint64_t{variant.ullVal});
        case VT_R4:
            return Plain(double{variant.fltVal});
        case VT_R8:
            return Plain(variant.dblVal);
        case VT_BOOL:
            return Plain(variant.boolVal != VARIANT_FALSE);
        case VT_BSTR: {
            std::string text;
            const std::wstring_view wide(variant.bstrVal ? variant.bstrVal : L"",
                                         SysStringLen(variant.bstrVal));
            if (AppendUtf8(wide, text)) return Plain(std::move(text));
            return Status(WBEM_E_INVALID_PARAMETER,
                          "the text has no UTF-8 form: it holds a lone surrogate or a value above 0x10FFFF");
        }
        default:
            return Plain();
    }
}

template <typename Number>
bool ParseWhole(const std::string& text, Number& number) noexcept {
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number);
    return parsed.ec == std::errc() && parsed.ptr == end;
}

// An integer as sign and magnitude, so that both kinds of 64-bit number fit.
struct Whole {
    bool is_negative = false;
    uint64_t magnitude = 0;
};

bool ReadWhole(const Plain& plain, Whole& whole) noexcept {
    const auto from_signed = [&](int64_t number) {
        whole.is_negative = number < 0;
        whole.magnitude =
            whole.is_negative ? ~static_cast<uint64_t>(number) + 1 : static_cast<uint64_t>(number);
        return true;
    };
    if (const auto* number = std::get_if<int64_t>(&plain)) return from_signed(*number);
    if (const auto* number = std::get_if<uint64_t>(&plain)) {
        whole.magnitude = *number;
        return true;
    }
    if (const auto* real = std::get_if<double>(&plain)) {
        // Every whole double below 2^63 is one int64_t, those up to 2^64 are a uint64_t.
        constexpr double kBound = 9223372036854775808.0;
        if (!(*real >= -kBound && *real < 2 * kBound) || std::trunc(*real) != *real) return false;
        if (*real < kBound) return from_signed(static_cast<int64_t>(*real));
        whole.magnitude = static_cast<uint64_t>(*real);
        return true;
    }
    if (const auto* text = std::get_if<std::string>(&plain)) {
        int64_t number = 0;
        if (ParseWhole(*text, number)) return from_signed(number);
        return ParseWhole(*text, whole.magnitude);
    }
    return false;
}

// The published variants of uint32 and char16 are signed: their negative values are the upper half.
void UndoSign(CimType type, const VARIANT& variant, Whole& whole) noexcept {
    if (!whole.is_negative) return;
    if (type == CimType::kUint32 && variant.vt == VT_I4) whole = {false, static_cast<uint32_t>(variant.lVal)};
    if (type == CimType::kChar16 && variant.vt == VT_I2) whole = {false, static_cast<uint16_t>(variant.iVal)};
}

bool ToReal(CimType type, const Plain& plain, double& real) noexcept {
    if (const auto* held = std::get_if<double>(&plain)) {
        real = *held;
    } else if (const auto* number = std::get_if<int64_t>(&plain)) {
        real = static_cast<double>(*number);
        if (real >= 9223372036854775808.0 || static_cast<int64_t>(real) != *number) return false;
    } else if (const auto* natural = std::get_if<uint64_t>(&plain)) {
        real = static_cast<double>(*natural);
        if (real >= 18446744073709551616.0 || static_cast<uint64_t>(real) != *natural) return false;
    } else if (const auto* text = std::get_if<std::string>(&plain)) {
        if (!ParseWhole(*text, real)) return false;
    } else {
        return false;
    }
    return type != CimType::kReal32 || std::isnan(real) ||
           static_cast<double>(static_cast<float>(real)) == real;
}

bool ToBoolean(const Plain& plain, bool& flag) {
    if (const auto* held = std::get_if<bool>(&plain)) {
        flag = *held;
        return true;
    }
    if (const auto* text = std::get_if<std::string>(&plain)) {
        flag = EqualFolded(*text, "true");
        return flag || EqualFolded(*text, "false");
    }
    Whole whole;
    if (std::holds_alternative<double>(plain) || !ReadWhole(plain, whole)) return false;
    flag = whole.magnitude == 1;
    return whole.magnitude <= 1;
}

Result<Value> ReadInteger(const PropertyType& type, const VARIANT& variant, const Plain& plain) {
    Whole whole;
    if (!ReadWhole(plain, whole)) return Mismatch(type, DescribeVariant(variant));
    UndoSign(type.type, variant, whole);
    const IntegerRange range = RangeOf(type.type);
    const uint64_t lowest = ~static_cast<uint64_t>(range.low) + 1;
    if (whole.is_negative ? whole.magnitude > lowest || range.low == 0 : whole.magnitude > range.high) {
        return Mismatch(type, "the number " + std::string(whole.is_negative ? "-" : "") +
                                  std::to_string(whole.magnitude));
    }
    if (RepresentationOf(type.type) == Representation::kUnsigned) return Value(whole.magnitude);
    return Value(static_cast<int64_t>(whole.is_negative ? ~whole.magnitude + 1 : whole.magnitude));
}

Result<Value> ReadScalar(const PropertyType& type, const VARIANT& variant, UnwrapObject unwrap) {
    if (variant.vt == VT_NULL) return Value();
    if (RepresentationOf(type.type) == Representation::kObject) {
        if (variant.vt != VT_UNKNOWN && variant.vt != VT_DISPATCH)
            return Mismatch(type, DescribeVariant(variant));
        if (!variant.punkVal) return Value();
        SERVICE_ASSIGN_OR_RETURN(ObjectPtr object, unwrap(variant.punkVal));
        return Value(std::move(object));
    }
    SERVICE_ASSIGN_OR_RETURN(Plain plain, ReadPlain(variant));
    switch (RepresentationOf(type.type)) {
        case Representation::kSigned:
        case Representation::kUnsigned:
            return ReadInteger(type, variant, plain);
        case Representation::kReal:
            if (double real = 0; ToReal(type.type, plain, real)) return Value(real);
            break;
        case Representation::kBoolean:
            if (bool flag = false; ToBoolean(plain, flag)) return Value(flag);
            break;
        default:
            if (auto* text = std::get_if<std::string>(&plain)) return Value(std::move(*text));
            break;
    }
    return Mismatch(type, DescribeVariant(variant));
}

// The element as a variant that borrows what the array owns.
VARIANT BorrowElement(VARTYPE element_type, const char* element, size_t size) noexcept {
    VARIANT borrowed{};
    if (element_type == VT_VARIANT) {
        std::memcpy(&borrowed, element, sizeof borrowed);
        return borrowed;
    }
    borrowed.vt = element_type;
    std::memcpy(&borrowed.llVal, element, size < sizeof borrowed.llVal ? size : sizeof borrowed.llVal);
    return borrowed;
}

Result<Value> ReadArray(const PropertyType& type, SAFEARRAY* source, UnwrapObject unwrap) {
    if (!source) return Value();
    if (SafeArrayGetDim(source) != 1) return Mismatch(type, "an array of several dimensions");
    LONG lower = 0, upper = 0;
    VARTYPE element_type = VT_EMPTY;
    if (FAILED(SafeArrayGetLBound(source, 1, &lower)) || FAILED(SafeArrayGetUBound(source, 1, &upper)) ||
        FAILED(SafeArrayGetVartype(source, &element_type))) {
        return Mismatch(type, "an array whose bounds cannot be read");
    }
    const int64_t count = int64_t{upper} - lower + 1;
    if (count < 0 || static_cast<uint64_t>(count) > kMaxArrayElements)
        return Mismatch(type, "an array of that many elements");
    Array elements;
    if (count == 0) return Value(std::move(elements));
    const ElementAccess access(source);
    if (!access.data()) return Mismatch(type, "an array that cannot be locked");
    elements.reserve(static_cast<size_t>(count));
    const size_t size = SafeArrayGetElemsize(source);
    for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
        const VARIANT element = BorrowElement(element_type, access.data() + i * size, size);
        // In an array, unlike alone, a text without a string is a null element.
        if (element.vt == VT_BSTR && !element.bstrVal) {
            elements.emplace_back();
            continue;
        }
        Result<Value> value = ReadScalar(type, element, unwrap);
        if (!value.ok())
            return Status(value.code(), "element " + std::to_string(i) + ": " + value.status().reason());
        std::visit(
            [&](auto&& held) {
                if constexpr (!std::is_same_v<std::decay_t<decltype(held)>, Array>)
                    elements.emplace_back(std::forward<decltype(held)>(held));
            },
            std::move(*value));
    }
    return Value(std::move(elements));
}

}  // namespace

Result<BSTR> MakeBstr(std::string_view utf8) {
    // Nearly all text is ASCII, which one pass both checks and converts.
    BSTR text = SysAllocStringLen(nullptr, static_cast<UINT>(utf8.size()));
    if (!text) throw std::bad_alloc();
    if (WriteWideAscii(utf8, text)) return text;
    SysFreeString(text);

    const long units = CountWideUnits(utf8);
    if (units < 0)
        return Status(WBEM_E_CRITICAL_ERROR, "a text in the store is damaged: it is not valid UTF-8");
    text = SysAllocStringLen(nullptr, static_cast<UINT>(units));
    if (!text) throw std::bad_alloc();
    WriteWide(utf8, text);
    return text;
}

Status ToVariant(const PropertyType& type, const ValueView& value, WrapObject wrap, VARIANT& variant) {
    VARIANT made{};
    if (IsNull(value)) {
        made.vt = VT_NULL;
    } else if (const auto* array = std::get_if<const Array*>(&value)) {
        SERVICE_RETURN_IF_ERROR(StoreArray(type.type, **array, wrap, made));
    } else {
        SERVICE_RETURN_IF_ERROR(StoreScalar(type.type, value, wrap, made));
        made.vt = VariantTypeOf(type.type);
    }
    variant = made;
    return {};
}

Result<SAFEARRAY*> MakeNameArray(const Array& names) {
    const auto no_objects = [](const ObjectPtr&) -> Result<IUnknown*> { return nullptr; };
    VARIANT made{};
    SERVICE_RETURN_IF_ERROR(StoreArray(CimType::kString, names, no_objects, made));
    return made.parray;
}

Result<Value> FromVariant(const PropertyType& type, const VARIANT& variant, UnwrapObject unwrap) {
    if (variant.vt & VT_BYREF) {
        CComVariant direct;
        const HRESULT copied = VariantCopyInd(&direct, &variant);
        if (copied == E_OUTOFMEMORY) throw std::bad_alloc();
        if (FAILED(copied)) return Mismatch(type, DescribeVariant(variant));
        return FromVariant(type, direct, unwrap);
    }
    if (variant.vt == VT_NULL) return Value();
    if (type.is_array) {
        if (!(variant.vt & VT_ARRAY)) return Mismatch(type, DescribeVariant(variant));
        return ReadArray(type, variant.parray, unwrap);
    }
    return ReadScalar(type, variant, unwrap);
}

}  // namespace service
