// Makes the instances that a MOF text declares, embedded ones and the references between them included.
// Internal to the MOF compiler.
//
//   MofObjects objects(file, scope);
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
#include <unordered_map>
#include <variant>

#include "service/language/mof_scope.h"
#include "service/language/mof_syntax.h"

namespace service {

// A property, for the message of a fault.
struct MofOwner {
    std::string_view class_name;
    std::string_view property;
    std::string Describe() const;
};

class MofObjects {
 public:
    using Fault = std::optional<MofDiagnostic>;
    // What an alias stands for: a class or an instance.
    using Aliased = std::variant<const MofClass*, const MofObject*>;

    MofObjects(const MofFile& file, MofScope& scope) : file_(file), scope_(scope) {}

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
    enum class Progress : uint8_t { kUnresolved, kResolving, kResolved };
    struct Entry {
        MofName alias;
        Aliased aliased;
        size_t space = 0;
        Progress progress = Progress::kUnresolved;
        std::string path;  // relative to its namespace
    };

    Fault CheckFault(size_t offset, int32_t code, std::string message) const;
    Fault ConvertElement(const PropertyType& type, const MofOwner& owner, const MofValue& literal,
                         size_t space, bool allows_alias, Scalar& scalar);
    Fault ConvertAlias(const MofAlias& alias, size_t offset, size_t space, Scalar& scalar);
    Fault ResolveAlias(Entry& entry, size_t offset);
    Fault ResolvePath(const MofObject& object, Entry& entry);

    const MofFile& file_;
    MofScope& scope_;
    std::unordered_map<std::string, Entry> aliases_;  // by their folded names
    size_t resolving_ = 0;                            // aliases whose keys are being followed
};

}  // namespace service
