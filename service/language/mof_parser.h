// Reads a MOF text into a syntax tree.
//
//   MofFile file;
//   if (std::optional<MofDiagnostic> fault = ParseMof({"policies.mof", bytes}, file)) return fault;
//
// The language is DMTF's MOF with the service's `instance of __Namespace` and embedded objects. Read past
// once their syntax is checked, because nothing acts on them: qualifier declarations, methods, qualifiers of
// instances and of their values, and pragmas other than namespace and include. Reading stops at the first
// fault. The time taken grows with the length of the text and with nothing else. Stateless: calls may run on
// any number of threads.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "service/language/mof_diagnostic.h"
#include "service/language/mof_syntax.h"

namespace service {

struct MofSource {
    std::string name;        // for diagnostics
    std::string_view bytes;  // UTF-8, or UTF-16 with a byte order mark; needed during the call only
};

// Fills `file`, which must be new.
[[nodiscard]] std::optional<MofDiagnostic> ParseMof(const MofSource& source, MofFile& file);

}  // namespace service
