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

// A whole number of more than 64 bits: only a real takes it.
struct MofGreatInteger {
    double nearest = 0;
};

struct MofAlias {
    std::string_view name;  // without the $
};

// How declarations are to be put, as far as a text says so itself.
struct MofUpdate {
    bool is_update_only = false;
    bool is_create_only = false;
    bool is_forced = false;  // also what makes instances or subclasses change
};

struct MofObject;
struct MofValue;
using MofArray = std::vector<MofValue>;

// std::monostate is NULL, char16_t a character in single quotes. The elements of an array are no arrays.
struct MofValue {
    std::variant<std::monostate, bool, MofInteger, MofGreatInteger, double, char16_t, std::string_view,
                 MofAlias, std::unique_ptr<MofObject>, MofArray>
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

// What a property, a parameter or the result of a method is declared as.
struct MofType {
    MofName name;  // of an intrinsic type, or a class
    bool is_reference = false;
    bool is_array = false;
    uint32_t max_elements = 0;  // declared size of an array; 0 for no bound
};

struct MofProperty {
    std::vector<MofQualifier> qualifiers;
    MofType type;
    MofName name;
    std::optional<MofValue> default_value;
};

struct MofParameter {
    std::vector<MofQualifier> qualifiers;
    MofType type;
    MofName name;
};

struct MofMethod {
    std::vector<MofQualifier> qualifiers;
    MofType type;  // of its result; may be `void`
    MofName name;
    std::vector<MofParameter> parameters;
};

struct MofClass {
    std::vector<MofQualifier> qualifiers;
    MofName name;
    MofName alias;
    MofName superclass;
    std::vector<MofProperty> properties;
    std::vector<MofMethod> methods;
};

// `Qualifier Name : type = value, Scope(...), Flavor(...);`
struct MofQualifierType {
    MofName name;
    MofType type;
    std::optional<MofValue> default_value;
    uint32_t scope = 0;  // QualifierScope
    std::vector<MofFlavor> flavors;
};

// `#pragma namespace("path")`: the declarations behind it belong there.
struct MofNamespace {
    MofName path;
};

// `#pragma include("file")`.
struct MofInclude {
    MofName file;
};

// `#pragma deleteclass("Class", fail)` or `#pragma deleteinstance("path", nofail)`.
struct MofDeletion {
    bool is_class = false;
    MofName target;
    bool may_fail = false;
};

// `#pragma classflags("forceupdate", "createonly")` or `#pragma instanceflags("updateonly")`: for the
// declarations behind it.
struct MofUpdateFlags {
    bool is_for_classes = false;
    MofName first;  // where the flags begin
    MofUpdate update;
};

using MofDeclaration = std::variant<MofNamespace, MofInclude, MofDeletion, MofUpdateFlags, MofQualifierType,
                                    MofClass, MofObject>;

// Something that was read past: nothing acts on it.
struct MofNotice {
    size_t offset = 0;
    std::string message;
};

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
    std::vector<MofNotice> notices;
};

}  // namespace service
