#include <oleauto.h>

namespace {

constexpr VARTYPE MODIFIERS = VT_ARRAY | VT_BYREF;

VARTYPE BaseOf(VARTYPE type) noexcept {
    return static_cast<VARTYPE>(type & ~MODIFIERS);
}

bool IsArray(VARTYPE type) noexcept {
    return (type & VT_ARRAY) != 0;
}
bool IsReference(VARTYPE type) noexcept {
    return (type & VT_BYREF) != 0;
}

// The types that a variant can have. VT_EMPTY and VT_NULL take no modifier; VT_VARIANT must have one.
bool IsVariantType(VARTYPE type) noexcept {
    switch (BaseOf(type)) {
        case VT_EMPTY:
        case VT_NULL:
            return type == BaseOf(type);
        case VT_VARIANT:
            return type != VT_VARIANT;
        case VT_I1:
        case VT_UI1:
        case VT_I2:
        case VT_UI2:
        case VT_I4:
        case VT_UI4:
        case VT_I8:
        case VT_UI8:
        case VT_INT:
        case VT_UINT:
        case VT_R4:
        case VT_R8:
        case VT_CY:
        case VT_DATE:
        case VT_BSTR:
        case VT_ERROR:
        case VT_BOOL:
        case VT_UNKNOWN:
        case VT_DISPATCH:
            return true;
        default:
            return false;
    }
}

HRESULT CopyString(BSTR source, BSTR* copy) noexcept {
    *copy = source != nullptr
                ? SysAllocStringByteLen(reinterpret_cast<LPCSTR>(source), SysStringByteLen(source))
                : nullptr;
    return *copy == nullptr && source != nullptr ? E_OUTOFMEMORY : S_OK;
}

// Makes the unset `copy` a deep copy; it is empty when that fails.
HRESULT MakeCopy(VARIANT* copy, const VARIANT* source) noexcept {
    VariantInit(copy);
    if (!IsVariantType(source->vt)) return DISP_E_BADVARTYPE;

    VARIANT made = *source;
    HRESULT status = S_OK;
    if (!IsReference(source->vt)) {
        if (IsArray(source->vt)) {
            status = SafeArrayCopy(source->parray, &made.parray);
        } else if (source->vt == VT_BSTR) {
            status = CopyString(source->bstrVal, &made.bstrVal);
        } else if ((source->vt == VT_UNKNOWN || source->vt == VT_DISPATCH) && source->punkVal != nullptr) {
            source->punkVal->AddRef();
        }
    }
    if (SUCCEEDED(status)) *copy = made;
    return status;
}

// Puts a copy that was made with `status` in the place of `target`.
HRESULT ReplaceBy(VARIANT* target, VARIANT copy, HRESULT status) noexcept {
    const HRESULT cleared = VariantClear(target);
    if (FAILED(cleared)) {
        VariantClear(&copy);
        return cleared;
    }
    *target = copy;
    return status;
}

// What the reference leads to, as a variant that owns nothing. `source` has VT_BYREF and a valid type.
VARIANT Referenced(const VARIANT* source) noexcept {
    VARIANT value{};
    value.vt = static_cast<VARTYPE>(source->vt & ~VT_BYREF);
    if (IsArray(source->vt)) {
        value.parray = *source->pparray;
        return value;
    }
    switch (value.vt) {
        case VT_I1:
        case VT_UI1:
            value.bVal = *source->pbVal;
            break;
        case VT_I2:
        case VT_UI2:
        case VT_BOOL:
            value.uiVal = *source->puiVal;
            break;
        case VT_I4:
        case VT_UI4:
        case VT_INT:
        case VT_UINT:
        case VT_ERROR:
            value.ulVal = *source->pulVal;
            break;
        case VT_R4:
            value.fltVal = *source->pfltVal;
            break;
        case VT_R8:
        case VT_DATE:
            value.dblVal = *source->pdblVal;
            break;
        case VT_BSTR:
            value.bstrVal = *source->pbstrVal;
            break;
        case VT_UNKNOWN:
        case VT_DISPATCH:
            value.punkVal = *source->ppunkVal;
            break;
        default:
            value.llVal = *source->pllVal;
            break;
    }
    return value;
}

}  // namespace

HRESULT VariantClear(VARIANT* value) noexcept {
    if (value == nullptr) return E_INVALIDARG;
    if (!IsVariantType(value->vt)) return DISP_E_BADVARTYPE;
    if (!IsReference(value->vt)) {
        if (IsArray(value->vt)) {
            const HRESULT status = SafeArrayDestroy(value->parray);
            if (FAILED(status)) return status;
        } else if (value->vt == VT_BSTR) {
            SysFreeString(value->bstrVal);
        } else if (value->vt == VT_UNKNOWN || value->vt == VT_DISPATCH) {
            // Emptied first: the object's last release may lead back to this variant.
            IUnknown* const object = value->punkVal;
            VariantInit(value);
            if (object != nullptr) object->Release();
            return S_OK;
        }
    }
    VariantInit(value);
    return S_OK;
}

HRESULT VariantCopy(VARIANT* target, const VARIANT* source) noexcept {
    if (target == nullptr || source == nullptr) return E_INVALIDARG;
    if (target == source) return S_OK;
    // The copy comes before the clearing, since the source may be a part of what the target holds.
    VARIANT copy;
    const HRESULT status = MakeCopy(&copy, source);
    return ReplaceBy(target, copy, status);
}

HRESULT VariantCopyInd(VARIANT* target, const VARIANT* source) noexcept {
    if (target == nullptr || source == nullptr) return E_INVALIDARG;
    if (!IsReference(source->vt)) return VariantCopy(target, source);
    if (!IsVariantType(source->vt)) return DISP_E_BADVARTYPE;
    if (source->byref == nullptr) return E_INVALIDARG;

    if (source->vt == (VT_BYREF | VT_VARIANT)) {
        const VARIANT* const inner = source->pvarVal;
        // A reference to a reference is followed once only.
        if (inner->vt == (VT_BYREF | VT_VARIANT)) return E_INVALIDARG;
        return VariantCopyInd(target, inner);
    }
    const VARIANT value = Referenced(source);
    VARIANT copy;
    const HRESULT status = MakeCopy(&copy, &value);
    return ReplaceBy(target, copy, status);
}
