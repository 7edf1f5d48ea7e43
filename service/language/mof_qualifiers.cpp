#include "service/language/mof_qualifiers.h"

#include <array>
#include <string_view>
#include <utility>

#include "service/language/mof_literal.h"
#include "service/language/mof_scope_words.h"
#include "service/model/text.h"

namespace service {

std::optional<CimType> IntrinsicMofType(std::string_view name) {
    constexpr std::array kTypes{CimType::kSint8,  CimType::kUint8,  CimType::kSint16,  CimType::kUint16,
                                CimType::kSint32, CimType::kUint32, CimType::kSint64,  CimType::kUint64,
                                CimType::kReal32, CimType::kReal64, CimType::kChar16,  CimType::kBoolean,
                                CimType::kString, CimType::kObject, CimType::kDatetime};
    for (const CimType type : kTypes) {
        if (EqualFolded(name, CimTypeName(type))) return type;
    }
    return std::nullopt;
}

MofQualifiers::Fault MofQualifiers::CheckFault(size_t offset, int32_t code, std::string message) const {
    return file_.FaultAt(offset, MofPhase::kCheck, code, std::move(message));
}

MofQualifiers::Fault MofQualifiers::Declare(const MofQualifierType& declared,
                                            QualifierDeclaration& declaration) const {
    const std::optional<CimType> type = IntrinsicMofType(declared.type.name.text);
    if (!type || type == CimType::kObject) {
        return CheckFault(declared.type.name.offset, WBEM_E_INVALID_QUALIFIER_TYPE,
                          "qualifier " + Clip(declared.name.text) + " cannot be of type " +
                              Quote(declared.type.name.text) +
                              ": a qualifier is a boolean, a number, a char16, a string or a datetime");
    }
    declaration.name = declared.name.text;
    declaration.type = {*type, declared.type.is_array, declared.type.max_elements, {}};
    declaration.scope = declared.scope;
    declaration.flavor = ChangedFlavor(kFlavorToSubclass, declared.flavors);
    if (Status fault = CheckName("qualifier", declaration.name, true); !fault.ok())
        return CheckFault(declared.name.offset, fault.code(), fault.reason());
    if (!declared.default_value) return {};
    Status fault = ConvertConstant(declaration.type, *declared.default_value, declaration.default_value);
    if (fault.ok()) fault = CheckValue(declaration.type, declaration.default_value);
    if (fault.ok()) return {};
    return CheckFault(declared.default_value->offset, fault.code(),
                      "the value of qualifier " + Clip(declaration.name) + ": " + fault.reason());
}

MofQualifiers::Fault MofQualifiers::Convert(const std::vector<MofQualifier>& given, const std::string& owner,
                                            uint32_t place, size_t space, std::vector<Qualifier>& converted) {
    converted.resize(given.size());
    for (size_t i = 0; i < given.size(); ++i) {
        if (Fault fault = ConvertOne(given[i], owner, place, space, converted[i])) return fault;
    }
    return {};
}

MofQualifiers::Fault MofQualifiers::ConvertOne(const MofQualifier& given, const std::string& owner,
                                               uint32_t place, size_t space, Qualifier& converted) {
    const Result<const QualifierDeclaration*> found = scope_.FindQualifier(space, given.name.text);
    if (!found.ok()) {
        return file_.FaultAt(given.name.offset, MofPhase::kStore, found.code(), found.status().reason());
    }
    converted.name = given.name.text;
    const QualifierDeclaration* declaration = *found;
    Status fault;
    if (!declaration) {
        converted.flavor = FlavorOf(given);
        fault = ConvertQualifierValue(given, converted.type, converted.value);
    } else {
        converted.flavor = ChangedFlavor(declaration->flavor, given.flavors);
        converted.type = declaration->type;
        if (!(declaration->scope & place)) WarnOfScope(given, owner, place, *declaration);
        if (given.value) {
            fault = ConvertConstant(converted.type, *given.value, converted.value);
            if (fault.ok()) fault = CheckValue(converted.type, converted.value);
        } else if (converted.type.type != CimType::kBoolean || converted.type.is_array) {
            converted.value = declaration->default_value;
        }
    }
    if (fault.ok()) return {};
    return CheckFault(given.value ? given.value->offset : given.name.offset, fault.code(),
                      "qualifier " + Clip(converted.name) + " of " + owner + ": " + fault.reason());
}

void MofQualifiers::WarnOfScope(const MofQualifier& given, const std::string& owner, uint32_t place,
                                const QualifierDeclaration& declaration) {
    const std::string scopes = MofScopeText(declaration.scope, &MofScopeWord::plural);
    const std::string kind = "scope " + std::to_string(place) + ' ' + Fold(declaration.name);
    scope_.warnings().Warn(file_, given.name.offset, kind,
                           "qualifier " + Clip(given.name.text) + " stands at " + owner +
                               ", it is declared for " + (scopes.empty() ? "nothing" : scopes));
}

}  // namespace service
