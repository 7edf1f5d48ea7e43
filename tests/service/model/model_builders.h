// Short ways to classes, instances and values, for tests of the model and of the store.
//
//   const ClassPtr policy = Resolved(Declare("Policy", {Key("ID"), Property("Days", CimType::kUint32)}));
//   Instance instance(policy);
//   ASSERT_OK(SetProperty(instance, "Days", uint64_t{30}));
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "service/model/class_definition.h"
#include "service/model/instance.h"
#include "service/model/status.h"
#include "service/model/value.h"

// For a Status or a Result; on a fault its reason is shown.
#define EXPECT_OK(expression) EXPECT_EQ(::service::FaultOf(expression), "")
#define ASSERT_OK(expression) ASSERT_EQ(::service::FaultOf(expression), "")

namespace service {

inline std::string FaultOf(const Status& status) {
    return status.ok() ? "" : std::to_string(static_cast<uint32_t>(status.code())) + ": " + status.reason();
}

template <typename T>
std::string FaultOf(const Result<T>& result) {
    return FaultOf(result.status());
}

// Null while it reads as null; a value that cannot be read fails the test.
inline Value ReadValueOf(const Instance& instance, std::string_view name) {
    const auto index = instance.Class()->FindProperty(name);
    if (!index) {
        ADD_FAILURE() << "no property " << name;
        return {};
    }
    Value storage;
    ValueView view;
    EXPECT_OK(instance.Read(*index, storage, view));
    return OwnedCopy(view);
}

inline std::string TextOf(const Instance& instance, std::string_view name) {
    const Value value = ReadValueOf(instance, name);
    const auto* text = std::get_if<std::string>(&value);
    return text ? *text : "(no text)";
}

inline Status SetProperty(Instance& instance, std::string_view name, Value value) {
    const auto index = instance.Class()->FindProperty(name);
    if (!index) return {WBEM_E_NOT_FOUND, "no property " + std::string(name)};
    return instance.Set(*index, std::move(value));
}

inline Qualifier Flag(std::string name) {
    Qualifier qualifier;
    qualifier.name = std::move(name);
    return qualifier;
}

inline PropertyType One(CimType type, std::string class_name = {}) {
    return {type, false, 0, std::move(class_name)};
}

inline PropertyType Many(CimType type, uint32_t max_elements = 0, std::string class_name = {}) {
    return {type, true, max_elements, std::move(class_name)};
}

inline PropertyDeclaration Property(std::string name, PropertyType type, Value default_value = {}) {
    PropertyDeclaration property;
    property.name = std::move(name);
    property.type = std::move(type);
    property.default_value = std::move(default_value);
    return property;
}

inline PropertyDeclaration Property(std::string name, CimType type, Value default_value = {}) {
    return Property(std::move(name), One(type), std::move(default_value));
}

inline PropertyDeclaration ArrayProperty(std::string name, CimType type) {
    return Property(std::move(name), Many(type));
}

inline PropertyDeclaration Key(std::string name, CimType type = CimType::kString) {
    PropertyDeclaration property = Property(std::move(name), type);
    property.qualifiers.push_back(Flag("Key"));
    return property;
}

inline ClassDeclaration Declare(std::string name, std::vector<PropertyDeclaration> properties,
                                std::string superclass = {}) {
    ClassDeclaration declaration;
    declaration.name = std::move(name);
    declaration.superclass = std::move(superclass);
    declaration.properties = std::move(properties);
    for (PropertyDeclaration& property : declaration.properties)
        property.ordinal = declaration.next_ordinal++;
    return declaration;
}

inline Result<ClassPtr> Resolve(ClassDeclaration declaration, ClassPtr superclass = nullptr) {
    static uint32_t next_id = 100;
    return ClassDefinition::Resolve(++next_id, std::move(declaration), std::move(superclass));
}

// A class that must be sound.
inline ClassPtr Resolved(ClassDeclaration declaration, ClassPtr superclass = nullptr) {
    Result<ClassPtr> definition = Resolve(std::move(declaration), std::move(superclass));
    EXPECT_OK(definition);
    return definition.ok() ? *definition : nullptr;
}

}  // namespace service
