// The syntax tree of a MOF file: what the text says, before anything is known of the classes it names.
//
//   MofFile file;
//   if (std::optional<MofDiagnostic> fault = ParseMof(source, file)) return fault;
//   for (const MofDeclaration& declaration : file.declarations) ...
//
// Every node knows the offset of the byte in the file's text where it begins. Names and texts are views into
// the file. Plain values: one thread at a time, or any number of readers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "service/language/mof_diagnostic.h"

namespace service {

struct MofName {
    std::string_view text;  // empty for a name that was left out
    size_t offset = 0;
};

struct MofInteger {
    uint64_t magnitude = 0;
    bool is_negative = false;
};

struct MofAlias {
    std::string_view name;  // without the $
};

struct MofObject;
struct MofValue;
using MofArray = std::vector<MofValue>;

// std::monostate is NULL, char16_t a character in single quotes. The elements of an array are no arrays.
struct MofValue {
    std::variant<std::monostate, bool, MofInteger, double, char16_t, std::string_view, MofAlias,
                 std::unique_ptr<MofObject>, MofArray>
        content;
    size_t offset = 0;
};

struct MofAssignment {
    MofName property;
    MofValue value;
};

// `instance of Class as $Alias { Property = value; ... }`, at the top or embedded in another.
struct MofObject {
    MofName class_name;
    MofName alias;
    std::vector<MofAssignment> assignments;
};

enum class MofFlavor : uint8_t {
    kEnableOverride,
    kDisableOverride,
    kToSubclass,
    kNotToSubclass,  // Restricted, too
    kToInstance,
    kNotToInstance,
    kAmended,  // Translatable, too
};

struct MofQualifier {
    MofName name;
    std::optional<MofValue> value;  // none stands for TRUE
    std::vector<MofFlavor> flavors;
};

struct MofProperty {
    std::vector<MofQualifier> qualifiers;
    MofName type;  // of an intrinsic type, or a class
    bool is_reference = false;
    MofName name;
    bool is_array = false;
    uint32_t max_elements = 0;  // declared size of an array; 0 for no bound
    std::optional<MofValue> default_value;
};

struct MofClass {
    std::vector<MofQualifier> qualifiers;
    MofName name;
    MofName alias;
    MofName superclass;
    std::vector<MofProperty> properties;
};

// `#pragma namespace("path")`: the declarations behind it belong there.
struct MofNamespace {
    MofName path;
};

// `#pragma include("file")`.
struct MofInclude {
    MofName file;
};

using MofDeclaration = std::variant<MofNamespace, MofInclude, MofClass, MofObject>;

struct MofFile {
    MofFile() = default;
    MofFile(const MofFile&) = delete;
    MofFile& operator=(const MofFile&) = delete;

    // The fault at the byte `offset` of this file.
    MofDiagnostic FaultAt(size_t offset, MofPhase phase, int32_t code, std::string message) const;

    std::string name;
    std::string text;                 // UTF-8
    std::deque<std::string> storage;  // texts that do not stand in `text` as they are
    std::vector<MofDeclaration> declarations;
};

}  // namespace service
