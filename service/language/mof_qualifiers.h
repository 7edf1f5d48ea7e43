// Makes the qualifiers of a MOF text, and their declarations. Internal to the MOF compiler.
//
//   MofQualifiers qualifiers(file, scope);
//   std::vector<Qualifier> converted;
//   if (auto fault = qualifiers.Convert(given, "class Policy", kScopeClass, space, converted)) return fault;
//
// Serves the declarations of one file, which must outlive it. Belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "service/language/mof_scope.h"
#include "service/language/mof_syntax.h"
#include "service/model/class_definition.h"

namespace service {

class MofQualifiers {
 public:
    using Fault = std::optional<MofDiagnostic>;

    MofQualifiers(const MofFile& file, MofScope& scope) : file_(file), scope_(scope) {}

    [[nodiscard]] Fault Declare(const MofQualifierType& declared, QualifierDeclaration& declaration) const;

    // `place` is where they stand, one or several bits of QualifierScope; `owner` names it in messages.
    [[nodiscard]] Fault Convert(const std::vector<MofQualifier>& given, const std::string& owner,
                                uint32_t place, size_t space, std::vector<Qualifier>& converted);

 private:
    Fault ConvertOne(const MofQualifier& given, const std::string& owner, uint32_t place, size_t space,
                     Qualifier& converted);
    Fault CheckFault(size_t offset, int32_t code, std::string message) const;
    void WarnOfScope(const MofQualifier& given, const std::string& owner, uint32_t place,
                     const QualifierDeclaration& declaration);

    const MofFile& file_;
    MofScope& scope_;
};

// The intrinsic type of that name, in any case; none for a class.
std::optional<CimType> IntrinsicMofType(std::string_view name);

}  // namespace service
