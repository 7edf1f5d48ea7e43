#include <atomic>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <optional>
#include <utility>

#include <oleauto.h>

// An array's memory: one block for prefix and descriptor, one for the elements.
//
//   prefix: element type, padding | SAFEARRAY with cDims bounds
//
// Every change to elements goes through CopyElement and ClearElement, which know the three kinds of element
// that own something: strings, interfaces and variants.

namespace {

struct Prefix {
    std::uint64_t type;
    std::uint64_t padding;
};

constexpr std::size_t MAX_DIMENSIONS = std::numeric_limits<USHORT>::max();
constexpr std::uint64_t MAX_BYTES = std::numeric_limits<ULONG>::max();
constexpr ULONG POINTER_SIZE = sizeof(void*);
constexpr ULONG MAX_LOCKS = std::numeric_limits<USHORT>::max();

struct ElementKind {
    ULONG size;
    USHORT features;
};

std::optional<ElementKind> KindOf(VARTYPE type) noexcept {
    switch (type) {
        case VT_I1:
        case VT_UI1:
            return ElementKind{1, 0};
        case VT_I2:
        case VT_UI2:
        case VT_BOOL:
            return ElementKind{2, 0};
        case VT_I4:
        case VT_UI4:
        case VT_INT:
        case VT_UINT:
        case VT_ERROR:
        case VT_R4:
            return ElementKind{4, 0};
        case VT_I8:
        case VT_UI8:
        case VT_R8:
        case VT_CY:
        case VT_DATE:
            return ElementKind{8, 0};
        case VT_BSTR:
            return ElementKind{POINTER_SIZE, FADF_BSTR};
        case VT_UNKNOWN:
            return ElementKind{POINTER_SIZE, FADF_UNKNOWN};
        case VT_DISPATCH:
            return ElementKind{POINTER_SIZE, FADF_DISPATCH};
        case VT_VARIANT:
            return ElementKind{sizeof(VARIANT), FADF_VARIANT};
        default:
            return std::nullopt;
    }
}

Prefix* PrefixOf(SAFEARRAY* array) noexcept {
    return reinterpret_cast<Prefix*>(array) - 1;
}

SAFEARRAYBOUND* BoundsOf(SAFEARRAY* array) noexcept {
    return array->rgsabound;
}

// The bound of a dimension that counts from 1 at the leftmost, or null.
SAFEARRAYBOUND* BoundOf(SAFEARRAY* array, UINT dimension) noexcept {
    if (dimension == 0 || dimension > array->cDims) return nullptr;
    return BoundsOf(array) + (array->cDims - dimension);
}

bool HasUpperBound(const SAFEARRAYBOUND& bound) noexcept {
    return std::in_range<LONG>(std::int64_t{bound.lLbound} + bound.cElements - 1);
}

// The size of all elements, or nothing when it or the count exceeds 32 bits or a bound is out of range. An
// empty dimension makes the array empty, however large the others are.
std::optional<std::size_t> DataSize(const SAFEARRAYBOUND* bounds, UINT dimensions,
                                    ULONG elementSize) noexcept {
    std::uint64_t count = 1;
    for (UINT i = 0; i < dimensions; ++i) {
        if (!HasUpperBound(bounds[i])) return std::nullopt;
        if (bounds[i].cElements == 0) count = 0;
    }
    for (UINT i = 0; i < dimensions && count != 0; ++i) {
        count *= bounds[i].cElements;
        if (count > MAX_BYTES / elementSize) return std::nullopt;
    }
    return static_cast<std::size_t>(count * elementSize);
}

std::size_t ElementCount(SAFEARRAY* array) noexcept {
    std::size_t count = 1;
    for (UINT i = 0; i < array->cDims; ++i)
        count *= BoundsOf(array)[i].cElements;
    return count;
}

bool OwnsMemory(const SAFEARRAY* array) noexcept {
    return (array->fFeatures & (FADF_BSTR | FADF_UNKNOWN | FADF_DISPATCH | FADF_VARIANT)) != 0;
}

bool HoldsInterfaces(const SAFEARRAY* array) noexcept {
    return (array->fFeatures & (FADF_UNKNOWN | FADF_DISPATCH)) != 0;
}

template <class Value>
Value Read(const void* place) noexcept {
    Value value;
    std::memcpy(&value, place, sizeof(value));
    return value;
}

IUnknown* ReadInterface(const void* place) noexcept {
    return static_cast<IUnknown*>(Read<void*>(place));
}

template <class Value>
void Write(void* place, Value value) noexcept {
    std::memcpy(place, &value, sizeof(value));
}

HRESULT CopyString(void* target, BSTR source) noexcept {
    BSTR copy = nullptr;
    if (source != nullptr) {
        copy = SysAllocStringByteLen(reinterpret_cast<LPCSTR>(source), SysStringByteLen(source));
        if (copy == nullptr) return E_OUTOFMEMORY;
    }
    Write(target, copy);
    return S_OK;
}

// Stores a copy of the element at `source` in `target`, which is overwritten unless the copy fails.
HRESULT CopyElement(const SAFEARRAY* array, void* target, const void* source) noexcept {
    if ((array->fFeatures & FADF_BSTR) != 0) return CopyString(target, Read<BSTR>(source));
    if ((array->fFeatures & FADF_VARIANT) != 0) {
        VARIANT copy{};
        const VARIANT value = Read<VARIANT>(source);
        const HRESULT status = VariantCopy(&copy, &value);
        if (SUCCEEDED(status)) Write(target, copy);
        return status;
    }
    if (HoldsInterfaces(array)) {
        IUnknown* const object = ReadInterface(source);
        if (object != nullptr) object->AddRef();
    }
    std::memcpy(target, source, array->cbElements);
    return S_OK;
}

// Frees what the element at `place` owns; the element itself is left as it is.
HRESULT ClearElement(const SAFEARRAY* array, void* place) noexcept {
    if ((array->fFeatures & FADF_BSTR) != 0) {
        SysFreeString(Read<BSTR>(place));
    } else if ((array->fFeatures & FADF_VARIANT) != 0) {
        VARIANT value = Read<VARIANT>(place);
        return VariantClear(&value);
    } else if (HoldsInterfaces(array)) {
        IUnknown* const object = ReadInterface(place);
        if (object != nullptr) object->Release();
    }
    return S_OK;
}

void FreeMemory(SAFEARRAY* array) noexcept {
    ::operator delete(array->pvData);
    ::operator delete(PrefixOf(array));
}

// `bounds` in the order of the descriptor, the rightmost dimension first.
SAFEARRAY* Allocate(VARTYPE type, UINT dimensions, const SAFEARRAYBOUND* bounds) noexcept {
    const std::optional<ElementKind> kind = KindOf(type);
    if (!kind) return nullptr;
    const std::optional<std::size_t> dataSize = DataSize(bounds, dimensions, kind->size);
    if (!dataSize) return nullptr;

    const std::size_t descriptorSize = sizeof(SAFEARRAY) + (dimensions - 1) * sizeof(SAFEARRAYBOUND);
    void* const memory = ::operator new(sizeof(Prefix) + descriptorSize, std::nothrow);
    if (memory == nullptr) return nullptr;
    auto* const prefix = new (memory) Prefix{type, 0};
    auto* const array = new (prefix + 1) SAFEARRAY{};
    array->cDims = static_cast<USHORT>(dimensions);
    array->fFeatures = static_cast<USHORT>(kind->features | FADF_HAVEVARTYPE);
    array->cbElements = kind->size;
    std::memcpy(BoundsOf(array), bounds, dimensions * sizeof(SAFEARRAYBOUND));

    array->pvData = ::operator new(*dataSize, std::nothrow);
    if (array->pvData == nullptr) {
        FreeMemory(array);
        return nullptr;
    }
    std::memset(array->pvData, 0, *dataSize);
    return array;
}

// Puts a copy of a string in the place of the one at `element`.
HRESULT ReplaceString(void* element, BSTR source) noexcept {
    BSTR copy = nullptr;
    const HRESULT status = CopyString(&copy, source);
    if (FAILED(status)) return status;
    const BSTR old = Read<BSTR>(element);
    Write(element, copy);
    if (old != nullptr) SysFreeString(old);
    return S_OK;
}

// The leftmost index runs fastest.
HRESULT FindElement(SAFEARRAY* array, const LONG* indices, void** element) noexcept {
    std::size_t offset = 0;
    for (UINT dimension = array->cDims; dimension > 0; --dimension) {
        const SAFEARRAYBOUND& bound = *BoundOf(array, dimension);
        const std::int64_t position = std::int64_t{indices[dimension - 1]} - bound.lLbound;
        if (position < 0 || position >= bound.cElements) return DISP_E_BADINDEX;
        offset = offset * bound.cElements + static_cast<std::size_t>(position);
    }
    *element = static_cast<unsigned char*>(array->pvData) + offset * array->cbElements;
    return S_OK;
}

}  // namespace

