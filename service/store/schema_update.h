// SchemaUpdate: classes of one namespace that are declared together. Only for service/store.
//
//   SchemaUpdate update(writer, space, names);
//   for (...) if (Status fault = update.Put(declaration, condition, mode, is_changed); !fault.ok()) ...
//   std::string at_fault;
//   if (Status fault = update.Finish(at_fault); !fault.ok()) ...
//
// A class is put behind its superclass where both are declared. What is stored is looked at once, at the end:
// so a property may move from one class to another, and a class change its type together with the subclasses
// that declare it anew. Until then Find tells the classes as they come to be, and instances are not to be
// read. Belongs to one transaction and its thread; dropped without Finish, the transaction must be dropped,
// too.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "service/model/class_definition.h"
#include "service/model/status.h"
#include "service/store/class_change.h"
#include "service/store/repository.h"

namespace service {

class SchemaUpdate {
 public:
    // `names` are those of the classes that will be put.
    SchemaUpdate(RepositoryWriter& writer, Namespace space, const std::vector<std::string>& names);

    // The class as it is to be, with what was put so far; WBEM_E_INVALID_CLASS when there is none.
    Result<ClassPtr> Find(std::string_view name);

    // See RepositoryWriter::PutClass.
    Status Put(ClassDeclaration declaration, PutCondition condition, ClassUpdate mode, bool& is_changed);

    // Rewrites what is stored, or refuses. `at_fault` names the class whose declaration is refused.
    Status Finish(std::string& at_fault);

 private:
    struct Staged {
        ClassPtr definition;
        bool is_forced = false;
    };

    // The class as it is stored; null when there is none.
    Result<ClassPtr> Stored(std::string_view name);
    // What becomes of a class by what becomes of those above it.
    Result<ClassPtr> Current(const ClassPtr& definition);
    Result<ClassPtr> SuperclassOf(ClassDeclaration& declaration);
    // An object property may be declared anew only with a class that derives from the one it had.
    Status CheckTargets(const ClassDeclaration& declaration, const ClassDefinition* superclass);
    // The class nearest above, or the class itself, that was put.
    const Staged* CauseOf(const ClassDefinition& definition) const;
    Result<std::vector<ClassVersion>> Versions(std::string& at_fault);

    RepositoryWriter& writer_;
    const Namespace space_;
    std::unordered_set<std::string> pending_;         // folded names
    std::unordered_map<std::string, Staged> staged_;  // by folded names; from the first change on
    std::unordered_set<std::string> redeclared_;      // of those staged that were there before
    std::unordered_map<uint32_t, ClassPtr> current_;  // by numbers
    SchemaCache::ClassList before_;                   // all classes, when one of them changes
};

}  // namespace service
