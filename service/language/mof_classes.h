// Makes the classes that a MOF text declares. Internal to the MOF compiler.
//
//   MofClasses classes(file, scope, objects);
//   ClassDeclaration declaration;
//   if (auto fault = classes.Convert(declared, space, declaration)) return fault;
//
// Serves the declarations of one file, which must outlive it. Belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "service/language/mof_objects.h"
#include "service/language/mof_qualifiers.h"
#include "service/language/mof_scope.h"
#include "service/language/mof_syntax.h"
#include "service/model/class_definition.h"

namespace service {

class MofClasses {
 public:
    using Fault = MofObjects::Fault;

    MofClasses(const MofFile& file, MofScope& scope, MofObjects& objects)
        : file_(file), scope_(scope), objects_(objects), qualifiers_(file, scope) {}

    // What `declared` says, for the namespace `space`. The classes that it needs have been put already.
    [[nodiscard]] Fault Convert(const MofClass& declared, size_t space, ClassDeclaration& declaration);

    // The names of the classes that must be put before `declared`: its superclass and those of the objects
    // that are defaults of its properties. Classes that it only refers to may come later.
    static std::vector<std::string_view> NeedsOf(const MofClass& declared);

 private:
    Fault CheckFault(size_t offset, int32_t code, std::string message) const;
    Fault CheckSuperclass(const MofClass& declared, size_t space);
    Fault CheckTarget(const MofName& class_name, const MofOwner& owner, size_t space);
    Fault ConvertProperty(const MofClass& declared, const MofProperty& property, size_t space,
                          PropertyDeclaration& converted);
    Fault ConvertMethod(const MofClass& declared, const MofMethod& method, size_t space,
                        MethodDeclaration& converted);
    // `qualifiers` are those of what has the type.
    Fault ConvertType(const MofType& given, const std::vector<MofQualifier>& qualifiers,
                      const MofOwner& owner, size_t space, PropertyType& type);
    Fault ConvertStringType(const std::vector<MofQualifier>& qualifiers, const MofOwner& owner, size_t space,
                            PropertyType& type);
    Fault CheckNotEmbedded(const std::vector<MofQualifier>& qualifiers, const MofOwner& owner) const;
    Fault InheritType(const MofClass& declared, const MofProperty& property, size_t space,
                      PropertyType& type);

    const MofFile& file_;
    MofScope& scope_;
    MofObjects& objects_;
    MofQualifiers qualifiers_;
};

}  // namespace service
