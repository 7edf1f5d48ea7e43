#include "service/language/mof_objects.h"

#include <memory>
#include <utility>
#include <vector>

#include "service/language/mof_literal.h"
#include "service/model/limits.h"
#include "service/model/object_path.h"
#include "service/model/text.h"

namespace service {
namespace {

// How many aliases may be followed through key properties. Each adds a level of quoting, which doubles the
// backslashes before it, so that the bytes of a key run out earlier.
constexpr size_t kMaxAliasDepth = 32;

Value Widened(Scalar&& scalar) {
    return std::visit([](auto& held) -> Value { return std::move(held); }, scalar);
}

}  // namespace

std::string MofOwner::Describe() const {
    return "property " + Clip(class_name) + "." + Clip(property);
}

MofObjects::Fault MofObjects::CheckFault(size_t offset, int32_t code, std::string message) const {
    return file_.FaultAt(offset, MofPhase::kCheck, code, std::move(message));
}

MofObjects::Fault MofObjects::AddAlias(const MofName& alias, Aliased aliased, size_t space) {
    if (alias.text.empty()) return {};
    const auto [entry, is_new] =
        aliases_.try_emplace(Fold(alias.text), Entry{alias, aliased, space, Progress::kUnresolved, {}});
    if (is_new) return {};
    return CheckFault(
        alias.offset, WBEM_E_ALREADY_EXISTS,
        "the alias $" + Clip(alias.text) + " stands for another declaration of this file already");
}

MofObjects::Fault MofObjects::FindClass(const MofName& name, size_t space,
                                        const MofScope::KnownClass*& known) {
    Result<const MofScope::KnownClass*> found = scope_.Find(space, name.text);
    if (!found.ok()) {
        return file_.FaultAt(name.offset, MofPhase::kStore, found.code(), found.status().reason());
    }
    known = *found;
    if (known->definition) return {};
    return CheckFault(name.offset, WBEM_E_INVALID_CLASS,
                      "class " + Clip(name.text) +
                          " is neither declared in this import nor known in namespace " +
                          scope_.PathOf(space));
}

MofObjects::Fault MofObjects::Build(const MofObject& object, size_t space,
                                    std::optional<Instance>& instance) {
    const MofScope::KnownClass* known = nullptr;
    if (Fault fault = FindClass(object.class_name, space, known)) return fault;
    const ClassDefinition& definition = *known->definition;
    instance.emplace(known->definition);
    std::vector<bool> is_assigned(definition.Properties().size());
    for (const MofAssignment& assignment : object.assignments) {
        const auto index = known->FindProperty(assignment.property.text);
        if (!index) {
            return CheckFault(
                assignment.property.offset, WBEM_E_NOT_FOUND,
                "class " + definition.Name() + " has no property " + Clip(assignment.property.text));
        }
        const PropertyDefinition& property = definition.Properties()[*index];
        const MofOwner owner{definition.Name(), property.name};
        if (is_assigned[*index]) {
            return CheckFault(assignment.property.offset, WBEM_E_INVALID_OBJECT,
                              owner.Describe() + " is given a second value");
        }
        is_assigned[*index] = true;
        Value value;
        if (Fault fault = Convert(property.type, owner, assignment.value, space, true, value)) return fault;
        if (Status fault = instance->Set(*index, std::move(value)); !fault.ok()) {
            return CheckFault(assignment.value.offset, fault.code(), fault.reason());
        }
    }
    return {};
}

MofObjects::Fault MofObjects::Convert(const PropertyType& type, const MofOwner& owner,
                                      const MofValue& literal, size_t space, bool allows_alias,
                                      Value& value) {
    const auto* array = std::get_if<MofArray>(&literal.content);
    if (!type.is_array || std::holds_alternative<std::monostate>(literal.content)) {
        if (array) {
            return CheckFault(
                literal.offset, WBEM_E_TYPE_MISMATCH,
                owner.Describe() + ": an array was found, " + DescribeType(type) + " takes one value");
        }
        Scalar scalar;
        if (Fault fault = ConvertElement(type, owner, literal, space, allows_alias, scalar)) return fault;
        value = Widened(std::move(scalar));
        return {};
    }
    if (!array) {
        return CheckFault(literal.offset, WBEM_E_TYPE_MISMATCH,
                          owner.Describe() + ": " + DescribeLiteral(literal) + " was found, " +
                              DescribeType(type) + " takes an array, { value, ... }");
    }
    Array converted(array->size());
    for (size_t i = 0; i < array->size(); ++i) {
        if (Fault fault = ConvertElement(type, owner, (*array)[i], space, allows_alias, converted[i]))
            return fault;
    }
    value = std::move(converted);
    return {};
}

MofObjects::Fault MofObjects::ConvertElement(const PropertyType& type, const MofOwner& owner,
                                             const MofValue& literal, size_t space, bool allows_alias,
                                             Scalar& scalar) {
    const auto* object = std::get_if<std::unique_ptr<MofObject>>(&literal.content);
    if (object && type.type == CimType::kObject) {
        std::optional<Instance> embedded;
        if (Fault fault = Build(**object, space, embedded)) return fault;
        if (!type.class_name.empty() && !embedded->Class()->IsA(type.class_name)) {
            return CheckFault((*object)->class_name.offset, WBEM_E_TYPE_MISMATCH,
                              owner.Describe() + ": an object of class " + embedded->Class()->Name() +
                                  " was found, one of class " + type.class_name +
                                  " or derived from it was expected");
        }
        scalar = std::make_shared<const Instance>(std::move(*embedded));
        return {};
    }
    const auto* alias = std::get_if<MofAlias>(&literal.content);
    if (alias && type.type == CimType::kReference) {
        if (allows_alias) return ConvertAlias(*alias, literal.offset, space, scalar);
        return CheckFault(literal.offset, WBEM_E_TYPE_MISMATCH,
                          owner.Describe() + ": an alias cannot be the default of a property");
    }
    if (Status fault = ConvertLiteral(type, literal, scalar); !fault.ok()) {
        return CheckFault(literal.offset, fault.code(), owner.Describe() + ": " + fault.reason());
    }
    return {};
}

MofObjects::Fault MofObjects::ConvertAlias(const MofAlias& alias, size_t offset, size_t space,
                                           Scalar& scalar) {
    const auto found = aliases_.find(Fold(alias.name));
    if (found == aliases_.end()) {
        return CheckFault(offset, WBEM_E_NOT_FOUND,
                          "no declaration of this file has the alias $" + Clip(alias.name));
    }
    Entry& entry = found->second;
    if (Fault fault = ResolveAlias(entry, offset)) return fault;
    if (entry.space == space) {
        scalar = entry.path;
        return {};
    }
    const std::string& path = scope_.PathOf(entry.space);
    scalar = (path.starts_with('\\') || path.starts_with('/') ? path : "\\\\.\\" + path) + ':' + entry.path;
    return {};
}

MofObjects::Fault MofObjects::ResolveAlias(Entry& entry, size_t offset) {
    if (entry.progress == Progress::kResolved) return {};
    if (entry.progress == Progress::kResolving) {
        return CheckFault(
            offset, WBEM_E_INVALID_OBJECT,
            "the key of the instance with the alias $" + Clip(entry.alias.text) + " depends on itself");
    }
    if (const auto* declared = std::get_if<const MofClass*>(&entry.aliased)) {
        entry.path = (*declared)->name.text;
        entry.progress = Progress::kResolved;
        return {};
    }
    if (resolving_ == kMaxAliasDepth) {
        return CheckFault(offset, WBEM_E_INVALID_OBJECT,
                          "the keys of more than " + std::to_string(kMaxAliasDepth) +
                              " instances depend on one another through aliases");
    }
    ++resolving_;
    entry.progress = Progress::kResolving;
    Fault fault = ResolvePath(*std::get<const MofObject*>(entry.aliased), entry);
    --resolving_;
    if (fault) return fault;
    entry.progress = Progress::kResolved;
    return {};
}

MofObjects::Fault MofObjects::ResolvePath(const MofObject& object, Entry& entry) {
    const MofScope::KnownClass* known = nullptr;
    if (Fault fault = FindClass(object.class_name, entry.space, known)) return fault;
    const ClassDefinition& definition = *known->definition;
    Instance keys(known->definition);
    for (const MofAssignment& assignment : object.assignments) {
        const auto index = known->FindProperty(assignment.property.text);
        if (!index || !definition.Properties()[*index].is_key) continue;
        const PropertyDefinition& property = definition.Properties()[*index];
        Value value;
        if (Fault fault = Convert(property.type, {definition.Name(), property.name}, assignment.value,
                                  entry.space, true, value)) {
            return fault;
        }
        if (Status fault = keys.Set(*index, std::move(value)); !fault.ok()) {
            return CheckFault(assignment.value.offset, fault.code(), fault.reason());
        }
    }
    if (definition.Keys().empty() && !definition.IsSingleton()) {
        return CheckFault(entry.alias.offset, WBEM_E_INVALID_OBJECT,
                          "the alias $" + Clip(entry.alias.text) + " cannot be referred to: class " +
                              definition.Name() + " has no key property");
    }
    Result<std::string> path = RelativePathOf(keys);
    if (!path.ok()) return CheckFault(object.class_name.offset, path.code(), path.status().reason());
    if (path->size() > kMaxKeyBytes) {
        return CheckFault(object.class_name.offset, WBEM_E_INVALID_OBJECT_PATH,
                          "the path of the instance with the alias $" + Clip(entry.alias.text) + " has " +
                              std::to_string(path->size()) + " bytes, " + std::to_string(kMaxKeyBytes) +
                              " are allowed");
    }
    entry.path = std::move(*path);
    return {};
}

}  // namespace service