SAFEARRAY* SafeArrayCreate(VARTYPE type, UINT dimensions, const SAFEARRAYBOUND* bounds) noexcept {
    if (dimensions == 0 || dimensions > MAX_DIMENSIONS || bounds == nullptr) return nullptr;
    if (dimensions == 1) return Allocate(type, 1, bounds);

    auto* const reversed =
        static_cast<SAFEARRAYBOUND*>(::operator new(dimensions * sizeof(SAFEARRAYBOUND), std::nothrow));
    if (reversed == nullptr) return nullptr;
    for (UINT i = 0; i < dimensions; ++i)
        reversed[i] = bounds[dimensions - 1 - i];
    SAFEARRAY* const array = Allocate(type, dimensions, reversed);
    ::operator delete(reversed);
    return array;
}

SAFEARRAY* SafeArrayCreateVector(VARTYPE type, LONG lowerBound, ULONG elements) noexcept {
    const SAFEARRAYBOUND bound{elements, lowerBound};
    return Allocate(type, 1, &bound);
}

HRESULT SafeArrayDestroy(SAFEARRAY* array) noexcept {
    if (array == nullptr) return S_OK;
    if (std::atomic_ref(array->cLocks).load() != 0) return DISP_E_ARRAYISLOCKED;
    if (OwnsMemory(array)) {
        auto* const data = static_cast<unsigned char*>(array->pvData);
        const std::size_t count = ElementCount(array);
        for (std::size_t i = 0; i < count; ++i)
            ClearElement(array, data + i * array->cbElements);
    }
    FreeMemory(array);
    return S_OK;
}

