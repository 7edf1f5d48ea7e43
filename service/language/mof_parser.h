// Reads a MOF text into a syntax tree.
//
//   MofFile file;
//   if (std::optional<MofDiagnostic> fault = ParseMof({"policies.mof", bytes}, file)) return fault;
//
// The language is DMTF's MOF with the service's `instance of __Namespace` and embedded objects, the pragmas
// of the service's compiler, and INF, -INF, NaN and NaN(bits) as values of reals. What nothing acts on is
// read past once its syntax is checked, and noted in the file: the qualifiers of instances and of their
// values, defaults of parameters, and pragmas of unknown names. Reading stops at the first fault. The time
// taken grows with the length of the text and with nothing else. Stateless: calls may run on any number of
// threads.
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
    // Where it was read from, or is to be, when `bytes` is empty; empty for a text that is in no file.
    std::string file = {};
};

// Fills `file`, which must be new.
[[nodiscard]] std::optional<MofDiagnostic> ParseMof(const MofSource& source, MofFile& file);
[[nodiscard]] std::optional<MofDiagnostic> ParseMof(std::string name, std::string bytes, MofFile& file);

// Reads a text that is one `instance of Class { ... }`, around which `depth` objects stand already. `text` is
// valid UTF-8 without zero bytes; `file`, which must be new, holds what `object` refers to.
[[nodiscard]] std::optional<MofDiagnostic> ParseMofObject(std::string_view text, size_t depth, MofFile& file,
                                                          MofObject& object);

}  // namespace service
