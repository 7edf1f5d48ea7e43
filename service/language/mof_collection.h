// Everything that the sources of an import declare, and the files that they include, in the order in which it
// stands. Internal to the MOF compiler.
//
//   MofCollection collection(scope, files);
//   if (auto fault = collection.Read(sources, space)) return fault;
//   for (const auto& [unit, declared, space, update] : collection.classes()) ...
//
// Belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "service/language/mof_aliases.h"
#include "service/language/mof_classes.h"
#include "service/language/mof_objects.h"
#include "service/language/mof_qualifiers.h"
#include "service/language/mof_scope.h"
#include "service/language/mof_syntax.h"

namespace service {

// One text of the import: a source, or a file that was included.
struct MofUnit {
    MofUnit(MofScope& scope, MofAliases& visible)
        : aliases(visible),
          objects(file, scope, &visible),
          classes(file, scope, objects),
          qualifiers(file, scope) {}

    std::optional<MofDiagnostic> CheckFault(size_t offset, int32_t code, std::string message) const {
        return file.FaultAt(offset, MofPhase::kCheck, code, std::move(message));
    }
    std::optional<MofDiagnostic> StoreFault(size_t offset, const Status& status) const {
        return file.FaultAt(offset, MofPhase::kStore, status.code(), status.reason());
    }

    MofFile file;
    MofAliases& aliases;
    MofObjects objects;
    MofClasses classes;
    MofQualifiers qualifiers;
};

class MofCollection {
 public:
    using Fault = std::optional<MofDiagnostic>;

    // A declaration, and the namespace and the flags that it stands under.
    template <typename Node>
    struct Placed {
        MofUnit* unit = nullptr;
        Node* node = nullptr;
        size_t space = 0;
        MofUpdate update = {};
    };
    struct Deletion {
        MofUnit* unit = nullptr;
        const MofDeletion* node = nullptr;
        size_t space = 0;
        ObjectPath path = {};              // of an instance
        size_t instances_before = 0;       // that are declared in front of it
        bool is_behind_its_class = false;  // an instance of the same class stands in front of it
    };
    struct Place {
        const MofUnit* unit = nullptr;
        size_t offset = 0;
    };

    // `files` may be null: then nothing can be included.
    MofCollection(MofScope& scope, MofFiles* files) : scope_(scope), files_(files) {}

    // "file:line:column", to name a place other than the one at fault.
    static std::string PlaceOf(const MofUnit& unit, size_t offset);

    // Reads the sources, which begin in the namespace `space`, and what they include.
    [[nodiscard]] Fault Read(std::span<const MofSource> sources, size_t space);

    // Where each namespace is used first; no unit for one that nothing uses.
    const std::vector<Place>& first_uses() const noexcept { return first_uses_; }
    // The names of the namespaces that instances of __Namespace declare.
    const std::vector<Placed<const MofValue>>& children() const noexcept { return children_; }
    // Those that are declared more than once in a namespace stand there each time.
    const std::vector<Placed<const MofQualifierType>>& qualifiers() const noexcept { return qualifiers_; }
    const std::vector<Placed<MofClass>>& classes() const noexcept { return classes_; }
    const std::vector<Placed<MofObject>>& objects() const noexcept { return objects_; }
    // Those that come before all declarations, and those that come among the instances.
    std::span<const Deletion> early_deletions() const noexcept {
        return std::span(deletions_).first(early_deletions_);
    }
    std::span<const Deletion> late_deletions() const noexcept {
        return std::span(deletions_).subspan(early_deletions_);
    }

 private:
    // Where the reading stands.
    struct State {
        size_t space = 0;
        MofUpdate classes;
        MofUpdate instances;
    };
    // A file that was read, beginning in a namespace.
    struct Compiled {
        MofAliases* aliases = nullptr;
        size_t end_space = 0;
    };

    const Compiled* FindCompiled(const std::string& file, size_t space) const;
    Fault ReadSource(const MofSource& source, MofAliases& aliases, State& state);
    Fault ReadText(std::string name, std::string bytes, std::string file, MofAliases& aliases, State& state);
    Fault Collect(MofUnit& unit, const std::string& file, State& state);
    Fault Include(MofUnit& unit, const std::string& including, const MofInclude& include, State& state);
    Fault CircleFault(const MofUnit& unit, const MofInclude& include, const MofFiles::Found& found) const;
    Fault EnterNamespace(MofUnit& unit, const MofNamespace& pragma, State& state);
    Fault CollectClass(MofUnit& unit, MofClass& declared, const State& state);
    Fault CollectObject(MofUnit& unit, MofObject& object, const State& state);
    Fault CollectNamespace(MofUnit& unit, const MofObject& object, size_t space);
    Fault CollectDeletion(MofUnit& unit, const MofDeletion& deletion, size_t space);
    Fault SplitDeletions();
    void NoteUse(const MofUnit& unit, size_t offset, size_t space);

    struct Open {
        std::string name;
        std::string file;  // empty for a text in no file
    };

    MofScope& scope_;
    MofFiles* files_;
    std::deque<MofAliases> aliases_;  // by source
    std::deque<MofUnit> units_;
    // By file and the namespace it begins in; none for one that names it itself before all else.
    std::map<std::pair<std::string, std::optional<size_t>>, Compiled> compiled_;
    std::vector<Open> open_;         // the source that is read and the files it was included through
    std::vector<Place> first_uses_;  // by namespace
    std::vector<Placed<const MofValue>> children_;
    std::vector<Placed<const MofQualifierType>> qualifiers_;
    std::vector<Placed<MofClass>> classes_;
    std::vector<Placed<MofObject>> objects_;
    std::vector<Deletion> deletions_;
    size_t early_deletions_ = 0;
    std::unordered_set<std::string> has_instances_;  // namespaces' numbers and folded names of classes
};

}  // namespace service
