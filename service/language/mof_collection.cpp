#include "service/language/mof_collection.h"

#include <algorithm>

#include "service/language/mof_parser.h"
#include "service/model/limits.h"
#include "service/model/object_path.h"
#include "service/model/text.h"

namespace service {
namespace {

constexpr std::string_view kNamespaceClass = "__Namespace";

std::string ClassKey(size_t space, std::string_view class_name) {
    return std::to_string(space) + ':' + Fold(class_name);
}

// Whether the text says which namespace it belongs to before anything in it depends on that.
bool NamesItsNamespace(const MofFile& file) {
    for (const MofDeclaration& declaration : file.declarations) {
        if (std::holds_alternative<MofUpdateFlags>(declaration)) continue;
        return std::holds_alternative<MofNamespace>(declaration);
    }
    return false;
}

// A type's name as that of a class: properties of that class could not be told from those of the type.
bool IsTypeName(std::string_view name) {
    return IntrinsicMofType(name) || EqualFolded(name, "void") || EqualFolded(name, "ref");
}

}  // namespace

std::string MofCollection::PlaceOf(const MofUnit& unit, size_t offset) {
    const MofDiagnostic place = unit.file.FaultAt(offset, MofPhase::kCheck, WBEM_E_FAILED, {});
    return place.file + ':' + std::to_string(place.line);
}

MofCollection::Fault MofCollection::Read(std::span<const MofSource> sources, size_t space) {
    for (const MofSource& source : sources) {
        State state{space, {}, {}};
        if (!source.file.empty() && FindCompiled(source.file, space)) continue;
        if (Fault fault = ReadSource(source, aliases_.emplace_back(), state)) return fault;
    }
    return SplitDeletions();
}

const MofCollection::Compiled* MofCollection::FindCompiled(const std::string& file, size_t space) const {
    auto known = compiled_.find({file, std::nullopt});
    if (known == compiled_.end()) known = compiled_.find({file, space});
    return known == compiled_.end() ? nullptr : &known->second;
}

MofCollection::Fault MofCollection::ReadSource(const MofSource& source, MofAliases& aliases, State& state) {
    std::string bytes(source.bytes);
    if (files_ && bytes.empty() && !source.file.empty()) {
        Result<std::string> read = files_->Read({source.name, source.file});
        if (!read.ok()) {
            return MofDiagnostic{{}, 0, 0, MofPhase::kParse, read.code(), read.status().reason()};
        }
        bytes = std::move(*read);
    }
    return ReadText(source.name, std::move(bytes), source.file, aliases, state);
}

MofCollection::Fault MofCollection::ReadText(std::string name, std::string bytes, std::string file,
                                             MofAliases& aliases, State& state) {
    std::optional<size_t> space = state.space;
    MofUnit& unit = units_.emplace_back(scope_, aliases);
    open_.push_back({name, file});
    if (Fault fault = ParseMof(std::move(name), std::move(bytes), unit.file)) return fault;
    for (const MofNotice& notice : unit.file.notices)
        scope_.warnings().Warn(unit.file, notice.offset, notice.message, notice.message);
    if (Fault fault = Collect(unit, file, state)) return fault;
    open_.pop_back();
    if (NamesItsNamespace(unit.file)) space.reset();
    if (!file.empty()) compiled_[{std::move(file), space}] = {&aliases, state.space};
    return {};
}

MofCollection::Fault MofCollection::Collect(MofUnit& unit, const std::string& file, State& state) {
    for (MofDeclaration& declaration : unit.file.declarations) {
        Fault fault;
        if (const auto* include = std::get_if<MofInclude>(&declaration)) {
            fault = Include(unit, file, *include, state);
        } else if (const auto* pragma = std::get_if<MofNamespace>(&declaration)) {
            fault = EnterNamespace(unit, *pragma, state);
        } else if (const auto* deletion = std::get_if<MofDeletion>(&declaration)) {
            fault = CollectDeletion(unit, *deletion, state.space);
        } else if (const auto* flags = std::get_if<MofUpdateFlags>(&declaration)) {
            (flags->is_for_classes ? state.classes : state.instances) = flags->update;
        } else if (const auto* qualifier = std::get_if<MofQualifierType>(&declaration)) {
            NoteUse(unit, qualifier->name.offset, state.space);
            qualifiers_.push_back({&unit, qualifier, state.space, {}});
        } else if (auto* declared = std::get_if<MofClass>(&declaration)) {
            fault = CollectClass(unit, *declared, state);
        } else {
            fault = CollectObject(unit, std::get<MofObject>(declaration), state);
        }
        if (fault) return fault;
    }
    return {};
}

MofCollection::Fault MofCollection::Include(MofUnit& unit, const std::string& including,
                                            const MofInclude& include, State& state) {
    const size_t offset = include.file.offset;
    if (!files_) {
        return unit.CheckFault(offset, WBEM_E_NOT_SUPPORTED,
                               "the file " + Quote(include.file.text) +
                                   " is not read: nothing can be included here, name the file in the import "
                                   "itself");
    }
    Result<MofFiles::Found> found = files_->Find(include.file.text, {unit.file.name, {}, including});
    if (!found.ok()) return unit.CheckFault(offset, found.code(), found.status().reason());
    const auto is_open = [&](const Open& open) { return open.file == found->file; };
    if (std::any_of(open_.begin(), open_.end(), is_open)) return CircleFault(unit, include, *found);
    if (const Compiled* known = FindCompiled(found->file, state.space)) {
        unit.aliases.Include(*known->aliases);
        state.space = known->end_space;
        return {};
    }
    if (open_.size() > kMaxIncludeDepth) {
        return unit.CheckFault(offset, WBEM_E_QUOTA_VIOLATION,
                               "files include one another more than " + std::to_string(kMaxIncludeDepth) +
                                   " deep at " + Quote(include.file.text));
    }
    Result<std::string> bytes = files_->Read(*found);
    if (!bytes.ok()) return unit.CheckFault(offset, bytes.code(), bytes.status().reason());
    return ReadText(std::move(found->name), std::move(*bytes), std::move(found->file), unit.aliases, state);
}

MofCollection::Fault MofCollection::CircleFault(const MofUnit& unit, const MofInclude& include,
                                                const MofFiles::Found& found) const {
    std::string message = "files cannot include one another in a circle: ";
    auto open =
        std::find_if(open_.begin(), open_.end(), [&](const Open& each) { return each.file == found.file; });
    const std::string first = open->name;
    for (; open != open_.end(); ++open)
        message += open->name + " includes ";
    return unit.CheckFault(include.file.offset, WBEM_E_INVALID_PARAMETER, message + first);
}

MofCollection::Fault MofCollection::EnterNamespace(MofUnit& unit, const MofNamespace& pragma, State& state) {
    const Result<size_t> entered = scope_.Add(pragma.path.text);
    if (!entered.ok()) {
        return unit.CheckFault(pragma.path.offset, entered.code(), entered.status().reason());
    }
    state.space = *entered;
    NoteUse(unit, pragma.path.offset, state.space);
    return {};
}

// Notes the place at which each namespace is used first.
void MofCollection::NoteUse(const MofUnit& unit, size_t offset, size_t space) {
    if (first_uses_.size() <= space) first_uses_.resize(space + 1);
    if (!first_uses_[space].unit) first_uses_[space] = {&unit, offset};
}

MofCollection::Fault MofCollection::CollectClass(MofUnit& unit, MofClass& declared, const State& state) {
    NoteUse(unit, declared.name.offset, state.space);
    if (IsTypeName(declared.name.text)) {
        return unit.CheckFault(
            declared.name.offset, WBEM_E_INVALID_OBJECT,
            Quote(declared.name.text) + " cannot name a class, it names a type: give the class another name");
    }
    if (const auto earlier = scope_.Declare(state.space, declared.name.text, classes_.size())) {
        const auto& first = classes_[*earlier];
        return unit.CheckFault(declared.name.offset, WBEM_E_ALREADY_EXISTS,
                               "class " + Clip(declared.name.text) +
                                   " is declared twice in this import, first at " +
                                   PlaceOf(*first.unit, first.node->name.offset));
    }
    classes_.push_back({&unit, &declared, state.space, state.classes});
    return unit.objects.AddAlias(declared.alias, &declared, state.space);
}

MofCollection::Fault MofCollection::CollectObject(MofUnit& unit, MofObject& object, const State& state) {
    NoteUse(unit, object.class_name.offset, state.space);
    if (EqualFolded(object.class_name.text, kNamespaceClass))
        return CollectNamespace(unit, object, state.space);
    objects_.push_back({&unit, &object, state.space, state.instances});
    has_instances_.insert(ClassKey(state.space, object.class_name.text));
    return unit.objects.AddAlias(object.alias, &object, state.space);
}

MofCollection::Fault MofCollection::CollectNamespace(MofUnit& unit, const MofObject& object, size_t space) {
    if (!object.alias.text.empty()) {
        return unit.CheckFault(object.alias.offset, WBEM_E_INVALID_OBJECT,
                               "a namespace cannot have an alias");
    }
    if (object.assignments.size() != 1 || !EqualFolded(object.assignments.front().property.text, "Name")) {
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
    children_.push_back({&unit, &value, space, {}});
    return {};
}

MofCollection::Fault MofCollection::CollectDeletion(MofUnit& unit, const MofDeletion& deletion,
                                                    size_t space) {
    const size_t offset = deletion.target.offset;
    Deletion placed{&unit, &deletion, space, {}, objects_.size(), false};
    if (deletion.is_class) {
        if (Status fault = CheckName("class", deletion.target.text, true); !fault.ok())
            return unit.CheckFault(offset, fault.code(), fault.reason());
        placed.path.class_name = deletion.target.text;
    } else {
        Result<ObjectPath> path = ParseObjectPath(deletion.target.text);
        if (!path.ok()) return unit.CheckFault(offset, path.code(), path.status().reason());
        if (path->IsClass()) {
            return unit.CheckFault(offset, WBEM_E_INVALID_OBJECT_PATH,
                                   Quote(deletion.target.text) +
                                       " names a class: #pragma deleteinstance takes an instance's path");
        }
        if (path->namespace_path) {
            const Result<size_t> named =
                scope_.Add("\\\\" + path->server.value_or(".") + '\\' + *path->namespace_path);
            if (!named.ok()) return unit.CheckFault(offset, named.code(), named.status().reason());
            placed.space = *named;
            path->server.reset();
            path->namespace_path.reset();
        }
        placed.path = std::move(*path);
    }
    NoteUse(unit, offset, placed.space);
    const std::string& name = placed.path.class_name;
    placed.is_behind_its_class = has_instances_.contains(ClassKey(placed.space, name));
    const bool is_declared = deletion.is_class && scope_.FindDeclared(placed.space, name);
    if (is_declared || (deletion.is_class && placed.is_behind_its_class)) {
        return unit.CheckFault(offset, WBEM_E_INVALID_OPERATION,
                               "class " + Clip(name) +
                                   " is deleted here behind a declaration of it or of its instances: classes "
                                   "are deleted before anything is declared, so move this in front of it");
    }
    deletions_.push_back(std::move(placed));
    return {};
}

// An instance may have to go before its class can.
MofCollection::Fault MofCollection::SplitDeletions() {
    for (size_t i = deletions_.size(); i > 0 && early_deletions_ == 0; --i) {
        if (deletions_[i - 1].node->is_class) early_deletions_ = i;
    }
    for (const Deletion& early : early_deletions()) {
        if (!early.is_behind_its_class) continue;
        return early.unit->CheckFault(
            early.node->target.offset, WBEM_E_INVALID_OPERATION,
            "the instance is deleted here behind an instance of class " + Clip(early.path.class_name) +
                " and in front of a class that is deleted: move this in front of that instance");
    }
    return {};
}

}  // namespace service
