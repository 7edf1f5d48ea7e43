#include "service/language/mof_classes.h"

#include <array>
#include <optional>
#include <utility>

#include "service/language/mof_literal.h"
#include "service/model/text.h"

namespace service {
namespace {

constexpr std::string_view kEmbeddedInstance = "EmbeddedInstance";
constexpr std::string_view kEmbeddedObject = "EmbeddedObject";

std::optional<CimType> IntrinsicType(std::string_view name) {
    constexpr std::array kTypes{CimType::kSint8,  CimType::kUint8,  CimType::kSint16,  CimType::kUint16,
                                CimType::kSint32, CimType::kUint32, CimType::kSint64,  CimType::kUint64,
                                CimType::kReal32, CimType::kReal64, CimType::kChar16,  CimType::kBoolean,
                                CimType::kString, CimType::kObject, CimType::kDatetime};
    for (const CimType type : kTypes) {
        if (EqualFolded(name, CimTypeName(type))) return type;
    }
    return std::nullopt;
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
    if (Fault fault = ConvertQualifiers(declared.qualifiers, "class " + Clip(name), declaration.qualifiers)) {
        return fault;
    }
    declaration.properties.resize(declared.properties.size());
    for (size_t i = 0; i < declared.properties.size(); ++i) {
        if (Fault fault =
                ConvertProperty(declared, declared.properties[i], space, declaration.properties[i])) {
            return fault;
        }
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

MofClasses::Fault MofClasses::ConvertQualifiers(const std::vector<MofQualifier>& qualifiers,
                                                const std::string& owner,
                                                std::vector<Qualifier>& converted) const {
    converted.resize(qualifiers.size());
    for (size_t i = 0; i < qualifiers.size(); ++i) {
        Qualifier& qualifier = converted[i];
        qualifier.name = qualifiers[i].name.text;
        qualifier.flavor = FlavorOf(qualifiers[i]);
        if (Status fault = ConvertQualifierValue(qualifiers[i], qualifier.type, qualifier.value);
            !fault.ok()) {
            return CheckFault(qualifiers[i].value->offset, fault.code(),
                              "qualifier " + Clip(qualifier.name) + " of " + owner + ": " + fault.reason());
        }
    }
    return {};
}

MofClasses::Fault MofClasses::ConvertProperty(const MofClass& declared, const MofProperty& property,
                                              size_t space, PropertyDeclaration& converted) {
    const MofOwner owner{declared.name.text, property.name.text};
    converted.name = property.name.text;
    if (Fault fault = ConvertType(declared, property, owner, space, converted.type)) return fault;
    if (Fault fault = ConvertQualifiers(property.qualifiers, owner.Describe(), converted.qualifiers))
        return fault;
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

MofClasses::Fault MofClasses::ConvertType(const MofClass& declared, const MofProperty& property,
                                          const MofOwner& owner, size_t space, PropertyType& type) {
    type = {CimType::kString, property.is_array, property.max_elements, {}};
    const std::optional<CimType> intrinsic = IntrinsicType(property.type.text);
    if (intrinsic == CimType::kString && !property.is_reference) {
        return ConvertStringType(declared, property, owner, space, type);
    }
    if (Fault fault = CheckNotEmbedded(property, owner)) return fault;
    if (property.is_reference) {
        type.type = CimType::kReference;
        if (intrinsic == CimType::kObject) return {};
        if (intrinsic) {
            return CheckFault(
                property.type.offset, WBEM_E_INVALID_PROPERTY_TYPE,
                owner.Describe() + ": a reference names a class, " + Quote(property.type.text) + " is none");
        }
    } else {
        type.type = intrinsic.value_or(CimType::kObject);
        if (intrinsic) return {};
    }
    type.class_name = property.type.text;
    return CheckTarget(property.type, owner, space);
}

MofClasses::Fault MofClasses::CheckNotEmbedded(const MofProperty& property, const MofOwner& owner) const {
    for (const std::string_view name : {kEmbeddedInstance, kEmbeddedObject}) {
        const MofQualifier* qualifier = FindQualifier(property.qualifiers, name);
        const bool* flag =
            qualifier && qualifier->value ? std::get_if<bool>(&qualifier->value->content) : nullptr;
        if (!qualifier || (flag && !*flag)) continue;
        return CheckFault(qualifier->name.offset, WBEM_E_INVALID_PROPERTY_TYPE,
                          owner.Describe() + ": the qualifier " + std::string(name) +
                              " stands at properties of type string only");
    }
    return {};
}

MofClasses::Fault MofClasses::ConvertStringType(const MofClass& declared, const MofProperty& property,
                                                const MofOwner& owner, size_t space, PropertyType& type) {
    if (const MofQualifier* instance = FindQualifier(property.qualifiers, kEmbeddedInstance)) {
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
    if (const MofQualifier* object = FindQualifier(property.qualifiers, kEmbeddedObject)) {
        const bool* flag = object->value ? std::get_if<bool>(&object->value->content) : nullptr;
        if (object->value && !flag) {
            return CheckFault(object->name.offset, WBEM_E_TYPE_MISMATCH,
                              owner.Describe() + ": the qualifier EmbeddedObject takes TRUE or FALSE");
        }
        if (!flag || *flag) type.type = CimType::kObject;
        return {};
    }
    return InheritType(declared, property, space, type);
}

// A string without such a qualifier inherits it with the rest of the property.
MofClasses::Fault MofClasses::InheritType(const MofClass& declared, const MofProperty& property, size_t space,
                                          PropertyType& type) {
    if (declared.superclass.text.empty()) return {};
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
