// The namespaces of one import, the classes it declares, and those that its values are checked against.
// Internal to the MOF compiler.
//
//   MofScope scope(target);
//   const size_t space = scope.Add(path);
//   Result<const MofScope::KnownClass*> known = scope.Find(space, "RetentionPolicy");
//
// A scope belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "service/language/mof_compiler.h"
#include "service/language/mof_warnings.h"

namespace service {

class MofScope {
 public:
    struct KnownClass {
        ClassPtr definition;                                 // null for a class that is not there
        std::unordered_map<std::string, size_t> properties;  // by their folded names
        std::optional<size_t> FindProperty(std::string_view name) const;
    };

    MofScope(MofTarget& target, MofWarnings& warnings) : target_(target), warnings_(warnings) {}

    MofWarnings& warnings() noexcept { return warnings_; }
    // How many aliases are being followed to their instances' keys.
    size_t& alias_depth() noexcept { return alias_depth_; }

    // The number of the namespace `path`, a new one or, where it was added before in whatever case, its own.
    Result<size_t> Add(std::string_view path);

    const std::string& PathOf(size_t space) const noexcept { return spaces_[space].path; }
    size_t size() const noexcept { return spaces_.size(); }

    // Notes that the import declares the class of that name as its `number`th; the number of the earlier
    // declaration where there is one.
    std::optional<size_t> Declare(size_t space, std::string_view class_name, size_t number);

    // The number of the import's declaration of the class.
    std::optional<size_t> FindDeclared(size_t space, std::string_view class_name) const;

    // Makes the namespace the target's current one unless it is.
    Status Enter(size_t space);

    // The class of that name, asked of the target once; its definition is null when there is none. Valid
    // until Forget.
    Result<const KnownClass*> Find(size_t space, std::string_view class_name);

    // The declaration of the qualifier of that name, null when there is none; from the time on when the
    // import's own were put. Valid as long as the scope.
    Result<const QualifierDeclaration*> FindQualifier(size_t space, std::string_view name);

    // Forgets all classes: they were changed in the target.
    void Forget();

 private:
    struct Space {
        std::string path;
        std::unordered_map<std::string, size_t> declared;     // by their folded names
        std::unordered_map<std::string, KnownClass> classes;  // by their folded names
        // By their folded names; none until one was asked for.
        std::optional<std::unordered_map<std::string, QualifierDeclaration>> qualifiers;
    };

    MofTarget& target_;
    MofWarnings& warnings_;
    std::vector<Space> spaces_;
    std::unordered_map<std::string, size_t> numbers_;  // of the spaces by their folded paths
    std::optional<size_t> current_;
    size_t alias_depth_ = 0;
};

}  // namespace service
