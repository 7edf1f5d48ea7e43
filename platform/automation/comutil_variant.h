// _variant_t, a VARIANT that owns its value. Include <comutil.h>, which describes it.
#pragma once

#include <utility>

#include <comutil.h>
#include <oleauto.h>
#include <platform_api.h>

class _variant_t : public VARIANT {
 public:
    _variant_t() noexcept : VARIANT{} {}
    // Deep copies, as VariantCopy makes them; throw its status. A null pointer throws E_POINTER.
    _variant_t(const VARIANT& source) : VARIANT{} { _com_util::CheckError(::VariantCopy(this, &source)); }
    _variant_t(const VARIANT* source) : VARIANT{} {
        _com_util::CheckError(source == nullptr ? E_POINTER : ::VariantCopy(this, source));
    }
    _variant_t(const _variant_t& source) : _variant_t(static_cast<const VARIANT&>(source)) {}
    _variant_t(_variant_t&& source) noexcept : VARIANT(source) { ::VariantInit(&source); }
    // Copies the value, or takes it over and leaves `source` empty.
    _variant_t(VARIANT& source, bool copy) : VARIANT{} {
        if (copy) {
            _com_util::CheckError(::VariantCopy(this, &source));
        } else {
            static_cast<VARIANT&>(*this) = source;
            ::VariantInit(&source);
        }
    }

    // Numbers. Another type than those named throws E_INVALIDARG.
    _variant_t(short value, VARTYPE type = VT_I2) : VARIANT{} {  // VT_I2, VT_BOOL
        if (type != VT_I2 && type != VT_BOOL) _com_issue_error(E_INVALIDARG);
        vt = type;
        iVal = type == VT_BOOL ? Boolean(value != 0) : value;
    }
    // VT_I4, VT_ERROR, VT_BOOL. A number that 32 bits cannot hold is kept whole as VT_I8; a status code may
    // be given signed or unsigned.
    _variant_t(long value, VARTYPE type = VT_I4) : VARIANT{} { SetLong(value, type); }
    _variant_t(float value) noexcept : VARIANT{} { Set(VT_R4, &VARIANT::fltVal, value); }
    _variant_t(double value, VARTYPE type = VT_R8) : VARIANT{} {  // VT_R8, VT_DATE
        if (type != VT_R8 && type != VT_DATE) _com_issue_error(E_INVALIDARG);
        Set(type, &VARIANT::dblVal, value);
    }
    _variant_t(const CY& value) noexcept : VARIANT{} { Set(VT_CY, &VARIANT::cyVal, value); }
    _variant_t(bool value) noexcept : VARIANT{} { Set(VT_BOOL, &VARIANT::boolVal, Boolean(value)); }
    _variant_t(BYTE value) noexcept : VARIANT{} { Set(VT_UI1, &VARIANT::bVal, value); }
    _variant_t(char value) noexcept : VARIANT{} { Set(VT_I1, &VARIANT::cVal, value); }
    _variant_t(unsigned short value) noexcept : VARIANT{} { Set(VT_UI2, &VARIANT::uiVal, value); }
    // A number that 32 bits cannot hold is kept whole as VT_UI8.
    _variant_t(unsigned long value) noexcept : VARIANT{} {
        if (std::in_range<ULONG>(value)) {
            Set(VT_UI4, &VARIANT::ulVal, static_cast<ULONG>(value));
        } else {
            Set(VT_UI8, &VARIANT::ullVal, static_cast<ULONGLONG>(value));
        }
    }
    _variant_t(int value) noexcept : VARIANT{} { Set(VT_INT, &VARIANT::intVal, value); }
    _variant_t(unsigned int value) noexcept : VARIANT{} { Set(VT_UINT, &VARIANT::uintVal, value); }
    _variant_t(long long value) noexcept : VARIANT{} {
        Set(VT_I8, &VARIANT::llVal, static_cast<LONGLONG>(value));
    }
    _variant_t(unsigned long long value) noexcept : VARIANT{} {
        Set(VT_UI8, &VARIANT::ullVal, static_cast<ULONGLONG>(value));
    }

