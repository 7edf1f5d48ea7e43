#include "service/language/path_xml.h"

#include <string>
#include <variant>

namespace service {
namespace {

struct KeyText {
    std::string_view type;
    std::string text;
};

KeyText TextOf(const KeyBinding& key) {
    if (const auto* text = std::get_if<std::string>(&key.value)) return {"string", *text};
    if (const auto* flag = std::get_if<bool>(&key.value)) return {"boolean", *flag ? "TRUE" : "FALSE"};
    if (const auto* number = std::get_if<int64_t>(&key.value)) return {"numeric", std::to_string(*number)};
    return {"numeric", std::to_string(std::get<uint64_t>(key.value))};
}

void WriteKeyValue(const KeyText& key, XmlWriter& out) {
    out.Start("KEYVALUE");
    out.Attribute("VALUETYPE", key.type);
    out.Text(key.text);
    out.End();
}

bool IsReference(const ClassDefinition* definition, const KeyBinding& key) {
    if (!definition || !std::holds_alternative<std::string>(key.value)) return false;
    const auto index = definition->FindProperty(std::string_view(key.name));
    return index && definition->Properties()[*index].type.type == CimType::kReference;
}

void WriteKeys(const ObjectPath& path, const ClassDefinition* definition, XmlWriter& out) {
    for (const KeyBinding& key : path.keys) {
        if (key.name.empty()) {
            WriteKeyValue(TextOf(key), out);
            continue;
        }
        out.Start("KEYBINDING");
        out.Attribute("NAME", key.name);
        if (IsReference(definition, key)) {
            WriteReferenceXml(std::get<std::string>(key.value), out);
        } else {
            WriteKeyValue(TextOf(key), out);
        }
        out.End();
    }
}

void WriteLocalNamespace(std::string_view namespace_path, XmlWriter& out) {
    out.Start("LOCALNAMESPACEPATH");
    while (true) {
        const size_t end = namespace_path.find_first_of("\\/");
        out.Start("NAMESPACE");
        out.Attribute("NAME", namespace_path.substr(0, end));
        out.End();
        if (end == std::string_view::npos) break;
        namespace_path.remove_prefix(end + 1);
    }
    out.End();
}

void WriteNamespace(const ObjectPath& path, XmlWriter& out) {
    if (!path.server) return WriteLocalNamespace(*path.namespace_path, out);
    out.Start("NAMESPACEPATH");
    out.Start("HOST");
    out.Text(*path.server);
    out.End();
    WriteLocalNamespace(*path.namespace_path, out);
    out.End();
}

void WriteName(const ObjectPath& path, const ClassDefinition* definition, XmlWriter& out) {
    out.Start(path.IsClass() ? "CLASSNAME" : "INSTANCENAME");
    out.Attribute(path.IsClass() ? "NAME" : "CLASSNAME", path.class_name);
    WriteKeys(path, definition, out);
    out.End();
}

const char* PathElement(const ObjectPath& path) noexcept {
    if (path.IsClass()) return path.server ? "CLASSPATH" : "LOCALCLASSPATH";
    return path.server ? "INSTANCEPATH" : "LOCALINSTANCEPATH";
}

}  // namespace

void WritePathXml(const ObjectPath& path, const ClassDefinition* definition, XmlWriter& out) {
    if (!path.namespace_path) return WriteName(path, definition, out);
    out.Start(PathElement(path));
    WriteNamespace(path, out);
    WriteName(path, definition, out);
    out.End();
}

void WriteReferenceXml(std::string_view text, XmlWriter& out) {
    out.Start("VALUE.REFERENCE");
    if (const Result<ObjectPath> path = ParseObjectPath(text); path.ok()) {
        WritePathXml(*path, nullptr, out);
    } else {
        out.Start("INSTANCENAME");
        out.Attribute("CLASSNAME", "");
        WriteKeyValue({"string", std::string(text)}, out);
        out.End();
    }
    out.End();
}

}  // namespace service