HRESULT SafeArrayCopy(SAFEARRAY* array, SAFEARRAY** copy) noexcept {
    if (copy == nullptr) return E_INVALIDARG;
    *copy = nullptr;
    if (array == nullptr) return S_OK;
    SAFEARRAY* const made =
        Allocate(static_cast<VARTYPE>(PrefixOf(array)->type), array->cDims, BoundsOf(array));
    if (made == nullptr) return E_OUTOFMEMORY;

    const std::size_t count = ElementCount(array);
    const auto* const source = static_cast<const unsigned char*>(array->pvData);
    auto* const target = static_cast<unsigned char*>(made->pvData);
    if (!OwnsMemory(array)) {
        std::memcpy(target, source, count * array->cbElements);
    } else {
        for (std::size_t offset = 0; offset < count * array->cbElements; offset += array->cbElements) {
            const HRESULT status = CopyElement(array, target + offset, source + offset);
            if (SUCCEEDED(status)) continue;
            SafeArrayDestroy(made);
            return status;
        }
    }
    *copy = made;
    return S_OK;
}

UINT SafeArrayGetDim(SAFEARRAY* array) noexcept {
    return array != nullptr ? array->cDims : 0;
}

UINT SafeArrayGetElemsize(SAFEARRAY* array) noexcept {
    return array != nullptr ? array->cbElements : 0;
}

