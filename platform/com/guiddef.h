// GUID: the identifier of an interface or a class.
//
//   DEFINE_GUID(IID_IThing, 0xdc12a687, 0x737f, 0x11cf, 0x88, 0x4d, 0x00, 0xaa, 0x00, 0x4b, 0x2e, 0x24);
//   if (riid == IID_IThing) ...
//
// A plain value without state of its own; any thread may use it.
#pragma once

#include <cstdint>

struct GUID {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];

    friend constexpr bool operator==(const GUID&, const GUID&) noexcept = default;
};

using IID = GUID;
using CLSID = GUID;
using REFGUID = const GUID&;
using REFIID = const IID&;
using REFCLSID = const CLSID&;

#define DEFINE_GUID(name, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8) \
    inline constexpr GUID name = {l, w1, w2, {b1, b2, b3, b4, b5, b6, b7, b8}}

DEFINE_GUID(GUID_NULL, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
DEFINE_GUID(IID_NULL, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
DEFINE_GUID(CLSID_NULL, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);

constexpr bool IsEqualGUID(REFGUID left, REFGUID right) noexcept {
    return left == right;
}
constexpr bool IsEqualIID(REFIID left, REFIID right) noexcept {
    return left == right;
}
constexpr bool IsEqualCLSID(REFCLSID left, REFCLSID right) noexcept {
    return left == right;
}
