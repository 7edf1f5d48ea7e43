#include "service/language/mof_compiler.h"

#include <deque>
#include <utility>
#include <vector>

#include "service/language/class_order.h"
#include "service/language/mof_classes.h"
#include "service/language/mof_objects.h"
#include "service/language/mof_scope.h"
#include "service/language/mof_syntax.h"
#include "service/model/text.h"

namespace service {
namespace {

using Fault = std::optional<MofDiagnostic>;

constexpr std::string_view kNamespaceClass = "__Namespace";

// One source of the import.
struct Unit {
    explicit Unit(MofScope& scope) : objects(file, scope), classes(file, scope, objects) {}

    Fault CheckFault(size_t offset, int32_t code, std::string message) const {
        return file.FaultAt(offset, MofPhase::kCheck, code, std::move(message));
    }
    Fault StoreFault(size_t offset, const Status& status) const {
        return file.FaultAt(offset, MofPhase::kStore, status.code(), status.reason());
    }

    MofFile file;
    MofObjects objects;
    MofClasses classes;
};

// A declaration, or a part of one, and the namespace that it acts in.
template <typename Node>
struct Placed {
    Unit* unit;
    Node* node;
    size_t space;
};

class Importer {
 public:
    Importer(MofTarget& target, const MofOptions& options)
        : target_(target), options_(options), scope_(target) {}

    MofImport Run(std::span<const MofSource> sources, const std::string& default_namespace) {
        MofImport import;
        import.fault = RunSteps(sources, default_namespace);
        import.summary = summary_;
        return import;
    }

 private:
    Fault RunSteps(std::span<const MofSource> sources, const std::string& default_namespace) {
        if (Fault fault = Parse(sources)) return fault;
        if (Fault fault = Collect(default_namespace)) return fault;
        if (Fault fault = OrderClasses()) return fault;
        if (Fault fault = PutNamespaces()) return fault;
        if (Fault fault = PutClasses()) return fault;
        return PutInstances();
    }

    Fault Parse(std::span<const MofSource> sources) {
        for (const MofSource& source : sources) {
            if (Fault fault = ParseMof(source, units_.emplace_back(scope_).file)) return fault;
        }
        return {};
    }

    Fault Collect(const std::string& default_namespace) {
        const Result<size_t> space = scope_.Add(default_namespace);
        if (!space.ok()) {
            return MofDiagnostic{{}, 0, 0, MofPhase::kCheck, space.code(), space.status().reason()};
        }
        for (Unit& unit : units_) {
            if (Fault fault = CollectFrom(unit, *space)) return fault;
        }
        return {};
    }

    Fault CollectFrom(Unit& unit, size_t space) {
        for (MofDeclaration& declaration : unit.file.declarations) {
            if (const auto* include = std::get_if<MofInclude>(&declaration)) {
                return unit.CheckFault(
                    include->file.offset, WBEM_E_NOT_SUPPORTED,
                    "the file " + Quote(include->file.text) +
                        " is not read: #pragma include is not supported, name the file in the "
                        "import itself");
            }
            if (const auto* pragma = std::get_if<MofNamespace>(&declaration)) {
                const Result<size_t> entered = scope_.Add(pragma->path.text);
                if (!entered.ok()) {
                    return unit.CheckFault(pragma->path.offset, entered.code(), entered.status().reason());
                }
                space = *entered;
                NoteUse(unit, pragma->path.offset, space);
                continue;
            }
            const auto* declared = std::get_if<MofClass>(&declaration);
            Fault fault = declared ? CollectClass(unit, *declared, space)
                                   : CollectObject(unit, std::get<MofObject>(declaration), space);
            if (fault) return fault;
        }
        return {};
    }

    // Notes the place at which each namespace is used first.
    void NoteUse(const Unit& unit, size_t offset, size_t space) {
        if (first_uses_.size() <= space) first_uses_.resize(space + 1);
        if (!first_uses_[space].unit) first_uses_[space] = {&unit, offset};
    }

    Fault CollectClass(Unit& unit, const MofClass& declared, size_t space) {
        NoteUse(unit, declared.name.offset, space);
        if (const auto earlier = scope_.Declare(space, declared.name.text, classes_.size())) {
            const MofDiagnostic first = classes_[*earlier].unit->file.FaultAt(
                classes_[*earlier].node->name.offset, MofPhase::kCheck, WBEM_E_ALREADY_EXISTS, "");
            return unit.CheckFault(declared.name.offset, WBEM_E_ALREADY_EXISTS,
                                   "class " + Clip(declared.name.text) +
                                       " is declared twice in this import, first at " + first.file + ":" +
                                       std::to_string(first.line));
        }
        classes_.push_back({&unit, &declared, space});
        return unit.objects.AddAlias(declared.alias, &declared, space);
    }

    Fault CollectObject(Unit& unit, MofObject& object, size_t space) {
        NoteUse(unit, object.class_name.offset, space);
        if (EqualFolded(object.class_name.text, kNamespaceClass))
            return CollectNamespace(unit, object, space);
        objects_.push_back({&unit, &object, space});
        return unit.objects.AddAlias(object.alias, &object, space);
    }

