// Object paths: the text that names a class or an instance, and the key that the store files it under.
//
//   Result<ObjectPath> path = ParseObjectPath(R"(RetentionPolicy.INSTANCE_ID="mail")");
//   Result<std::string> key = KeyOf(*definition, *path);
//
//   path      = [ namespace ":" ] class [ "=@" | "=" value | "." name "=" value *( "," name "=" value ) ]
//   namespace = "\\" server *( "\" name ) | name *( "\" name )        ; "/" counts as "\"
//   value     = '"' text '"' | "'" text "'" | [ "-" ] digits | "TRUE" | "FALSE"
//
// In a quoted text a backslash in front of a backslash or of a quote stands for that character; in front of
// anything else it is part of the text, so that an id with single backslashes that was put into a path
// unescaped is read as it was meant. A quote that is not escaped ends the text. There is no white space
// within or between the elements. All functions are stateless.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "service/model/class_definition.h"
#include "service/model/instance.h"
#include "service/model/status.h"

namespace service {

struct KeyBinding {
    std::string name;  // empty in the form Class="value"
    std::variant<std::string, int64_t, uint64_t, bool> value;
};

struct ObjectPath {
    std::optional<std::string> server;          // "." for this machine
    std::optional<std::string> namespace_path;  // "root\A\B", as spelled
    std::string class_name;
    std::vector<KeyBinding> keys;
    bool is_singleton = false;

    bool IsClass() const noexcept { return keys.empty() && !is_singleton; }
};

// WBEM_E_INVALID_OBJECT_PATH, saying at which character and what was expected, for anything malformed.
Result<ObjectPath> ParseObjectPath(std::string_view text);

// The path as text, which ParseObjectPath reads back as the same path.
std::string PrintObjectPath(const ObjectPath& path);

struct NamespacePath {
    std::string server;  // "." when none was given
    std::string path;    // "root\A\B", as spelled
};

// `\\.\root\A`, `//server/root/A`, `root\A`. WBEM_E_INVALID_NAMESPACE for anything else.
Result<NamespacePath> ParseNamespacePath(std::string_view text);

// The bytes under which the store files an instance within its class: the key values in the class's order,
// text folded. Two instances with equal bytes are the same instance.
Result<std::string> KeyOf(const ClassDefinition& definition, const ObjectPath& path);

// The same from an instance's own values; WBEM_E_ILLEGAL_NULL names a key property without a value.
Result<std::string> KeyOf(const Instance& instance);

// `Class.INSTANCE_ID="k"`, quotes and backslashes escaped; `Class=@` for a singleton.
Result<std::string> RelativePathOf(const Instance& instance);

// `text` as a double-quoted string of a path.
std::string QuoteForPath(std::string_view text);

}  // namespace service
