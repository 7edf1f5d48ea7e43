#include <algorithm>
#include <cstring>
#include <cwchar>
#include <limits>
#include <new>

#include <oleauto.h>

#include "platform/automation/bstr_layout.h"

namespace {

// The longest string whose length, with the unit that closes it and the header, fits 32 bits.
constexpr std::size_t MAX_BYTES =
    std::numeric_limits<std::uint32_t>::max() - sizeof(BstrHeader) - 2 * sizeof(OLECHAR);

// A string of `byteLength` bytes whose text is unset. What fills up the last unit, and the closing unit, is
// zero.
BSTR Allocate(std::size_t byteLength) noexcept {
    if (byteLength > MAX_BYTES) return nullptr;
    const std::size_t units = (byteLength + sizeof(OLECHAR) - 1) / sizeof(OLECHAR);
    void* const memory = ::operator new(sizeof(BstrHeader) + (units + 1) * sizeof(OLECHAR), std::nothrow);
    if (memory == nullptr) return nullptr;

    auto* const header = new (memory) BstrHeader{{1}, static_cast<std::uint32_t>(byteLength)};
    const BSTR text = reinterpret_cast<BSTR>(header + 1);
    text[units] = L'\0';
    if (byteLength % sizeof(OLECHAR) != 0) {
        auto* const bytes = reinterpret_cast<unsigned char*>(text);
        std::memset(bytes + byteLength, 0, units * sizeof(OLECHAR) - byteLength);
    }
    return text;
}

BSTR AllocateCopy(const void* source, std::size_t byteLength) noexcept {
    const BSTR text = Allocate(byteLength);
    if (text != nullptr && source != nullptr && byteLength != 0) std::memcpy(text, source, byteLength);
    return text;
}

// `text` was copied before, since it may have been a part of the string that is freed here.
INT Replace(BSTR* target, BSTR text) noexcept {
    SysFreeString(*target);
    *target = text;
    return TRUE;
}

}  // namespace

BSTR SysAllocString(const OLECHAR* text) noexcept {
    return text != nullptr ? AllocateCopy(text, std::wcslen(text) * sizeof(OLECHAR)) : nullptr;
}

BSTR SysAllocStringLen(const OLECHAR* text, UINT length) noexcept {
    return AllocateCopy(text, std::size_t{length} * sizeof(OLECHAR));
}

BSTR SysAllocStringByteLen(LPCSTR bytes, UINT byteLength) noexcept {
    return AllocateCopy(bytes, byteLength);
}

INT SysReAllocString(BSTR* target, const OLECHAR* text) noexcept {
    if (target == nullptr) return FALSE;
    const BSTR copy = SysAllocString(text);
    if (copy == nullptr && text != nullptr) return FALSE;
    return Replace(target, copy);
}

INT SysReAllocStringLen(BSTR* target, const OLECHAR* text, UINT length) noexcept {
    if (target == nullptr) return FALSE;
    const BSTR copy = SysAllocStringLen(text, length);
    if (copy == nullptr) return FALSE;
    if (text == nullptr && *target != nullptr) {
        std::memcpy(copy, *target, sizeof(OLECHAR) * std::min(length, SysStringLen(*target)));
    }
    return Replace(target, copy);
}

void SysFreeString(BSTR text) noexcept {
    if (text != nullptr) ::operator delete(HeaderOf(text));
}

UINT SysStringLen(BSTR text) noexcept {
    return SysStringByteLen(text) / sizeof(OLECHAR);
}

UINT SysStringByteLen(BSTR text) noexcept {
    return text != nullptr ? HeaderOf(text)->byteLength : 0;
}
