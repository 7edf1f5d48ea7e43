// How a BSTR lies in memory. For the files of this folder only.
//
//   uint32 shares | uint32 length in bytes | text | null unit
//
// The BSTR points to the text. `shares` is 1 for a string with one owner; _bstr_t counts the handles that
// share a string there, so that it needs no record of its own beside the string. It is changed atomically,
// all else is not.
#pragma once

#include <atomic>
#include <cstdint>

#include <wtypes.h>

struct BstrHeader {
    std::atomic<std::uint32_t> shares;
    std::uint32_t byteLength;
};
static_assert(sizeof(BstrHeader) == 8);

// `text` is not null.
inline BstrHeader* HeaderOf(BSTR text) noexcept {
    return reinterpret_cast<BstrHeader*>(text) - 1;
}
inline const BstrHeader* HeaderOf(const OLECHAR* text) noexcept {
    return reinterpret_cast<const BstrHeader*>(text) - 1;
}
