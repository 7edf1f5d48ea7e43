#include "service/language/mof_classes.h"

#include <optional>
#include <utility>

#include "service/language/mof_literal.h"
#include "service/model/text.h"

namespace service {
namespace {

constexpr std::string_view kEmbeddedInstance = "EmbeddedInstance";
constexpr std::string_view kEmbeddedObject = "EmbeddedObject";
constexpr std::string_view kVoid = "void";

// An association or an indication is a class, too.
constexpr uint32_t kClassScopes = kScopeClass | kScopeAssociation | kScopeIndication;

// What stands at a reference may be meant for references or for what it is besides.
uint32_t ScopesOf(QualifierScope scope, const MofType& type) {
    return type.is_reference ? scope | kScopeReference : static_cast<uint32_t>(scope);
}

const MofQualifier* FindQualifier(const std::vector<MofQualifier>& qualifiers, std::string_view name) {
    for (const MofQualifier& qualifier : qualifiers) {
        if (EqualFolded(qualifier.name.text, name)) return &qualifier;
    }
    return nullptr;
}

void AddClassesOf(const MofObject& object, std::vector<std::string_view>& names);

void AddClassesOf(const MofValue& value, std::vector<std::string_view>& names) {
    if (const auto* object = std::get_if<std::unique_ptr<MofObject>>(&value.content))
        AddClassesOf(**object, names);
    if (const auto* array = std::get_if<MofArray>(&value.content)) {
        for (const MofValue& element : *array)
            AddClassesOf(element, names);
    }
}

void AddClassesOf(const MofObject& object, std::vector<std::string_view>& names) {
    names.push_back(object.class_name.text);
    for (const MofAssignment& assignment : object.assignments)
        AddClassesOf(assignment.value, names);
}

}  // namespace

std::vector<std::string_view> MofClasses::NeedsOf(const MofClass& declared) {
    std::vector<std::string_view> names;
    if (!declared.superclass.text.empty()) names.push_back(declared.superclass.text);
    for (const MofProperty& property : declared.properties) {
        if (property.default_value) AddClassesOf(*property.default_value, names);
    }
    return names;
}

MofClasses::Fault MofClasses::CheckFault(size_t offset, int32_t code, std::string message) const {
    return file_.FaultAt(offset, MofPhase::kCheck, code, std::move(message));
}

MofClasses::Fault MofClasses::Convert(const MofClass& declared, size_t space, ClassDeclaration& declaration) {
    const std::string name(declared.name.text);
    declaration = {name, std::string(declared.superclass.text), {}, {}, {}, 0};
    if (Fault fault = CheckSuperclass(declared, space)) return fault;
    if (Fault fault = qualifiers_.Convert(declared.qualifiers, "class " + Clip(name), kClassScopes, space,
                                          declaration.qualifiers)) {
        return fault;
    }
    declaration.properties.resize(declared.properties.size());
    for (size_t i = 0; i < declared.properties.size(); ++i) {
        if (Fault fault =
                ConvertProperty(declared, declared.properties[i], space, declaration.properties[i])) {
            return fault;
        }
    }
    declaration.methods.resize(declared.methods.size());
    for (size_t i = 0; i < declared.methods.size(); ++i) {
        if (Fault fault = ConvertMethod(declared, declared.methods[i], space, declaration.methods[i]))
            return fault;
    }
    return {};
}

MofClasses::Fault MofClasses::CheckSuperclass(const MofClass& declared, size_t space) {
    const MofName& superclass = declared.superclass;
    if (superclass.text.empty() || scope_.FindDeclared(space, superclass.text)) return {};
    const MofScope::KnownClass* known = nullptr;
    Fault fault = objects_.FindClass(superclass, space, known);
    if (fault && fault->phase == MofPhase::kCheck) fault->code = WBEM_E_INVALID_SUPERCLASS;
    return fault;
}

MofClasses::Fault MofClasses::CheckTarget(const MofName& class_name, const MofOwner& owner, size_t space) {
    if (scope_.FindDeclared(space, class_name.text)) return {};
    const MofScope::KnownClass* known = nullptr;
    Fault fault = objects_.FindClass(class_name, space, known);
    if (fault) fault->message = owner.Describe() + ": " + fault->message;
    return fault;
}

MofClasses::Fault MofClasses::ConvertProperty(const MofClass& declared, const MofProperty& property,
                                              size_t space, PropertyDeclaration& converted) {
    const MofOwner owner{declared.name.text, property.name.text};
    converted.name = property.name.text;
    if (Fault fault = ConvertType(property.type, property.qualifiers, owner, space, converted.type))
        return fault;
    if (Fault fault = InheritType(declared, property, space, converted.type)) return fault;
    if (Fault fault =
            qualifiers_.Convert(property.qualifiers, owner.Describe(),
                                ScopesOf(kScopeProperty, property.type), space, converted.qualifiers)) {
        return fault;
    }
    if (!property.default_value) return {};

    const MofValue& literal = *property.default_value;
    if (Fault fault =
            objects_.Convert(converted.type, owner, literal, space, false, converted.default_value)) {
        return fault;
    }
    if (Status fault = CheckValue(converted.type, converted.default_value); !fault.ok()) {
        return CheckFault(literal.offset, fault.code(),
                          "the default of " + owner.Describe() + ": " + fault.reason());
    }
    return {};
}

MofClasses::Fault MofClasses::ConvertMethod(const MofClass& declared, const MofMethod& method, size_t space,
                                            MethodDeclaration& converted) {
    MofOwner owner{declared.name.text, method.name.text, "method"};
    converted.name = method.name.text;
    if (method.type.is_reference || !EqualFolded(method.type.name.text, kVoid)) {
        if (Fault fault =
                ConvertType(method.type, method.qualifiers, owner, space, converted.return_type.emplace())) {
            return fault;
        }
    }
    if (Fault fault = qualifiers_.Convert(method.qualifiers, owner.Describe(), kScopeMethod, space,
                                          converted.qualifiers)) {
        return fault;
    }
    converted.parameters.resize(method.parameters.size());
    for (size_t i = 0; i < method.parameters.size(); ++i) {
        const MofParameter& parameter = method.parameters[i];
        ParameterDeclaration& made = converted.parameters[i];
        owner.parameter = parameter.name.text;
        made.name = parameter.name.text;
        if (Fault fault = ConvertType(parameter.type, parameter.qualifiers, owner, space, made.type))
            return fault;
        if (Fault fault =
                qualifiers_.Convert(parameter.qualifiers, owner.Describe(),
                                    ScopesOf(kScopeParameter, parameter.type), space, made.qualifiers)) {
            return fault;
        }
    }
    return {};
}

MofClasses::Fault MofClasses::ConvertType(const MofType& given, const std::vector<MofQualifier>& qualifiers,
                                          const MofOwner& owner, size_t space, PropertyType& type) {
    type = {CimType::kString, given.is_array, given.max_elements, {}};
    const std::optional<CimType> intrinsic = IntrinsicMofType(given.name.text);
    if (intrinsic == CimType::kString && !given.is_reference)
        return ConvertStringType(qualifiers, owner, space, type);
    if (Fault fault = CheckNotEmbedded(qualifiers, owner)) return fault;
    if (given.is_reference) {
        type.type = CimType::kReference;
        if (intrinsic == CimType::kObject) return {};
        if (intrinsic) {
            return CheckFault(
                given.name.offset, WBEM_E_INVALID_PROPERTY_TYPE,
                owner.Describe() + ": a reference names a class, " + Quote(given.name.text) + " is none");
        }
    } else {
        type.type = intrinsic.value_or(CimType::kObject);
        if (intrinsic) return {};
    }
    type.class_name = given.name.text;
    return CheckTarget(given.name, owner, space);
}

MofClasses::Fault MofClasses::CheckNotEmbedded(const std::vector<MofQualifier>& qualifiers,
                                               const MofOwner& owner) const {
    for (const std::string_view name : {kEmbeddedInstance, kEmbeddedObject}) {
        const MofQualifier* qualifier = FindQualifier(qualifiers, name);
        const bool* flag =
            qualifier && qualifier->value ? std::get_if<bool>(&qualifier->value->content) : nullptr;
        if (!qualifier || (flag && !*flag)) continue;
        return CheckFault(qualifier->name.offset, WBEM_E_INVALID_PROPERTY_TYPE,
                          owner.Describe() + ": the qualifier " + std::string(name) +
                              " stands at what is of type string only");
    }
    return {};
}

MofClasses::Fault MofClasses::ConvertStringType(const std::vector<MofQualifier>& qualifiers,
                                                const MofOwner& owner, size_t space, PropertyType& type) {
    if (const MofQualifier* instance = FindQualifier(qualifiers, kEmbeddedInstance)) {
        const auto* name =
            instance->value ? std::get_if<std::string_view>(&instance->value->content) : nullptr;
        if (!name) {
            return CheckFault(
                instance->name.offset, WBEM_E_TYPE_MISMATCH,
                owner.Describe() +
                    ": the qualifier EmbeddedInstance takes the name of a class in double quotes");
        }
        type.type = CimType::kObject;
        type.class_name = *name;
        return CheckTarget({*name, instance->value->offset}, owner, space);
    }
    const MofQualifier* object = FindQualifier(qualifiers, kEmbeddedObject);
    if (!object) return {};
    const bool* flag = object->value ? std::get_if<bool>(&object->value->content) : nullptr;
    if (object->value && !flag) {
        return CheckFault(object->name.offset, WBEM_E_TYPE_MISMATCH,
                          owner.Describe() + ": the qualifier EmbeddedObject takes TRUE or FALSE");
    }
    if (!flag || *flag) type.type = CimType::kObject;
    return {};
}

// A string without a qualifier that makes it an object inherits that with the rest of the property.
MofClasses::Fault MofClasses::InheritType(const MofClass& declared, const MofProperty& property, size_t space,
                                          PropertyType& type) {
    if (declared.superclass.text.empty() || type.type != CimType::kString) return {};
    if (FindQualifier(property.qualifiers, kEmbeddedObject)) return {};
    const MofScope::KnownClass* superclass = nullptr;
    if (Fault fault = objects_.FindClass(declared.superclass, space, superclass)) return fault;
    const auto index = superclass->FindProperty(property.name.text);
    if (!index) return {};
    const PropertyDefinition& inherited = superclass->definition->Properties()[*index];
    const bool is_embedded_string = inherited.type.type == CimType::kObject &&
                                    (service::FindQualifier(inherited.qualifiers, kEmbeddedInstance) ||
                                     service::FindQualifier(inherited.qualifiers, kEmbeddedObject));
    if (!is_embedded_string) return {};
    type.type = CimType::kObject;
    type.class_name = inherited.type.class_name;
    return {};
}

}  // namespace service