    Fault CollectNamespace(Unit& unit, const MofObject& object, size_t space) {
        if (!object.alias.text.empty()) {
            return unit.CheckFault(object.alias.offset, WBEM_E_INVALID_OBJECT,
                                   "a namespace cannot have an alias");
        }
        if (object.assignments.size() != 1 ||
            !EqualFolded(object.assignments.front().property.text, "Name")) {
            return unit.CheckFault(object.class_name.offset, WBEM_E_INVALID_OBJECT,
                                   "an instance of __Namespace has one property, Name");
        }
        const MofValue& value = object.assignments.front().value;
        const auto* name = std::get_if<std::string_view>(&value.content);
        if (!name) {
            return unit.CheckFault(value.offset, WBEM_E_TYPE_MISMATCH,
                                   "property __Namespace.Name takes a text in double quotes");
        }
        if (Status fault = CheckName("namespace", *name, true); !fault.ok()) {
            return unit.CheckFault(value.offset, WBEM_E_INVALID_NAMESPACE, fault.reason());
        }
        children_.push_back({&unit, &value, space});
        return {};
    }

    Fault OrderClasses() {
        std::vector<std::vector<size_t>> needs(classes_.size());
        for (size_t i = 0; i < classes_.size(); ++i) {
            for (const std::string_view name : MofClasses::NeedsOf(*classes_[i].node)) {
                if (const auto needed = scope_.FindDeclared(classes_[i].space, name))
                    needs[i].push_back(*needed);
            }
        }
        ClassOrder ordered = OrderByNeed(needs);
        order_ = std::move(ordered.order);
        return ordered.cycle.empty() ? Fault() : CycleFault(ordered.cycle);
    }

    Fault CycleFault(const std::vector<size_t>& cycle) const {
        constexpr size_t kNamesShown = 10;
        std::string message = "classes cannot derive from or hold one another in a circle: ";
        for (size_t i = 0; i < cycle.size() && i < kNamesShown; ++i) {
            message += Clip(classes_[cycle[i]].node->name.text) + " needs ";
        }
        if (cycle.size() > kNamesShown) message += "... needs ";
        const auto& first = classes_[cycle.front()];
        return first.unit->CheckFault(first.node->name.offset, WBEM_E_INVALID_SUPERCLASS,
                                      message + Clip(first.node->name.text));
    }

    Fault PutNamespaces() {
        for (size_t space = 0; space < first_uses_.size(); ++space) {
            const auto& [unit, offset] = first_uses_[space];
            if (!unit) continue;
            if (Status fault = scope_.Enter(space); !fault.ok()) return unit->StoreFault(offset, fault);
        }
        for (const auto& [unit, value, space] : children_) {
            Status fault = scope_.Enter(space);
            if (fault.ok()) {
                fault = target_.CreateChildNamespace(std::string(std::get<std::string_view>(value->content)));
            }
            if (!fault.ok()) return unit->StoreFault(value->offset, fault);
            ++summary_.namespaces;
            ReportProgress();
        }
        return {};
    }

    Fault PutClasses() {
        for (const size_t index : order_) {
            const auto& [unit, declared, space] = classes_[index];
            ClassDeclaration declaration;
            if (Fault fault = unit->classes.Convert(*declared, space, declaration)) return fault;
            Status fault = scope_.Enter(space);
            if (fault.ok()) fault = target_.PutClass(std::move(declaration));
            if (!fault.ok()) return unit->StoreFault(declared->name.offset, fault);
            // What derives from the class has changed with it.
            scope_.Forget();
            ++summary_.classes;
            ReportProgress();
        }
        return {};
    }

    Fault PutInstances() {
        for (const auto& [unit, object, space] : objects_) {
            std::optional<Instance> instance;
            if (Fault fault = unit->objects.Build(*object, space, instance)) return fault;
            Status fault = scope_.Enter(space);
            if (fault.ok()) fault = target_.PutInstance(std::move(*instance));
            if (!fault.ok()) return unit->StoreFault(object->class_name.offset, fault);
            // Nothing asks for it any more, unless by its alias.
            if (object->alias.text.empty()) std::vector<MofAssignment>().swap(object->assignments);
            ++summary_.instances;
            ReportProgress();
        }
        return {};
    }

    void ReportProgress() const {
        if (!options_.progress) return;
        const size_t done = summary_.classes + summary_.instances + summary_.namespaces;
        const size_t total = classes_.size() + objects_.size() + children_.size();
        if (done == total || (options_.progress_interval > 0 && done % options_.progress_interval == 0)) {
            options_.progress(done, total);
        }
    }

    struct Place {
        const Unit* unit = nullptr;
        size_t offset = 0;
    };

    MofTarget& target_;
    const MofOptions& options_;
    MofScope scope_;
    std::deque<Unit> units_;
    std::vector<Place> first_uses_;  // by namespace
    std::vector<Placed<const MofValue>> children_;
    std::vector<Placed<const MofClass>> classes_;
    std::vector<Placed<MofObject>> objects_;
    std::vector<size_t> order_;  // of classes_
    MofSummary summary_;
};

}  // namespace

MofImport CompileMof(std::span<const MofSource> sources, const std::string& default_namespace,
                     MofTarget& target, const MofOptions& options) {
    return Importer(target, options).Run(sources, default_namespace);
}

}  // namespace service
