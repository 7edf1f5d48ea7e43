// The one algorithm of the array helpers: a variant's array into a list and back. Internal to the library.
//
//   struct Integers { ... };                               // what is peculiar to an element type, see below
//   array_access::Read<Integers>(source, m_Elements);
//   array_access::Write<Integers>(m_Elements, target);
//
// An element type is told by
//
//   Element     what the list holds
//   Stored      what lies in the array
//   TYPE        the array's element type
//   FromArray   makes what is to be appended (see Append) of a Stored
//   ToArray     puts an Element into an array; the status of SafeArrayPutElement, which keeps a copy of its
//   own Free        frees what an Element owns beyond itself
//
// The functions are stateless; a list belongs to one thread at a time. What FromArray and ToArray throw, and
// std::bad_alloc, passes through; the list and the target are then as they were and nothing is leaked.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include <comutil.h>
#include <oleauto.h>

namespace array_access {

// A list that is being built and frees its elements when it is given up. Exchanged for the list of a helper
// it frees the old one.
template <typename Traits>
class Building {
 public:
    Building() = default;
    ~Building() {
        for (auto& element : elements)
            Traits::Free(element);
    }
    Building(const Building&) = delete;
    Building& operator=(const Building&) = delete;

    std::vector<typename Traits::Element> elements;
};

// Appends a value, or the object of an owning pointer, which the list owns from then on.
template <typename Element>
void Append(std::vector<Element>& elements, std::type_identity_t<Element> element) {
    elements.push_back(std::move(element));
}
template <typename Object>
void Append(std::vector<Object*>& elements, std::unique_ptr<Object> object) {
    elements.push_back(object.get());
    static_cast<void>(object.release());
}

// The locked elements of an array.
class LockedData {
 public:
    explicit LockedData(SAFEARRAY* array) noexcept : m_Array(array) {
        m_IsLocked = ::SafeArrayAccessData(array, &m_Data) == S_OK;
    }
    ~LockedData() {
        if (m_IsLocked) ::SafeArrayUnaccessData(m_Array);
    }
    LockedData(const LockedData&) = delete;
    LockedData& operator=(const LockedData&) = delete;

    // Null when the array cannot be locked or has no memory.
    const void* Get() const noexcept { return m_IsLocked ? m_Data : nullptr; }

 private:
    SAFEARRAY* m_Array;
    void* m_Data = nullptr;
    bool m_IsLocked;
};

// The number of elements of a dimension, not negative; nothing when the array does not tell.
inline std::optional<std::int64_t> CountOf(SAFEARRAY* array, UINT dimension) noexcept {
    LONG upper = 0;
    LONG lower = 0;
    if (::SafeArrayGetUBound(array, dimension, &upper) != S_OK ||
        ::SafeArrayGetLBound(array, dimension, &lower) != S_OK)
        return std::nullopt;
    const std::int64_t count = std::int64_t{upper} - lower + 1;
    return count > 0 ? count : 0;
}

// How many elements are read: those of dimension 1, unless another dimension is empty, since then the array
// has no elements at all. Nothing for an array that cannot be read or whose count is more than an int tells.
inline std::optional<int> CountToRead(SAFEARRAY* array) noexcept {
    const std::optional<std::int64_t> count = CountOf(array, 1);
    if (!count || *count > std::numeric_limits<int>::max()) return std::nullopt;
    for (UINT dimension = ::SafeArrayGetDim(array); dimension > 1; --dimension) {
        if (CountOf(array, dimension).value_or(0) == 0) return 0;
    }
    return static_cast<int>(*count);
}

// Whether the elements are what the variant's type says. The variant's maker may have been wrong, and an
// integer read as a string would be followed as a pointer.
template <typename Traits>
bool HoldsElements(SAFEARRAY* array) noexcept {
    // NOLINTNEXTLINE(bugprone-sizeof-expression): where the elements are pointers, their own size is meant
    constexpr std::size_t SIZE = sizeof(typename Traits::Stored);
    VARTYPE type = VT_EMPTY;
    return ::SafeArrayGetVartype(array, &type) == S_OK && type == Traits::TYPE &&
           ::SafeArrayGetElemsize(array) == SIZE;
}

template <typename Traits>
void ReadElements(SAFEARRAY* array, std::vector<typename Traits::Element>& elements) {
    if (!HoldsElements<Traits>(array)) return;
    const std::optional<int> count = CountToRead(array);
    if (!count) return;
    const LockedData data(array);
    const auto* const stored = static_cast<const typename Traits::Stored*>(data.Get());
    if (stored == nullptr) return;

    elements.reserve(static_cast<std::size_t>(*count));
    for (int i = 0; i < *count; ++i)
        Append(elements, Traits::FromArray(stored[i]));
}

// Replaces the list by the elements of the array and returns their number. The old list lives until the new
// one stands: `source` may lie in one of its objects.
template <typename Traits>
int Read(const _variant_t* source, std::vector<typename Traits::Element>& elements) {
    if (source == nullptr || source->vt != (VT_ARRAY | Traits::TYPE)) return 0;
    Building<Traits> read;
    ReadElements<Traits>(source->parray, read.elements);
    elements.swap(read.elements);
    return static_cast<int>(elements.size());
}

struct DestroyArray {
    void operator()(SAFEARRAY* array) const noexcept { ::SafeArrayDestroy(array); }
};
using OwnedArray = std::unique_ptr<SAFEARRAY, DestroyArray>;

// Null when there is no memory for it or one of the elements cannot be put.
template <typename Traits>
OwnedArray MakeArray(const std::vector<typename Traits::Element>& elements) {
    if (!std::in_range<LONG>(elements.size())) return nullptr;
    SAFEARRAYBOUND bound{static_cast<ULONG>(elements.size()), 0};
    OwnedArray array(::SafeArrayCreate(Traits::TYPE, 1, &bound));
    if (array == nullptr) return nullptr;

    LONG index = 0;
    for (const auto& element : elements) {
        if (Traits::ToArray(array.get(), &index, element) != S_OK) return nullptr;
        ++index;
    }
    return array;
}

// Stores the list as a new array in `target`, whose old value is freed. False, and `target` untouched, when
// an element cannot be stored or the old value cannot be freed.
template <typename Traits>
bool Write(const std::vector<typename Traits::Element>& elements, _variant_t& target) {
    OwnedArray array = MakeArray<Traits>(elements);
    if (array == nullptr || FAILED(::VariantClear(&target))) return false;
    target.vt = VT_ARRAY | Traits::TYPE;
    target.parray = array.release();
    return true;
}

}  // namespace array_access