    // Strings, VT_BSTR; a null text gives a null string. The first copies the whole length.
    _variant_t(const _bstr_t& text) : VARIANT{} { TakeText(text.copy()); }
    _variant_t(const wchar_t* text) : VARIANT{} { TakeText(_bstr_t(text).Detach()); }
    _variant_t(const char* text) : VARIANT{} { TakeText(_com_util::ConvertStringToBSTR(text)); }

    // VT_UNKNOWN; null is allowed. With `addReference` the variant has a reference of its own, else it takes
    // over the caller's.
    _variant_t(IUnknown* object, bool addReference = true) noexcept : VARIANT{} {
        if (object != nullptr && addReference) object->AddRef();
        Set(VT_UNKNOWN, &VARIANT::punkVal, object);
    }

    ~_variant_t() {
        if (OwnsMemory()) ::VariantClear(this);
    }

    // On a failure the variant is empty, or unchanged when it holds a locked array.
    _variant_t& operator=(const VARIANT& source) {
        _com_util::CheckError(::VariantCopy(this, &source));
        return *this;
    }
    _variant_t& operator=(const VARIANT* source) {
        _com_util::CheckError(source == nullptr ? E_POINTER : ::VariantCopy(this, source));
        return *this;
    }
    _variant_t& operator=(const _variant_t& source) { return *this = static_cast<const VARIANT&>(source); }
    _variant_t& operator=(_variant_t&& source) noexcept {
        VARIANT taken = source;
        ::VariantInit(&source);
        std::swap(static_cast<VARIANT&>(*this), taken);
        ::VariantClear(&taken);
        return *this;
    }

    // A short or long keeps an old type VT_BOOL, a long also VT_ERROR and a double VT_DATE; else the type is
    // the constructor's.
    _variant_t& operator=(short value) { return *this = _variant_t(value, vt == VT_BOOL ? VT_BOOL : VT_I2); }
    _variant_t& operator=(long value) {
        return *this = _variant_t(value, vt == VT_BOOL || vt == VT_ERROR ? vt : VARTYPE{VT_I4});
    }
    _variant_t& operator=(double value) { return *this = _variant_t(value, vt == VT_DATE ? VT_DATE : VT_R8); }
    _variant_t& operator=(float value) { return *this = _variant_t(value); }
    _variant_t& operator=(const CY& value) { return *this = _variant_t(value); }
    _variant_t& operator=(bool value) { return *this = _variant_t(value); }
    _variant_t& operator=(BYTE value) { return *this = _variant_t(value); }
    _variant_t& operator=(char value) { return *this = _variant_t(value); }
    _variant_t& operator=(unsigned short value) { return *this = _variant_t(value); }
    _variant_t& operator=(unsigned long value) { return *this = _variant_t(value); }
    _variant_t& operator=(int value) { return *this = _variant_t(value); }
    _variant_t& operator=(unsigned int value) { return *this = _variant_t(value); }
    _variant_t& operator=(long long value) { return *this = _variant_t(value); }
    _variant_t& operator=(unsigned long long value) { return *this = _variant_t(value); }
    _variant_t& operator=(const _bstr_t& text) { return *this = _variant_t(text); }
    _variant_t& operator=(const wchar_t* text) { return *this = _variant_t(text); }
    _variant_t& operator=(const char* text) { return *this = _variant_t(text); }
    _variant_t& operator=(IUnknown* object) { return *this = _variant_t(object); }

    // The value in another type, as VariantChangeType makes it; throw its status.
    operator short() const { return As(VT_I2, &VARIANT::iVal); }
    operator int() const { return As(VT_INT, &VARIANT::intVal); }
    operator long() const { return vt == VT_I8 ? static_cast<long>(llVal) : As(VT_I4, &VARIANT::lVal); }
    operator long long() const { return As(VT_I8, &VARIANT::llVal); }
    operator BYTE() const { return As(VT_UI1, &VARIANT::bVal); }
    operator unsigned short() const { return As(VT_UI2, &VARIANT::uiVal); }
    operator unsigned int() const { return As(VT_UINT, &VARIANT::uintVal); }
    operator unsigned long() const {
        return vt == VT_UI8 ? static_cast<unsigned long>(ullVal) : As(VT_UI4, &VARIANT::ulVal);
    }
    operator unsigned long long() const { return As(VT_UI8, &VARIANT::ullVal); }
    operator float() const { return As(VT_R4, &VARIANT::fltVal); }
    operator double() const { return As(VT_R8, &VARIANT::dblVal); }
    operator bool() const { return As(VT_BOOL, &VARIANT::boolVal) != VARIANT_FALSE; }

