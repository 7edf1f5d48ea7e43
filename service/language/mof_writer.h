// Classes, instances and qualifier declarations as MOF text, which the MOF compiler reads back as the same.
//
//   std::string mof;
//   if (Status fault = AppendClassMof(declaration, {}, mof); !fault.ok()) return fault;
//   if (Status fault = AppendInstanceMof(instance, mof); !fault.ok()) return fault;
//
//   [Description("How long mail is kept.")]
//   class Policy : Rule
//   {
//       uint32 Days = 5;
//       [EmbeddedInstance("Schedule")] string Times[];
//   };
//
//   instance of Policy
//   {
//       INSTANCE_ID = "mail";
//       Days = NULL;
//   };
//
// Of a class what it declares itself, of an instance what was set on it: a property never set is left out,
// one that was set to null stands with NULL. Both in the order of declaration, so that the same object has
// the same text. Literals are those of `mof_value_writer.h`. All functions are stateless; a text ends with a
// line end, and is not to be used when its function returned a fault.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "service/model/class_definition.h"
#include "service/model/instance.h"
#include "service/model/status.h"

namespace service {

// Bytes of one object's text; one that is longer is refused with WBEM_E_TOO_MUCH_DATA.
inline constexpr size_t kMaxMofBytes = size_t{256} << 20;

struct MofForm {
    // Whether to say the flavors of a qualifier that differ from those it has when it names none.
    bool with_flavors = true;
    // The flavors that a qualifier of that name is declared with; none where it is not declared, or where the
    // function is missing.
    std::function<std::optional<uint32_t>(std::string_view name)> declared_flavor;
};

Status AppendClassMof(const ClassDeclaration& declaration, const MofForm& form, std::string& out);

Status AppendInstanceMof(const Instance& instance, std::string& out);

// `Qualifier Key : boolean = FALSE, Scope(property, reference), Flavor(DisableOverride, ToSubclass);`
void AppendQualifierDeclarationMof(const QualifierDeclaration& declaration, std::string& out);

}  // namespace service
