// The words for where a qualifier may stand. Internal to the MOF parser, compiler and writer.
//
//   for (const MofScopeWord& word : kMofScopeWords) {
//       if (EqualFolded(word.name, "property")) scope |= word.bits;
//   }
//
// Constants, for any number of threads.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "service/model/class_definition.h"

namespace service {

struct MofScopeWord {
    uint32_t bits;
    std::string_view name;    // as it is written in a declaration
    std::string_view plural;  // for messages
};

// The one that stands for several comes first.
inline constexpr std::array kMofScopeWords{
    MofScopeWord{kScopeAny, "any", "anything"},
    MofScopeWord{kScopeClass, "class", "classes"},
    MofScopeWord{kScopeAssociation, "association", "associations"},
    MofScopeWord{kScopeIndication, "indication", "indications"},
    MofScopeWord{kScopeProperty, "property", "properties"},
    MofScopeWord{kScopeReference, "reference", "references"},
    MofScopeWord{kScopeMethod, "method", "methods"},
    MofScopeWord{kScopeParameter, "parameter", "parameters"},
    MofScopeWord{kScopeQualifier, "qualifier", "qualifiers"},
    MofScopeWord{kScopeSchema, "schema", "schemas"},
    MofScopeWord{kScopeInstance, "instance", "instances"},
    MofScopeWord{kScopeNamespace, "namespace", "namespaces"},
};

// The words for `scope`, separated by commas: their names or, with &MofScopeWord::plural, for a message.
inline std::string MofScopeText(uint32_t scope, std::string_view MofScopeWord::*form = &MofScopeWord::name) {
    std::string text;
    for (const MofScopeWord& word : kMofScopeWords) {
        if ((scope & word.bits) != word.bits) continue;
        scope &= ~word.bits;
        if (!text.empty()) text += ", ";
        text += word.*form;
    }
    return text;
}

}  // namespace service
