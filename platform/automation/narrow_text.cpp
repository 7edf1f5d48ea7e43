#include "platform/automation/narrow_text.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <oleauto.h>

namespace {

static_assert(sizeof(OLECHAR) == 4, "one unit holds one code point");

constexpr char32_t NOT_WELL_FORMED = 0xFFFFFFFF;

struct Sequence {
    char32_t codePoint;
    std::size_t length;
};

// The sequence at the start of the text, which ends with a null character. Overlong forms, surrogates and
// values above 0x10FFFF are not well-formed.
Sequence Decode(const unsigned char* text) noexcept {
    const unsigned char lead = text[0];
    if (lead < 0x80) return {lead, 1};
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4) return {NOT_WELL_FORMED, 1};

    char32_t codePoint = lead & (0x7Fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((text[i] & 0xC0) != 0x80) return {NOT_WELL_FORMED, 1};
        codePoint = (codePoint << 6) | (text[i] & 0x3Fu);
    }
    constexpr char32_t SMALLEST[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool isSurrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
    if (codePoint < SMALLEST[length] || codePoint > 0x10FFFF || isSurrogate) return {NOT_WELL_FORMED, 1};
    return {codePoint, length};
}

}  // namespace

HRESULT NarrowToBstr(const char* narrow, BSTR* wide) noexcept {
    *wide = nullptr;
    if (narrow == nullptr) return S_OK;
    const auto* const text = reinterpret_cast<const unsigned char*>(narrow);
    std::size_t units = 0;
    for (std::size_t i = 0; text[i] != 0; ++units) {
        const Sequence sequence = Decode(text + i);
        if (sequence.codePoint == NOT_WELL_FORMED) return HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION);
        i += sequence.length;
    }
    if (units > UINT32_MAX) return E_OUTOFMEMORY;
    const BSTR result = SysAllocStringLen(nullptr, static_cast<UINT>(units));
    if (result == nullptr) return E_OUTOFMEMORY;
    for (std::size_t i = 0, unit = 0; unit < units; ++unit) {
        const Sequence sequence = Decode(text + i);
        result[unit] = static_cast<OLECHAR>(sequence.codePoint);
        i += sequence.length;
    }
    *wide = result;
    return S_OK;
}
