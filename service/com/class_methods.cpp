#include "service/com/class_methods.h"

#include <string>
#include <utility>

#include "service/model/limits.h"
#include "service/model/text.h"

namespace service {
namespace {

constexpr const char* kSignatureClass = "__PARAMETERS";
constexpr const char* kResultName = "ReturnValue";
constexpr const char* kPlaceQualifier = "ID";

bool IsPassed(const ParameterDeclaration& parameter, Direction direction) {
    const bool is_out = HasTrueQualifier(parameter.qualifiers, "Out");
    if (direction == Direction::kOut) return is_out;
    return FindQualifier(parameter.qualifiers, "In") ? HasTrueQualifier(parameter.qualifiers, "In") : !is_out;
}

PropertyDeclaration PropertyFor(const ParameterDeclaration& parameter, size_t place) {
    PropertyDeclaration property{parameter.name, parameter.type, {}, parameter.qualifiers, 0};
    std::erase_if(property.qualifiers,
                  [](const Qualifier& each) { return EqualFolded(each.name, kPlaceQualifier); });
    property.qualifiers.push_back({kPlaceQualifier,
                                   {CimType::kSint32, false, 0, {}},
                                   Value(static_cast<int64_t>(place)),
                                   kFlavorToSubclass | kFlavorNotOverridable});
    return property;
}

}  // namespace

Result<MethodPtr> FindMethod(const ClassDefinition& definition, std::wstring_view name) {
    const std::string wanted = ToUtf8Lossy(name);
    if (MethodPtr method = definition.FindMethod(wanted)) return method;
    std::string known;
    for (const MethodPtr& each : definition.Methods())
        known += (known.empty() ? "" : ", ") + each->name;
    return Status(
        WBEM_E_NOT_FOUND,
        "class " + definition.Name() + " has no method " + ClipForMessage(wanted, kMaxNameBytes) + ": " +
            (known.empty() ? "it has none" : "those that it has are " + ClipForMessage(known, 300)));
}

Result<CComPtr<ClassObject>> SignatureOf(const ConnectionPtr& connection, const MethodDefinition& method,
                                         Direction direction) {
    ClassDeclaration signature;
    signature.name = kSignatureClass;
    for (size_t i = 0; i < method.parameters.size(); ++i) {
        if (IsPassed(method.parameters[i], direction))
            signature.properties.push_back(PropertyFor(method.parameters[i], i));
    }
    if (direction == Direction::kOut && method.return_type) {
        signature.properties.push_back({kResultName, *method.return_type, {}, {}, 0});
    }
    if (signature.properties.empty()) return CComPtr<ClassObject>();
    SERVICE_ASSIGN_OR_RETURN(const ClassPtr definition,
                             ClassDefinition::Resolve(0, std::move(signature), nullptr));
    return ClassObject::OfClass(connection, definition);
}

}  // namespace service
