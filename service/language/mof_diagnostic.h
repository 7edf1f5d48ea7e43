// What is wrong with a MOF text, and where.
//
//   if (std::optional<MofDiagnostic> fault = ParseMof(source, file)) return Report(Describe(*fault));
//
// Plain values: one thread at a time, or any number of readers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace service {

// Which of an import's steps found the fault.
enum class MofPhase : uint8_t {
    kParse = 1,  // the text is no MOF
    kCheck = 2,  // the declarations do not fit together, or a value does not fit its property
    kStore = 3,  // the target refused a declaration
};

struct MofDiagnostic {
    std::string file;
    size_t line = 0;    // from 1; 0 when the fault lies in no place of a file
    size_t column = 0;  // in code points, from 1
    MofPhase phase = MofPhase::kParse;
    int32_t code = 0;     // a failing HRESULT
    std::string message;  // one sentence in UTF-8
};

// "policies.mof:12:5: message".
std::string Describe(const MofDiagnostic& diagnostic);

// `text` for use in a message, cut where it is long.
std::string Clip(std::string_view text);

// The same in double quotes.
std::string Quote(std::string_view text);

}  // namespace service
