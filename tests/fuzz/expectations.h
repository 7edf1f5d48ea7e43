// What the fuzzers demand of every input beside that nothing crashes. A broken demand ends the run, and
// libFuzzer keeps the input.
//
//   if (!path.ok()) return ExpectSentence(path.status());
//   Expect(again == text, "a printed path reads as another one", text);
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "service/model/status.h"
#include "service/model/text.h"

namespace fuzz {

inline void Expect(bool holds, std::string_view demand, std::string_view detail = {}) {
    if (holds) return;
    std::fprintf(stderr, "broken: %.*s\n%.*s\n", static_cast<int>(demand.size()), demand.data(),
                 static_cast<int>(detail.size()), detail.data());
    std::abort();
}

inline void ExpectSentence(int32_t code, std::string_view reason) {
    Expect(code < 0, "a fault has a failing code", reason);
    Expect(reason.size() >= 10 && service::IsValidUtf8(reason), "a fault has a sentence", reason);
    Expect(reason.size() < 10'000, "a fault's sentence can be read", reason);
}

inline void ExpectSentence(const service::Status& fault) {
    ExpectSentence(fault.code(), fault.reason());
}

// `reason` has the number of a character behind `before`: one of `text`, or the place behind its last.
inline void ExpectPlaceWithin(std::string_view text, std::string_view reason, std::string_view before) {
    const size_t at = reason.rfind(before);
    Expect(at != std::string_view::npos, "a fault of a text names the character", reason);
    const unsigned long place = std::strtoul(&reason[at + before.size()], nullptr, 10);
    size_t characters = 0;
    for (const char unit : text)
        characters += (static_cast<unsigned char>(unit) & 0xC0) != 0x80 ? 1 : 0;
    Expect(place >= 1 && place <= characters + 1, "the character named lies within the text", reason);
}

}  // namespace fuzz
