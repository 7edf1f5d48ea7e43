// Makes the instances that a MOF text declares, embedded ones and the references between them included.
// Internal to the MOF compiler.
//
//   MofObjects objects(file, scope, aliases);
//   if (auto fault = objects.AddAlias(object.alias, &object, space)) return fault;   // for all of the file
//   std::optional<Instance> instance;
//   if (auto fault = objects.Build(object, space, instance)) return fault;
//
// Serves the declarations of one file, which must outlive it. Belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "service/language/mof_aliases.h"
#include "service/language/mof_scope.h"
#include "service/language/mof_syntax.h"

namespace service {

// What has a type, for the message of a fault.
struct MofOwner {
    std::string_view class_name;
    std::string_view name;               // of a property or a method
    std::string_view kind = "property";  // or "method"
    std::string_view parameter = {};     // of the method
    std::string Describe() const;
};

class MofObjects {
 public:
    using Fault = std::optional<MofDiagnostic>;
    // What an alias stands for: a class or an instance.
    using Aliased = std::variant<const MofClass*, const MofObject*>;

    // `aliases` may be null: then there are none. `depth` objects stand around those that are built.
    MofObjects(const MofFile& file, MofScope& scope, MofAliases* aliases, size_t depth = 0)
        : file_(file), scope_(scope), aliases_(aliases), depth_(depth) {}

    // Makes `alias`, unless it was left out, stand for a declaration of the namespace `space`.
    [[nodiscard]] Fault AddAlias(const MofName& alias, Aliased aliased, size_t space);

    // The instance that `object` declares, for the namespace `space`.
    [[nodiscard]] Fault Build(const MofObject& object, size_t space, std::optional<Instance>& instance);

    // `literal` as a value of `type`, the type of `owner`. A default (where `allows_alias` is false) cannot
    // refer to an instance.
    [[nodiscard]] Fault Convert(const PropertyType& type, const MofOwner& owner, const MofValue& literal,
                                size_t space, bool allows_alias, Value& value);

    // The class of that name; a fault at the name when there is none.
    [[nodiscard]] Fault FindClass(const MofName& name, size_t space, const MofScope::KnownClass*& known);

 private:
    Fault CheckFault(size_t offset, int32_t code, std::string message) const;
    Fault ConvertElement(const PropertyType& type, const MofOwner& owner, const MofValue& literal,
                         size_t space, bool allows_alias, Scalar& scalar);
    Fault ConvertAlias(const MofAlias& alias, size_t offset, size_t space, Scalar& scalar);
    // An embedded object that is written as a text.
    Fault BuildFromText(std::string_view text, size_t offset, const MofOwner& owner, size_t space,
                        std::optional<Instance>& instance);
    Fault ResolveAlias(MofAliases::Entry& entry, size_t offset);
    Fault ResolvePath(const MofObject& object, MofAliases::Entry& entry);

    const MofFile& file_;
    MofScope& scope_;
    MofAliases* aliases_;
    size_t depth_;  // objects around the one that is built
};

}  // namespace service
