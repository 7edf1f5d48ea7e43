#include "service/language/wql_like.h"

#include <algorithm>
#include <string>
#include <utility>

#include "service/language/wql_query.h"
#include "service/model/text.h"

namespace service {
namespace {

// The code point that starts at `offset` of valid UTF-8, and moves past it.
char32_t TakeCharacter(std::string_view utf8, size_t& offset) noexcept {
    const auto lead = static_cast<unsigned char>(utf8[offset++]);
    if (lead < 0x80) return lead;
    char32_t character = lead < 0xE0 ? lead & 0x1FU : lead < 0xF0 ? lead & 0x0FU : lead & 0x07U;
    while (offset < utf8.size() && (static_cast<unsigned char>(utf8[offset]) & 0xC0) == 0x80)
        character = (character << 6) | (static_cast<unsigned char>(utf8[offset++]) & 0x3FU);
    return character;
}

std::u32string FoldedCharacters(std::string_view utf8) {
    const std::string folded = Fold(utf8);
    std::u32string characters;
    characters.reserve(folded.size());
    for (size_t offset = 0; offset < folded.size();)
        characters.push_back(TakeCharacter(folded, offset));
    return characters;
}

}  // namespace

// Folding makes one code point of one and never one of the pattern's own signs, so that places in the folded
// pattern are those in the query.
class WqlPattern::Compiler {
 public:
    Compiler(std::string_view pattern, size_t position)
        : characters_(FoldedCharacters(pattern)), position_(position) {}

    Result<WqlPattern> Compile() {
        while (next_ < characters_.size()) {
            const char32_t character = characters_[next_];
            if (character == U'[') {
                SERVICE_RETURN_IF_ERROR(TakeSet());
                continue;
            }
            ++next_;
            if (character == U'%') {
                TakePercent();
            } else {
                Element& element = pattern_.elements_.emplace_back();
                element.kind = character == U'_' ? Element::Kind::kAnyOne : Element::Kind::kCharacter;
                element.character = character;
            }
        }
        return std::move(pattern_);
    }

 private:
    // One stands for several.
    void TakePercent() {
        std::vector<Element>& elements = pattern_.elements_;
        if (!elements.empty() && elements.back().kind == Element::Kind::kAnyMany) return;
        elements.emplace_back().kind = Element::Kind::kAnyMany;
    }

    Status TakeSet() {
        const size_t start = next_++;
        Element element;
        element.kind = Element::Kind::kInSet;
        element.first_range = pattern_.ranges_.size();
        if (next_ < characters_.size() && characters_[next_] == U'^') {
            element.kind = Element::Kind::kNotInSet;
            ++next_;
        }
        bool is_first = true;
        while (next_ < characters_.size() && (is_first || characters_[next_] != U']')) {
            SERVICE_RETURN_IF_ERROR(TakeRange());
            is_first = false;
        }
        if (next_ == characters_.size())
            return Fault(start,
                         "the set that begins here has no closing \"]\" ([[] is the character itself)");
        ++next_;
        element.end_range = pattern_.ranges_.size();
        pattern_.elements_.push_back(element);
        return {};
    }

    Status TakeRange() {
        const size_t start = next_;
        Range range{characters_[start], characters_[start]};
        ++next_;
        const bool has_end =
            next_ + 1 < characters_.size() && characters_[next_] == U'-' && characters_[next_ + 1] != U']';
        if (has_end) {
            range.high = characters_[next_ + 1];
            next_ += 2;
        }
        if (range.low > range.high) return Fault(start, "the range that begins here runs backwards");
        pattern_.ranges_.push_back(range);
        return {};
    }

    Status Fault(size_t index, const std::string& message) const {
        return WqlFault(WBEM_E_INVALID_QUERY, position_ + index, message);
    }

    std::u32string characters_;
    size_t position_;
    size_t next_ = 0;
    WqlPattern pattern_;
};

Result<WqlPattern> WqlPattern::Compile(std::string_view pattern, size_t position) {
    return Compiler(pattern, position).Compile();
}

bool WqlPattern::Fits(const Element& element, char32_t character) const noexcept {
    if (element.kind == Element::Kind::kAnyOne) return true;
    if (element.kind == Element::Kind::kCharacter) return element.character == character;
    const auto first = ranges_.begin() + static_cast<std::ptrdiff_t>(element.first_range);
    const auto end = ranges_.begin() + static_cast<std::ptrdiff_t>(element.end_range);
    const bool is_in_set = std::any_of(first, end, [character](const Range& range) {
        return range.low <= character && character <= range.high;
    });
    return is_in_set == (element.kind == Element::Kind::kInSet);
}

// Takes as little as possible for each %, and one character more for the last one met whenever what follows
// it does not fit. Earlier ones need no second try: whatever they could give up the last one can take.
bool WqlPattern::Matches(std::string_view text) const {
    const std::string folded = Fold(text);
    constexpr size_t kNone = static_cast<size_t>(-1);
    size_t element = 0;
    size_t offset = 0;
    size_t many = kNone;  // the last % met
    size_t many_end = 0;  // where what it takes ends
    while (true) {
        if (element < elements_.size() && elements_[element].kind == Element::Kind::kAnyMany) {
            many = element++;
            many_end = offset;
            if (element == elements_.size()) return true;
            continue;
        }
        if (offset == folded.size()) return element == elements_.size();
        size_t next = offset;
        const char32_t character = TakeCharacter(folded, next);
        if (element < elements_.size() && Fits(elements_[element], character)) {
            ++element;
            offset = next;
            continue;
        }
        if (many == kNone) return false;
        static_cast<void>(TakeCharacter(folded, many_end));
        element = many + 1;
        offset = many_end;
    }
}

}  // namespace service
