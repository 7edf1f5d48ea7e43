// The text of a MOF file: its encoding, and where in it an offset lies.
//
//   DecodedMof decoded = DecodeMof(bytes);
//   if (!decoded.fault.empty()) Report(LocateInMof(decoded.text, decoded.text.size()), decoded.fault);
//
// Both functions are stateless and may be called from any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace service {

struct DecodedMof {
    std::string text;   // UTF-8 without a byte order mark; up to the fault where there is one
    std::string fault;  // why the bytes are no text; empty when they are
};

// Reads UTF-8, with a byte order mark or without, and UTF-16 with one. Bytes that stand for no character and
// characters of value zero are faults; the text then ends where the fault begins.
DecodedMof DecodeMof(std::string bytes);

struct MofLocation {
    size_t line = 1;    // from 1; CR LF, LF and CR each end a line
    size_t column = 1;  // in code points, from 1
};

// The place of the byte at `offset` (at most text.size()) of UTF-8. Reads the text from its beginning, so
// that positions cost nothing until a fault needs one.
MofLocation LocateInMof(std::string_view text, size_t offset) noexcept;

}  // namespace service