HRESULT SafeArrayGetUBound(SAFEARRAY* array, UINT dimension, LONG* upperBound) noexcept {
    if (array == nullptr || upperBound == nullptr) return E_INVALIDARG;
    const SAFEARRAYBOUND* const bound = BoundOf(array, dimension);
    if (bound == nullptr) return DISP_E_BADINDEX;
    *upperBound = static_cast<LONG>(std::int64_t{bound->lLbound} + bound->cElements - 1);
    return S_OK;
}

HRESULT SafeArrayGetLBound(SAFEARRAY* array, UINT dimension, LONG* lowerBound) noexcept {
    if (array == nullptr || lowerBound == nullptr) return E_INVALIDARG;
    const SAFEARRAYBOUND* const bound = BoundOf(array, dimension);
    if (bound == nullptr) return DISP_E_BADINDEX;
    *lowerBound = bound->lLbound;
    return S_OK;
}

HRESULT SafeArrayGetVartype(SAFEARRAY* array, VARTYPE* type) noexcept {
    if (array == nullptr || type == nullptr) return E_INVALIDARG;
    *type = static_cast<VARTYPE>(PrefixOf(array)->type);
    return S_OK;
}

HRESULT SafeArrayLock(SAFEARRAY* array) noexcept {
    if (array == nullptr) return E_INVALIDARG;
    std::atomic_ref locks(array->cLocks);
    ULONG count = locks.load();
    do {
        if (count == MAX_LOCKS) return E_UNEXPECTED;
    } while (!locks.compare_exchange_weak(count, count + 1));
    return S_OK;
}

HRESULT SafeArrayUnlock(SAFEARRAY* array) noexcept {
    if (array == nullptr) return E_INVALIDARG;
    std::atomic_ref locks(array->cLocks);
    ULONG count = locks.load();
    do {
        if (count == 0) return E_UNEXPECTED;
    } while (!locks.compare_exchange_weak(count, count - 1));
    return S_OK;
}

HRESULT SafeArrayAccessData(SAFEARRAY* array, void** data) noexcept {
    if (array == nullptr || data == nullptr) return E_INVALIDARG;
    const HRESULT status = SafeArrayLock(array);
    *data = SUCCEEDED(status) ? array->pvData : nullptr;
    return status;
}

HRESULT SafeArrayUnaccessData(SAFEARRAY* array) noexcept {
    return SafeArrayUnlock(array);
}

HRESULT SafeArrayGetElement(SAFEARRAY* array, const LONG* indices, void* value) noexcept {
    if (array == nullptr || indices == nullptr || value == nullptr) return E_INVALIDARG;
    void* element = nullptr;
    const HRESULT status = FindElement(array, indices, &element);
    return SUCCEEDED(status) ? CopyElement(array, value, element) : status;
}

HRESULT SafeArrayPutElement(SAFEARRAY* array, const LONG* indices, void* value) noexcept {
    if (array == nullptr || indices == nullptr) return E_INVALIDARG;
    void* element = nullptr;
    HRESULT status = FindElement(array, indices, &element);
    if (FAILED(status)) return status;

    // A string or an interface is given itself, so its null is a value; anything else is given by address.
    if ((array->fFeatures & FADF_BSTR) != 0) return ReplaceString(element, static_cast<BSTR>(value));
    const bool isInterface = HoldsInterfaces(array);
    if (!isInterface && value == nullptr) return E_INVALIDARG;
    alignas(VARIANT) unsigned char copy[sizeof(VARIANT)];
    status = CopyElement(array, copy, isInterface ? static_cast<const void*>(&value) : value);
    if (FAILED(status)) return status;

    // The old element is freed last, when the array is whole again: releasing an interface may lead back
    // here.
    alignas(VARIANT) unsigned char old[sizeof(VARIANT)];
    std::memcpy(old, element, array->cbElements);
    std::memcpy(element, copy, array->cbElements);
    status = ClearElement(array, old);
    if (SUCCEEDED(status)) return S_OK;
    std::memcpy(element, old, array->cbElements);
    ClearElement(array, copy);
    return status;
}
