// CComVariant, a VARIANT that owns its value. Include <atlbase.h>, which describes it.
#pragma once

#include <concepts>
#include <utility>

#include <oleauto.h>

#include "platform/automation/atl_string.h"

// Copies are deep. A constructor or assignment throws CAtlException with the status of the copy that failed.
class CComVariant : public VARIANT {
 public:
    CComVariant() noexcept : VARIANT{} {}
    CComVariant(const VARIANT& source) : VARIANT{} { Check(::VariantCopy(this, &source)); }
    CComVariant(const CComVariant& source) : CComVariant(static_cast<const VARIANT&>(source)) {}
    CComVariant(CComVariant&& source) noexcept : VARIANT(source) { ::VariantInit(&source); }

    // Strings, VT_BSTR; a null text gives a null string.
    CComVariant(LPCOLESTR text) : VARIANT{} { Set(VT_BSTR, &VARIANT::bstrVal, CComBSTR(text).Detach()); }
    CComVariant(LPCSTR text) : VARIANT{} { Set(VT_BSTR, &VARIANT::bstrVal, CComBSTR(text).Detach()); }
    CComVariant(const CComBSTR& text) : VARIANT{} {
        Set(VT_BSTR, &VARIANT::bstrVal, CComBSTR(text).Detach());
    }

    // Numbers. Another type than those named throws E_INVALIDARG. Where a long has more than 32 bits, a value
    // that does not fit them is kept whole in 64.
    CComVariant(bool value) noexcept : VARIANT{} {
        Set(VT_BOOL, &VARIANT::boolVal, value ? VARIANT_TRUE : VARIANT_FALSE);
    }
    CComVariant(int value, VARTYPE type = VT_I4) : VARIANT{} {  // VT_I4, VT_INT
        if (type != VT_I4 && type != VT_INT) AtlThrow(E_INVALIDARG);
        Set(type, &VARIANT::intVal, value);
    }
    CComVariant(long value, VARTYPE type = VT_I4) : VARIANT{} { SetLong(value, type); }  // VT_I4, VT_ERROR
    CComVariant(BYTE value) noexcept : VARIANT{} { Set(VT_UI1, &VARIANT::bVal, value); }
    CComVariant(char value) noexcept : VARIANT{} { Set(VT_I1, &VARIANT::cVal, value); }
    CComVariant(short value) noexcept : VARIANT{} { Set(VT_I2, &VARIANT::iVal, value); }
    CComVariant(unsigned short value) noexcept : VARIANT{} { Set(VT_UI2, &VARIANT::uiVal, value); }
    CComVariant(unsigned int value, VARTYPE type = VT_UI4) : VARIANT{} {  // VT_UI4, VT_UINT
        if (type != VT_UI4 && type != VT_UINT) AtlThrow(E_INVALIDARG);
        Set(type, &VARIANT::uintVal, value);
    }
    CComVariant(unsigned long value) noexcept : VARIANT{} {
        if (std::in_range<ULONG>(value)) {
            Set(VT_UI4, &VARIANT::ulVal, static_cast<ULONG>(value));
        } else {
            Set(VT_UI8, &VARIANT::ullVal, static_cast<ULONGLONG>(value));
        }
    }
    CComVariant(long long value) noexcept : VARIANT{} {
        Set(VT_I8, &VARIANT::llVal, static_cast<LONGLONG>(value));
    }
    CComVariant(unsigned long long value) noexcept : VARIANT{} {
        Set(VT_UI8, &VARIANT::ullVal, static_cast<ULONGLONG>(value));
    }
    CComVariant(float value) noexcept : VARIANT{} { Set(VT_R4, &VARIANT::fltVal, value); }
    CComVariant(double value, VARTYPE type = VT_R8) : VARIANT{} {  // VT_R8, VT_DATE
        if (type != VT_R8 && type != VT_DATE) AtlThrow(E_INVALIDARG);
        Set(type, &VARIANT::dblVal, value);
    }
    CComVariant(CY value) noexcept : VARIANT{} { Set(VT_CY, &VARIANT::cyVal, value); }

    // VT_UNKNOWN with a reference of its own; null is allowed.
    CComVariant(IUnknown* object) noexcept : VARIANT{} {
        if (object != nullptr) object->AddRef();
        Set(VT_UNKNOWN, &VARIANT::punkVal, object);
    }
    // A copy of the array; E_INVALIDARG for null.
    CComVariant(const SAFEARRAY* array) : VARIANT{} {
        SAFEARRAY* const source = const_cast<SAFEARRAY*>(array);
        VARTYPE type = VT_EMPTY;
        SAFEARRAY* copy = nullptr;
        Check(::SafeArrayGetVartype(source, &type));
        Check(::SafeArrayCopy(source, &copy));
        Set(static_cast<VARTYPE>(type | VT_ARRAY), &VARIANT::parray, copy);
    }

    ~CComVariant() { ::VariantClear(this); }

    CComVariant& operator=(const VARIANT& source) {
        Check(::VariantCopy(this, &source));
        return *this;
    }
    CComVariant& operator=(const CComVariant& source) { return *this = static_cast<const VARIANT&>(source); }
    CComVariant& operator=(CComVariant&& source) noexcept {
        VARIANT taken = source;
        ::VariantInit(&source);
        std::swap(static_cast<VARIANT&>(*this), taken);
        ::VariantClear(&taken);
        return *this;
    }
    // Every other value takes the type that its constructor gives it.
    template <class Value>
    requires std::constructible_from<CComVariant, const Value&> &&
        (!std::derived_from<Value, VARIANT>)CComVariant&
        operator=(const Value& value) {
        return *this = CComVariant(value);
    }

    // As the published calls of these names; they return their status and throw nothing.
    HRESULT Clear() noexcept { return ::VariantClear(this); }
    HRESULT Copy(const VARIANT* source) noexcept { return ::VariantCopy(this, source); }
    HRESULT ChangeType(VARTYPE type, const VARIANT* source = nullptr) noexcept {
        return ::VariantChangeType(this, source != nullptr ? source : this, 0, type);
    }

    // Attach takes over `source` and leaves it empty; Detach stores the value in `target`, which is cleared
    // first. On a failure both sides are as they were.
    HRESULT Attach(VARIANT* source) noexcept {
        return source == nullptr ? E_INVALIDARG : Move(*source, *this);
    }
    HRESULT Detach(VARIANT* target) noexcept { return target == nullptr ? E_POINTER : Move(*this, *target); }

 private:
    static void Check(HRESULT status) {
        if (FAILED(status)) AtlThrow(status);
    }

    template <class Value>
    void Set(VARTYPE type, Value VARIANT::*member, Value value) noexcept {
        vt = type;
        this->*member = value;
    }

    void SetLong(long value, VARTYPE type) {
        if (type == VT_I4 && !std::in_range<LONG>(value)) {
            return Set(VT_I8, &VARIANT::llVal, static_cast<LONGLONG>(value));
        }
        const bool fits = std::in_range<LONG>(value) || std::in_range<ULONG>(value);
        if ((type != VT_I4 && type != VT_ERROR) || !fits) AtlThrow(E_INVALIDARG);
        Set(type, &VARIANT::lVal, static_cast<LONG>(value));
    }

    static HRESULT Move(VARIANT& source, VARIANT& target) noexcept {
        if (&source == &target) return S_OK;
        const HRESULT status = ::VariantClear(&target);
        if (FAILED(status)) return status;
        target = std::exchange(source, VARIANT{});
        return S_OK;
    }
};
