#include "service/language/mof_compiler.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "service/language/class_order.h"
#include "service/language/mof_collection.h"
#include "service/language/mof_scope.h"
#include "service/language/mof_syntax.h"
#include "service/language/mof_warnings.h"
#include "service/model/text.h"

namespace service {
namespace {

using Fault = std::optional<MofDiagnostic>;

// The memory of what has been put: nothing asks for it any more.
void Drop(MofClass& declared) {
    std::vector<MofQualifier>().swap(declared.qualifiers);
    std::vector<MofProperty>().swap(declared.properties);
    std::vector<MofMethod>().swap(declared.methods);
}

// Names may differ in case.
bool SameQualifier(const QualifierDeclaration& a, const QualifierDeclaration& b) {
    return a.type.SameShape(b.type) && a.type.max_elements == b.type.max_elements && a.scope == b.scope &&
           a.flavor == b.flavor && SameValue(a.default_value, b.default_value);
}

class Importer {
 public:
    Importer(MofTarget& target, const MofOptions& options)
        : target_(target),
          options_(options),
          warnings_(options.warn),
          scope_(target, warnings_),
          collection_(scope_, options.files) {}

    MofImport Run(std::span<const MofSource> sources, const std::string& default_namespace) {
        MofImport import;
        import.fault = RunSteps(sources, default_namespace);
        import.summary = summary_;
        return import;
    }

 private:
    Fault RunSteps(std::span<const MofSource> sources, const std::string& default_namespace) {
        const Result<size_t> space = scope_.Add(default_namespace);
        if (!space.ok()) {
            return MofDiagnostic{{}, 0, 0, MofPhase::kCheck, space.code(), space.status().reason()};
        }
        if (Fault fault = collection_.Read(sources, *space)) return fault;
        if (Fault fault = OrderClasses()) return fault;
        total_ = collection_.children().size() + collection_.qualifiers().size() +
                 collection_.classes().size() + collection_.objects().size();
        if (Fault fault = PutNamespaces()) return fault;
        for (const MofCollection::Deletion& deletion : collection_.early_deletions()) {
            if (Fault fault = Delete(deletion)) return fault;
        }
        if (Fault fault = PutQualifiers()) return fault;
        if (Fault fault = PutClasses()) return fault;
        return PutInstances();
    }

    Fault OrderClasses() {
        const auto& classes = collection_.classes();
        std::vector<std::vector<size_t>> needs(classes.size());
        for (size_t i = 0; i < classes.size(); ++i) {
            for (const std::string_view name : MofClasses::NeedsOf(*classes[i].node)) {
                if (const auto needed = scope_.FindDeclared(classes[i].space, name))
                    needs[i].push_back(*needed);
            }
        }
        ClassOrder ordered = OrderByNeed(needs);
        order_ = std::move(ordered.order);
        return ordered.cycle.empty() ? Fault() : CycleFault(ordered.cycle);
    }

    Fault CycleFault(const std::vector<size_t>& cycle) const {
        constexpr size_t kNamesShown = 10;
        const auto& classes = collection_.classes();
        std::string message = "classes cannot derive from or hold one another in a circle: ";
        for (size_t i = 0; i < cycle.size() && i < kNamesShown; ++i) {
            message += Clip(classes[cycle[i]].node->name.text) + " needs ";
        }
        if (cycle.size() > kNamesShown) message += "... needs ";
        const auto& first = classes[cycle.front()];
        return first.unit->CheckFault(first.node->name.offset, WBEM_E_INVALID_SUPERCLASS,
                                      message + Clip(first.node->name.text));
    }

