// A pattern of the LIKE operator.
//
//   Result<WqlPattern> pattern = WqlPattern::Compile("mail[0-9]%");
//   if (pattern->Matches("Mail7 archive")) ...
//
// % stands for any characters or none, _ for any one, [abc] and [a-f] for one of a set, [^a-f] for one that
// is not in it; [%], [_] and [[] are the characters themselves, and so is every other character, a backslash
// and a "]" outside a set included. A "]" that stands first in a set belongs to it, and so does a "-" that
// stands first or last. Characters are code points. Case does not count: pattern, text and the ends of a
// range are folded before they are compared, so that [X-b] runs backwards and is refused.
//
// A match takes at most the length of the text times that of the pattern; without %, or with it at the end
// only, the length of the text. A pattern never changes, so any number of threads may use one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "service/model/status.h"

namespace service {

class WqlPattern {
 public:
    // `pattern` is valid UTF-8. WBEM_E_INVALID_QUERY names the character, counted from `position`, that the
    // query has the pattern's first character at.
    static Result<WqlPattern> Compile(std::string_view pattern, size_t position = 1);

    // `text` is valid UTF-8 in any case.
    bool Matches(std::string_view text) const;

 private:
    class Compiler;

    struct Range {
        char32_t low;
        char32_t high;
    };
    struct Element {
        enum class Kind : uint8_t { kCharacter, kAnyOne, kAnyMany, kInSet, kNotInSet };
        Kind kind = Kind::kCharacter;
        char32_t character = 0;  // kCharacter
        size_t first_range = 0;  // of ranges_, for the sets
        size_t end_range = 0;
    };

    WqlPattern() = default;
    bool Fits(const Element& element, char32_t character) const noexcept;

    std::vector<Element> elements_;
    std::vector<Range> ranges_;
};

}  // namespace service
