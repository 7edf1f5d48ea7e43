#include "service/language/mof_objects.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "service/language/mof_literal.h"
#include "service/language/mof_parser.h"
#include "service/model/limits.h"
#include "service/model/object_path.h"
#include "service/model/text.h"

namespace service {
namespace {

// How many aliases may be followed through key properties. Each adds a level of quoting, which doubles the
// backslashes before it, so that the bytes of a key run out earlier.
constexpr size_t kMaxAliasDepth = 32;

class DepthScope {
 public:
    explicit DepthScope(size_t& depth) noexcept : depth_(depth) { ++depth_; }
    ~DepthScope() { --depth_; }
    DepthScope(const DepthScope&) = delete;
    DepthScope& operator=(const DepthScope&) = delete;

 private:
    size_t& depth_;
};

Value Widened(Scalar&& scalar) {
    return std::visit([](auto& held) -> Value { return std::move(held); }, scalar);
}

}  // namespace

std::string MofOwner::Describe() const {
    const std::string whole = std::string(kind) + ' ' + Clip(class_name) + '.' + Clip(name);
    return parameter.empty() ? whole : "parameter " + Clip(parameter) + " of " + whole;
}

MofObjects::Fault MofObjects::CheckFault(size_t offset, int32_t code, std::string message) const {
    return file_.FaultAt(offset, MofPhase::kCheck, code, std::move(message));
}

MofObjects::Fault MofObjects::AddAlias(const MofName& alias, Aliased aliased, size_t space) {
    if (alias.text.empty()) return {};
    if (aliases_->Add({alias, aliased, space, this})) return {};
    return CheckFault(
        alias.offset, WBEM_E_ALREADY_EXISTS,
        "the alias $" + Clip(alias.text) + " stands for another declaration of this source already");
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
    const DepthScope within(depth_);
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
    const auto* text = std::get_if<std::string_view>(&literal.content);
    if ((object || text) && type.type == CimType::kObject) {
        std::optional<Instance> embedded;
        Fault fault = object ? Build(**object, space, embedded)
                             : BuildFromText(*text, literal.offset, owner, space, embedded);
        if (fault) return fault;
        if (!type.class_name.empty() && !embedded->Class()->IsA(type.class_name)) {
            return CheckFault(object ? (*object)->class_name.offset : literal.offset, WBEM_E_TYPE_MISMATCH,
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

MofObjects::Fault MofObjects::BuildFromText(std::string_view text, size_t offset, const MofOwner& owner,
                                            size_t space, std::optional<Instance>& instance) {
    const size_t depth = std::max<size_t>(depth_, 1);
    MofFile file;
    MofObject object;
    Fault fault = ParseMofObject(text, depth, file, object);
    if (!fault) fault = MofObjects(file, scope_, nullptr, depth).Build(object, space, instance);
    if (!fault) return {};
    if (object.class_name.text.empty()) {
        return CheckFault(offset, WBEM_E_TYPE_MISMATCH,
                          owner.Describe() + ": the text " + Quote(text) +
                              " was found, an embedded object is written instance of Class { ... }, or as a "
                              "text that says so");
    }
    return file_.FaultAt(offset, fault->phase, fault->code,
                         owner.Describe() + ": in the text of the object, at line " +
                             std::to_string(fault->line) + ", column " + std::to_string(fault->column) +
                             ": " + fault->message);
}

MofObjects::Fault MofObjects::ConvertAlias(const MofAlias& alias, size_t offset, size_t space,
                                           Scalar& scalar) {
    MofAliases::Entry* found = aliases_ ? aliases_->Find(alias.name) : nullptr;
    if (!found) {
        return CheckFault(offset, WBEM_E_NOT_FOUND,
                          "no declaration of this source has the alias $" + Clip(alias.name));
    }
    MofAliases::Entry& entry = *found;
    if (Fault fault = ResolveAlias(entry, offset)) return fault;
    if (entry.space == space) {
        scalar = entry.path;
        return {};
    }
    const std::string& path = scope_.PathOf(entry.space);
    scalar = (path.starts_with('\\') || path.starts_with('/') ? path : "\\\\.\\" + path) + ':' + entry.path;
    return {};
}

MofObjects::Fault MofObjects::ResolveAlias(MofAliases::Entry& entry, size_t offset) {
    using Progress = MofAliases::Progress;
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
    size_t& followed = scope_.alias_depth();
    if (followed == kMaxAliasDepth) {
        return CheckFault(offset, WBEM_E_INVALID_OBJECT,
                          "the keys of more than " + std::to_string(kMaxAliasDepth) +
                              " instances depend on one another through aliases");
    }
    const DepthScope within(followed);
    entry.progress = Progress::kResolving;
    if (Fault fault = entry.home->ResolvePath(*std::get<const MofObject*>(entry.aliased), entry))
        return fault;
    entry.progress = Progress::kResolved;
    return {};
}

MofObjects::Fault MofObjects::ResolvePath(const MofObject& object, MofAliases::Entry& entry) {
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
