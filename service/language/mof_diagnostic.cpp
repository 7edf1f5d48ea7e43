#include "service/language/mof_diagnostic.h"

#include "service/model/text.h"

namespace service {

std::string Describe(const MofDiagnostic& diagnostic) {
    std::string text = diagnostic.file;
    if (diagnostic.line > 0) {
        text += ':' + std::to_string(diagnostic.line) + ':' + std::to_string(diagnostic.column);
    }
    if (!text.empty()) text += ": ";
    return text + diagnostic.message;
}

std::string Clip(std::string_view text) {
    return ClipForMessage(text, 80);
}

std::string Quote(std::string_view text) {
    return '"' + Clip(text) + '"';
}

}  // namespace service
