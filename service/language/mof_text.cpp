#include "service/language/mof_text.h"

#include <utility>

#include "service/model/text.h"

namespace service {
namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view kUtf16LittleMark = "\xFF\xFE";
constexpr std::string_view kUtf16BigMark = "\xFE\xFF";

bool IsHighSurrogate(unsigned unit) noexcept {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool IsLowSurrogate(unsigned unit) noexcept {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

size_t SequenceLength(unsigned char lead) noexcept {
    if (lead < 0x80) return 1;
    if (lead < 0xE0) return 2;
    return lead < 0xF0 ? 3 : 4;
}

// How many bytes at the front of `text`, which is not valid UTF-8, are.
size_t ValidPrefix(std::string_view text) noexcept {
    size_t position = 0;
    while (position < text.size()) {
        const size_t length = SequenceLength(static_cast<unsigned char>(text[position]));
        const std::string_view sequence = text.substr(position, length);
        if (sequence.size() < length || !IsValidUtf8(sequence)) break;
        position += length;
    }
    return position;
}

DecodedMof DecodeUtf8(std::string&& bytes) {
    if (bytes.starts_with(kUtf8Mark)) bytes.erase(0, kUtf8Mark.size());
    DecodedMof decoded;
    if (!IsValidUtf8(bytes)) {
        decoded.fault = "the bytes that begin here are not valid UTF-8";
        bytes.resize(ValidPrefix(bytes));
    }
    decoded.text = std::move(bytes);
    return decoded;
}

DecodedMof DecodeUtf16(std::string_view bytes, bool is_big_endian) {
    const auto unit_at = [&](size_t index) {
        const auto first = static_cast<unsigned char>(bytes[2 * index]);
        const auto second = static_cast<unsigned char>(bytes[2 * index + 1]);
        return is_big_endian ? (unsigned{first} << 8) | second : (unsigned{second} << 8) | first;
    };
    const size_t count = bytes.size() / 2;
    DecodedMof decoded;
    std::wstring wide;
    wide.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        const unsigned unit = unit_at(i);
        if (!IsHighSurrogate(unit) && !IsLowSurrogate(unit)) {
            wide.push_back(static_cast<wchar_t>(unit));
            continue;
        }
        const unsigned low = IsHighSurrogate(unit) && i + 1 < count ? unit_at(i + 1) : 0;
        if (!IsLowSurrogate(low)) {
            decoded.fault = "half of a UTF-16 surrogate pair stands alone here";
            break;
        }
        ++i;
        if constexpr (sizeof(wchar_t) == 2) {
            wide.push_back(static_cast<wchar_t>(unit));
            wide.push_back(static_cast<wchar_t>(low));
        } else {
            wide.push_back(static_cast<wchar_t>(0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00)));
        }
    }
    if (decoded.fault.empty() && bytes.size() % 2 != 0) {
        decoded.fault = "the UTF-16 text ends within a character";
    }
    // Cannot fail: every surrogate was paired above.
    static_cast<void>(AppendUtf8(wide, decoded.text));
    return decoded;
}

DecodedMof DecodeByMark(std::string&& bytes) {
    const std::string_view view = bytes;
    if (view.starts_with(kUtf16LittleMark)) return DecodeUtf16(view.substr(2), false);
    if (view.starts_with(kUtf16BigMark)) return DecodeUtf16(view.substr(2), true);
    return DecodeUtf8(std::move(bytes));
}

}  // namespace

DecodedMof DecodeMof(std::string bytes) {
    DecodedMof decoded = DecodeByMark(std::move(bytes));
    if (const size_t zero = decoded.text.find('\0'); zero != std::string::npos) {
        decoded.text.resize(zero);
        decoded.fault = "a zero byte stands here: MOF is UTF-8, or UTF-16 with a byte order mark";
    }
    return decoded;
}

MofLocation LocateInMof(std::string_view text, size_t offset) noexcept {
    MofLocation location;
    const std::string_view before = text.substr(0, offset);
    for (size_t i = 0; i < before.size(); ++i) {
        const char c = before[i];
        // The CR of a CR LF is part of the line that the LF ends.
        const bool ends_line = c == '\n' || (c == '\r' && !(i + 1 < text.size() && text[i + 1] == '\n'));
        if (ends_line) {
            ++location.line;
            location.column = 1;
        } else if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) {
            ++location.column;
        }
    }
    return location;
}

}  // namespace service