    Fault PutNamespaces() {
        const auto& first_uses = collection_.first_uses();
        for (size_t space = 0; space < first_uses.size(); ++space) {
            const auto& [unit, offset] = first_uses[space];
            if (!unit) continue;
            if (Status fault = scope_.Enter(space); !fault.ok()) return unit->StoreFault(offset, fault);
        }
        for (const auto& [unit, value, space, update] : collection_.children()) {
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

    Fault Delete(const MofCollection::Deletion& deletion) {
        const auto& [is_class, name, may_fail] = *deletion.node;
        Status fault = scope_.Enter(deletion.space);
        if (!fault.ok()) return deletion.unit->StoreFault(name.offset, fault);
        fault =
            is_class ? target_.DeleteClass(std::string(name.text)) : target_.DeleteInstance(deletion.path);
        if (fault.ok()) {
            if (is_class) scope_.Forget();
            ++summary_.deletions;
            return {};
        }
        const int32_t code = fault.code();
        if (may_fail && (code == WBEM_E_INVALID_CLASS || code == WBEM_E_NOT_FOUND)) return {};
        if (!may_fail || (code != WBEM_E_CLASS_HAS_CHILDREN && code != WBEM_E_CLASS_HAS_INSTANCES &&
                          code != WBEM_E_INVALID_OPERATION))
            return deletion.unit->StoreFault(name.offset, fault);
        scope_.warnings().Warn(deletion.unit->file, name.offset, fault.reason(),
                               "nothing is deleted: " + fault.reason());
        return {};
    }

    // The files of a product may each bring along the declarations that they use: one that says the same
    // again is read past.
    Fault PutQualifiers() {
        std::map<std::pair<size_t, std::string>, size_t> known;  // by namespace and folded name
        const auto& qualifiers = collection_.qualifiers();
        for (size_t i = 0; i < qualifiers.size(); ++i) {
            const auto& [unit, declared, space, update] = qualifiers[i];
            QualifierDeclaration declaration;
            if (Fault fault = unit->qualifiers.Declare(*declared, declaration)) return fault;
            const auto [earlier, is_new] = known.try_emplace({space, Fold(declaration.name)}, i);
            Fault fault = is_new ? PutQualifier(qualifiers[i], std::move(declaration))
                                 : CompareQualifier(qualifiers[earlier->second], qualifiers[i], declaration);
            if (fault) return fault;
            ReportProgress();
        }
        return {};
    }

    Fault PutQualifier(const MofCollection::Placed<const MofQualifierType>& placed,
                       QualifierDeclaration declaration) {
        Status fault = scope_.Enter(placed.space);
        if (fault.ok()) fault = target_.PutQualifierDeclaration(std::move(declaration));
        if (!fault.ok()) return placed.unit->StoreFault(placed.node->name.offset, fault);
        ++summary_.qualifiers;
        return {};
    }

    static Fault CompareQualifier(const MofCollection::Placed<const MofQualifierType>& earlier,
                                  const MofCollection::Placed<const MofQualifierType>& placed,
                                  const QualifierDeclaration& declaration) {
        QualifierDeclaration first;
        if (Fault fault = earlier.unit->qualifiers.Declare(*earlier.node, first)) return fault;
        if (SameQualifier(first, declaration)) return {};
        return placed.unit->CheckFault(placed.node->name.offset, WBEM_E_ALREADY_EXISTS,
                                       "qualifier " + Clip(declaration.name) +
                                           " is declared otherwise in this import, at " +
                                           MofCollection::PlaceOf(*earlier.unit, earlier.node->name.offset) +
                                           ": declare it once, or alike each time");
    }

    Fault PutClasses() {
        if (Fault fault = BeginClasses()) return fault;
        for (const size_t index : order_) {
            const auto& [unit, declared, space, update] = collection_.classes()[index];
            ClassDeclaration declaration;
            if (Fault fault = unit->classes.Convert(*declared, space, declaration)) return fault;
            Status fault = scope_.Enter(space);
            if (fault.ok()) fault = target_.PutClass(std::move(declaration), update);
            if (!fault.ok()) return unit->StoreFault(declared->name.offset, fault);
            // What derives from the class has changed with it.
            scope_.Forget();
            Drop(*declared);
            ++summary_.classes;
            ReportProgress();
        }
        return FinishClasses();
    }

    Fault BeginClasses() {
        std::map<size_t, std::vector<std::string>> names;
        for (const auto& placed : collection_.qualifiers())
            names[placed.space];
        for (const auto& placed : collection_.classes())
            names[placed.space].emplace_back(placed.node->name.text);
        for (const auto& [space, of_space] : names) {
            Status fault = scope_.Enter(space);
            if (fault.ok()) fault = target_.BeginClasses(of_space);
            if (!fault.ok()) return FaultAt(space, {}, fault);
            changed_spaces_.push_back(space);
        }
        return {};
    }

    Fault FinishClasses() {
        for (const size_t space : changed_spaces_) {
            std::string at_fault;
            Status fault = scope_.Enter(space);
            if (fault.ok()) fault = target_.FinishClasses(at_fault);
            if (!fault.ok()) return FaultAt(space, at_fault, fault);
        }
        scope_.Forget();
        return {};
    }

    // At the declaration of what is named, else where the namespace is used first.
    Fault FaultAt(size_t space, const std::string& name, const Status& fault) const {
        if (const auto declared = scope_.FindDeclared(space, name)) {
            const auto& placed = collection_.classes()[*declared];
            return placed.unit->StoreFault(placed.node->name.offset, fault);
        }
        for (const auto& placed : collection_.qualifiers()) {
            if (placed.space == space && EqualFolded(placed.node->name.text, name))
                return placed.unit->StoreFault(placed.node->name.offset, fault);
        }
        const MofCollection::Place& first = collection_.first_uses()[space];
        return first.unit->StoreFault(first.offset, fault);
    }

    Fault PutInstances() {
        const auto& objects = collection_.objects();
        auto deletion = collection_.late_deletions().begin();
        const auto last_deletion = collection_.late_deletions().end();
        for (size_t i = 0; i < objects.size(); ++i) {
            for (; deletion != last_deletion && deletion->instances_before <= i; ++deletion) {
                if (Fault fault = Delete(*deletion)) return fault;
            }
            if (Fault fault = PutObject(objects[i])) return fault;
        }
        for (; deletion != last_deletion; ++deletion) {
            if (Fault fault = Delete(*deletion)) return fault;
        }
        return {};
    }

    Fault PutObject(const MofCollection::Placed<MofObject>& placed) {
        const auto& [unit, object, space, update] = placed;
        std::optional<Instance> instance;
        if (Fault fault = unit->objects.Build(*object, space, instance)) return fault;
        Status fault = scope_.Enter(space);
        if (fault.ok()) fault = target_.PutInstance(std::move(*instance), update);
        if (!fault.ok()) return unit->StoreFault(object->class_name.offset, fault);
        // Nothing asks for it any more, unless by its alias.
        if (object->alias.text.empty()) std::vector<MofAssignment>().swap(object->assignments);
        ++summary_.instances;
        ReportProgress();
        return {};
    }

    void ReportProgress() {
        ++done_;
        if (!options_.progress) return;
        if (done_ == total_ || (options_.progress_interval > 0 && done_ % options_.progress_interval == 0))
            options_.progress(done_, total_);
    }

    MofTarget& target_;
    const MofOptions& options_;
    MofWarnings warnings_;
    MofScope scope_;
    MofCollection collection_;
    std::vector<size_t> order_;           // of the classes
    std::vector<size_t> changed_spaces_;  // whose classes or qualifiers are put
    size_t done_ = 0;
    size_t total_ = 0;
    MofSummary summary_;
};

}  // namespace

MofImport CompileMof(std::span<const MofSource> sources, const std::string& default_namespace,
                     MofTarget& target, const MofOptions& options) {
    return Importer(target, options).Run(sources, default_namespace);
}

}  // namespace service
