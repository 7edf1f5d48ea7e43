// The input is the text of an object path.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

#include "service/model/object_path.h"
#include "tests/fuzz/expectations.h"
#include "tests/fuzz/schema.h"

namespace {

using namespace service;
using fuzz::Expect;

bool IsSamePath(const ObjectPath& a, const ObjectPath& b) {
    return a.server == b.server && a.namespace_path == b.namespace_path && a.class_name == b.class_name &&
           a.is_singleton == b.is_singleton &&
           std::equal(a.keys.begin(), a.keys.end(), b.keys.begin(), b.keys.end(),
                      [](const KeyBinding& one, const KeyBinding& other) {
                          return one.name == other.name && one.value == other.value;
                      });
}

// The binding's value as one of `type`; null where the two do not go together.
Value ValueFor(const PropertyType& type, const KeyBinding& binding) {
    const auto* number = std::get_if<int64_t>(&binding.value);
    if (type.type == CimType::kBoolean && number) return *number == 1;
    if (RepresentationOf(type.type) == Representation::kUnsigned && number && *number >= 0)
        return static_cast<uint64_t>(*number);
    return std::visit([](const auto& held) -> Value { return held; }, binding.value);
}

// An instance with the path's keys has the path's key, and so has its own path.
void CheckKey(const ObjectPath& path, const ClassPtr& definition) {
    const Result<std::string> key = KeyOf(*definition, path);
    if (!key.ok()) return fuzz::ExpectSentence(key.status());
    Instance instance(definition);
    for (const KeyBinding& binding : path.keys) {
        const auto index = binding.name.empty() ? definition->Keys().front()
                                                : *definition->FindProperty(std::string_view(binding.name));
        if (!instance.Set(index, ValueFor(definition->Properties()[index].type, binding)).ok()) return;
    }
    const Result<std::string> own_key = KeyOf(instance);
    Expect(own_key.ok() && *own_key == *key, "the instance of a path has the path's key");
    const Result<std::string> own_path = RelativePathOf(instance);
    Expect(own_path.ok(), "an instance with a key has a path");
    const Result<ObjectPath> read = ParseObjectPath(*own_path);
    Expect(read.ok(), "an instance's path can be read", *own_path);
    const Result<std::string> read_key = KeyOf(*definition, *read);
    Expect(read_key.ok() && *read_key == *key, "an instance's path names the instance", *own_path);
}

void CheckNamespace(std::string_view text) {
    const Result<NamespacePath> path = ParseNamespacePath(text);
    if (!path.ok()) return fuzz::ExpectSentence(path.status());
    const std::string printed = "\\\\" + path->server + "\\" + path->path;
    const Result<NamespacePath> again = ParseNamespacePath(printed);
    Expect(again.ok() && again->server == path->server && again->path == path->path,
           "a printed namespace path reads as the same", printed);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    CheckNamespace(text);
    const Result<ObjectPath> path = ParseObjectPath(text);
    if (!path.ok()) {
        fuzz::ExpectSentence(path.status());
        const std::string& reason = path.status().reason();
        if (reason.starts_with("the object path \"")) fuzz::ExpectPlaceWithin(text, reason, "at character ");
        return 0;
    }
    const std::string printed = PrintObjectPath(*path);
    const Result<ObjectPath> again = ParseObjectPath(printed);
    Expect(again.ok() && IsSamePath(*path, *again), "a printed path reads as the same", printed);
    const Result<ClassPtr> definition = fuzz::FindClass(path->class_name);
    if (definition.ok() && !path->IsClass()) CheckKey(*path, *definition);
    return 0;
}