    // True for the same type and value; strings compare byte by byte, interfaces by address. A type that has
    // no comparison (an array, a value by reference) throws E_INVALIDARG.
    bool operator==(const VARIANT& other) const { return Equal(*this, other); }
    bool operator==(const _variant_t& other) const { return Equal(*this, other); }
    bool operator==(const VARIANT* other) const { return other != nullptr && Equal(*this, *other); }

    // Empties the variant; throws DISP_E_ARRAYISLOCKED for a locked array.
    void Clear() { _com_util::CheckError(::VariantClear(this)); }

    // Takes over `source` and leaves it empty.
    void Attach(VARIANT& source) {
        if (this == &source) return;
        Clear();
        static_cast<VARIANT&>(*this) = source;
        ::VariantInit(&source);
    }
    // Hands the value to the caller, who clears it, and leaves the variant empty.
    VARIANT Detach() noexcept { return std::exchange(static_cast<VARIANT&>(*this), VARIANT{}); }

    VARIANT& GetVARIANT() noexcept { return *this; }
    // Empties the variant and hands out the place for a new value.
    VARIANT* GetAddress() {
        Clear();
        return this;
    }

    // Converts `source`, or the variant itself, to `type`; throws the status of VariantChangeType.
    void ChangeType(VARTYPE type, const _variant_t* source = nullptr) {
        const _variant_t& value = source != nullptr ? *source : *this;
        if (&value == this && vt == type) return;
        _com_util::CheckError(::VariantChangeType(this, &value, 0, type));
    }
    void SetString(const char* text) { *this = text; }

 private:
    static VARIANT_BOOL Boolean(bool value) noexcept { return value ? VARIANT_TRUE : VARIANT_FALSE; }

    bool OwnsMemory() const noexcept {
        return vt == VT_BSTR || vt == VT_UNKNOWN || vt == VT_DISPATCH || (vt & VT_ARRAY) != 0;
    }

    template <class Value>
    void Set(VARTYPE type, Value VARIANT::*member, Value value) noexcept {
        vt = type;
        this->*member = value;
    }

    void TakeText(BSTR text) noexcept { Set(VT_BSTR, &VARIANT::bstrVal, text); }

    void SetLong(long value, VARTYPE type) {
        if (type == VT_BOOL) return Set(VT_BOOL, &VARIANT::boolVal, Boolean(value != 0));
        if (type == VT_I4 && !std::in_range<LONG>(value)) {
            return Set(VT_I8, &VARIANT::llVal, static_cast<LONGLONG>(value));
        }
        const bool fits = std::in_range<LONG>(value) || std::in_range<ULONG>(value);
        if ((type != VT_I4 && type != VT_ERROR) || !fits) _com_issue_error(E_INVALIDARG);
        Set(type, &VARIANT::lVal, static_cast<LONG>(value));
    }

    template <class Value>
    Value As(VARTYPE type, Value VARIANT::*member) const {
        if (vt == type) return this->*member;
        _variant_t converted;
        converted.ChangeType(type, this);
        return converted.*member;
    }

    MGMT_PLATFORM_API static bool Equal(const VARIANT& left, const VARIANT& right);
};

inline _bstr_t::_bstr_t(const _variant_t& value) {
    if (value.vt == VT_BSTR) {
        m_text = CopyOf(value.bstrVal);
        return;
    }
    _variant_t text;
    text.ChangeType(VT_BSTR, &value);
    m_text = text.Detach().bstrVal;
}
