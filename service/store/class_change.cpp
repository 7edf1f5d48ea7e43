#include "service/store/class_change.h"

#include <algorithm>
#include <optional>
#include <set>
#include <unordered_set>

#include "service/model/limits.h"
#include "service/model/object_path.h"
#include "service/model/text.h"
#include "service/store/classes_of_a_moment.h"
#include "service/store/value_conversion.h"

namespace service {
namespace {

// Of instances that are held at a time.
constexpr size_t kEnoughBytes = size_t{1} << 20;

constexpr const char* kKeepsWhatFits =
    "delete them first, keep what they depend on, or declare the class by force (mgmtctl import --force), "
    "which "
    "keeps the values that fit and drops the others";
constexpr const char* kDeletesThem =
    "delete them first, or declare the class by force (mgmtctl import --force), which deletes them";
constexpr const char* kNeedsValue = "give it a default value, or set one in each of them first";

std::string Counted(uint64_t count) {
    return std::to_string(count) + (count == 1 ? " instance" : " instances");
}

std::string KeyNames(const ClassDefinition& definition) {
    if (definition.IsSingleton()) return "a singleton's";
    std::string names;
    for (const size_t index : definition.Keys())
        names += (names.empty() ? "" : ", ") + definition.Properties()[index].name;
    return names.empty() ? "none" : names;
}

// The order counts, because the store files an instance under its key values in their order.
bool HasSameKeys(const ClassDefinition& older, const ClassDefinition& newer) {
    if (older.Keys().size() != newer.Keys().size() || older.IsSingleton() != newer.IsSingleton())
        return false;
    return std::equal(older.Keys().begin(), older.Keys().end(), newer.Keys().begin(),
                      [&](size_t a, size_t b) {
                          return older.Properties()[a].folded_name == newer.Properties()[b].folded_name;
                      });
}

std::string ShownPath(const Instance& instance) {
    const Result<std::string> path = RelativePathOf(instance);
    return path.ok() ? ClipForMessage(*path, kMaxShownPath) : "an instance of " + instance.Class()->Name();
}

// What becomes of an instance that its new key cannot be made of.
Status WithoutKey(const Instance& older, const Instance& newer, const Status& fault) {
    std::string reason = fault.reason();
    for (const size_t index : newer.Class()->Keys()) {
        const PropertyDefinition& key = newer.Class()->Properties()[index];
        const auto before = older.Class()->FindProperty(std::string_view(key.name));
        if (before && older.IsSet(*before) && !newer.IsSet(index)) {
            reason = "the value of its property " + key.name + " is none of type " + DescribeType(key.type);
            break;
        }
    }
    return {fault.code(), "the new declaration of class " + newer.Class()->Name() + " leaves the instance " +
                              ShownPath(older) + " without a key: " + reason};
}

// Calls visit(object) for each object that `value` holds itself.
template <typename Visit>
Status ForEachObject(const ValueView& value, Visit visit) {
    if (const auto* object = std::get_if<const ObjectPtr*>(&value)) return visit(***object);
    const auto* array = std::get_if<const Array*>(&value);
    if (!array) return {};
    for (const Scalar& element : **array) {
        const auto* object = std::get_if<ObjectPtr>(&element);
        if (!object) continue;
        SERVICE_RETURN_IF_ERROR(visit(**object));
    }
    return {};
}

}  // namespace

ClassChange::ClassChange(StoreWriter& writer, SchemaCache::ClassList all, std::vector<ClassVersion> versions)
    : writer_(writer),
      all_(std::move(all)),
      sources_(std::make_shared<const ClassesOfAMoment>(all_)),
      versions_(std::move(versions)) {
    for (const ClassVersion& version : versions_) {
        by_id_[version.older->Id()] = &version;
        causes_.insert(Fold(version.cause));
    }
    for (const ClassVersion& version : versions_) {
        if (auto losses = LossesOf(version); !losses.empty())
            losses_[version.older->Id()] = std::move(losses);
        if (!version.newer) continue;
        for (const ClassDefinition* above = version.older->Superclass().get(); above;
             above = above->Superclass().get()) {
            if (version.newer->IsA(above->Name())) continue;
            leaves_line_[version.older->Id()] = {version.cause,
                                                 "takes class " + version.older->Name() +
                                                     " from under class " + above->Name() +
                                                     ", as one of which objects are embedded",
                                                 kKeepsWhatFits};
            break;
        }
    }
}

const ClassVersion* ClassChange::VersionOf(const ClassDefinition& older) const {
    const auto found = by_id_.find(older.Id());
    return found == by_id_.end() ? nullptr : found->second;
}

ClassPtr ClassChange::NewerOf(const ClassPtr& older) const {
    const ClassVersion* version = VersionOf(*older);
    return version ? version->newer : older;
}

std::vector<ClassChange::Loss> ClassChange::LossesOf(const ClassVersion& version) const {
    const ClassDefinition& older = *version.older;
    if (!version.newer) return {{version.cause, "deletes the class", {}}};
    const ClassDefinition& newer = *version.newer;
    std::vector<Loss> losses;
    AddPropertyLosses(version, losses);
    AddMissingValues(version, losses);
    if (!HasSameKeys(older, newer)) {
        losses.push_back({version.cause,
                          "changes the keys from " + KeyNames(older) + " to " + KeyNames(newer),
                          kKeepsWhatFits});
    }
    if (newer.IsAbstract() && !older.IsAbstract())
        losses.push_back({version.cause, "makes the class abstract", kDeletesThem});
    return losses;
}

void ClassChange::AddPropertyLosses(const ClassVersion& version, std::vector<Loss>& losses) const {
    const auto& properties = version.older->Properties();
    for (size_t i = 0; i < properties.size(); ++i) {
        const PropertyDefinition& property = properties[i];
        const std::string& cause = causes_.contains(Fold(property.origin)) ? property.origin : version.cause;
        const std::string name = "the property " + property.name;
        const auto add = [&](const std::string& what, Loser loser) -> Loss& {
            return losses.emplace_back(Loss{cause, what, kKeepsWhatFits, loser, i});
        };
        const auto index = version.newer->FindProperty(std::string_view(property.name));
        if (!index) {
            add("drops " + name, Loser::kWhoHasSet);
            continue;
        }
        const PropertyDefinition& now = version.newer->Properties()[*index];
        if (!now.type.SameShape(property.type)) {
            add("changes the type of " + name + " from " + DescribeType(property.type) + " to " +
                    DescribeType(now.type),
                Loser::kWhoHasSet);
            continue;
        }
        if (now.id != property.id) add("moves " + name, Loser::kNobody);
        const size_t elements = now.type.max_elements;
        if (elements != 0 && (property.type.max_elements == 0 || elements < property.type.max_elements)) {
            add("shortens " + name + " to " + std::to_string(elements) + " elements", Loser::kWhoHoldsMore)
                .max_elements = elements;
        }
        const std::string& target = now.type.class_name;
        if (now.type.type == CimType::kObject && !target.empty() &&
            !EqualFolded(target, property.type.class_name)) {
            add("leaves " + name + " to objects of class " + target, Loser::kWhoHoldsOther).target = target;
        }
    }
}

// A key needs a value in any case, which is looked at when the instances are filed.
void ClassChange::AddMissingValues(const ClassVersion& version, std::vector<Loss>& losses) const {
    const ClassDefinition& older = *version.older;
    for (const PropertyDefinition& now : version.newer->Properties()) {
        if (!now.is_not_null || now.is_key) continue;
        const bool has_default = !IsNull(now.default_value);
        const auto index = older.FindProperty(std::string_view(now.name));
        const bool is_new = !index || !older.Properties()[*index].type.SameShape(now.type);
        if (is_new ? has_default : older.Properties()[*index].is_not_null) continue;
        losses.push_back({version.cause, "asks for a value of the property " + now.name, kNeedsValue,
                          is_new ? Loser::kEach : Loser::kWhoHasNone, index.value_or(0)});
        losses.back().has_default = has_default;
    }
}

bool ClassChange::HoldsOther(const ValueView& value, std::string_view target) const {
    bool holds = false;
    const Status looked = ForEachObject(value, [&](const Instance& object) -> Status {
        const ClassPtr newer = NewerOf(object.Class());
        if (newer && !newer->IsA(target)) holds = true;
        return {};
    });
    return looked.ok() && holds;
}

Status ClassChange::Loses(const Loss& loss, const Instance& instance, bool& loses) const {
    loses = loss.loser == Loser::kEach;
    if (loses || loss.loser == Loser::kNobody) return {};
    bool is_set = false;
    Value storage;
    ValueView view;
    SERVICE_RETURN_IF_ERROR(instance.ReadOwn(loss.property, is_set, storage, view));
    const auto* array = std::get_if<const Array*>(&view);
    switch (loss.loser) {
        case Loser::kWhoHasSet:
            loses = is_set;
            break;
        case Loser::kWhoHoldsMore:
            loses = is_set && array && (*array)->size() > loss.max_elements;
            break;
        case Loser::kWhoHoldsOther:
            loses = is_set && HoldsOther(view, loss.target);
            break;
        default:
            loses = is_set ? IsNull(view) : !loss.has_default;
            break;
    }
    return {};
}

Status ClassChange::CheckSafe(std::string& at_fault) {
    Counts counts;
    for (const ClassVersion& version : versions_) {
        if (!version.is_forced) SERVICE_RETURN_IF_ERROR(CountInstances(version, counts));
    }
    const bool is_safe_asked = std::any_of(versions_.begin(), versions_.end(),
                                           [](const ClassVersion& version) { return !version.is_forced; });
    if (is_safe_asked) SERVICE_RETURN_IF_ERROR(CountInHolders(counts));
    return Refuse(counts, at_fault);
}

// Where no property is lost the instances are only counted, and none is decoded.
Status ClassChange::CountInstances(const ClassVersion& version, Counts& counts) {
    const auto found = losses_.find(version.older->Id());
    if (found == losses_.end()) return {};
    const std::vector<Loss>& losses = found->second;
    const bool decodes = std::any_of(losses.begin(), losses.end(), [](const Loss& loss) {
        return loss.loser != Loser::kEach && loss.loser != Loser::kNobody;
    });
    std::vector<uint64_t> concerned(losses.size());
    uint64_t all = 0;
    Status fault;
    SERVICE_RETURN_IF_ERROR(writer_.ScanInstances(version.older->Id(), {}, [&](const InstanceView& entry) {
        ++all;
        if (!decodes) return true;
        Result<Instance> instance = DecodeInstance(version.older, entry.record, sources_);
        if (!instance.ok()) fault = std::move(instance).status();
        for (size_t i = 0; i < losses.size() && fault.ok(); ++i) {
            bool loses = false;
            fault = Loses(losses[i], *instance, loses);
            if (loses) ++concerned[i];
        }
        return fault.ok();
    }));
    SERVICE_RETURN_IF_ERROR(std::move(fault));
    for (size_t i = 0; i < losses.size(); ++i) {
        const uint64_t count = losses[i].loser == Loser::kEach ? all : concerned[i];
        if (count == 0) continue;
        Concerned& entry = counts[{losses[i].cause, losses[i].what}];
        entry.way_out = losses[i].way_out;
        entry.classes.emplace_back(Counted(count) + " of class " + version.older->Name(), count);
    }
    return {};
}

Status ClassChange::CountInHolders(Counts& counts) {
    for (const ClassPtr& holder : Holders()) {
        std::map<const Loss*, uint64_t> concerned;
        Status fault;
        SERVICE_RETURN_IF_ERROR(writer_.ScanInstances(holder->Id(), {}, [&](const InstanceView& entry) {
            Result<Instance> instance = DecodeInstance(holder, entry.record, sources_);
            std::vector<const Loss*> found;
            fault = instance.ok() ? LossesWithin(*instance, found) : std::move(instance).status();
            for (const Loss* loss : std::set<const Loss*>(found.begin(), found.end()))
                ++concerned[loss];
            return fault.ok();
        }));
        SERVICE_RETURN_IF_ERROR(std::move(fault));
        for (const auto& [loss, count] : concerned) {
            Concerned& entry = counts[{loss->cause, loss->what}];
            entry.way_out = loss->way_out;
            entry.classes.emplace_back(
                Counted(count) + " of class " + holder->Name() + " with objects in them", count);
        }
    }
    return {};
}

// An embedded object has no key of its own and is not filed, so only its properties matter, and whether it
// may stay where it is.
Status ClassChange::LossesWithin(const Instance& holder, std::vector<const Loss*>& found) {
    const ClassPtr newer = NewerOf(holder.Class());
    const auto& properties = holder.Class()->Properties();
    for (size_t i = 0; i < properties.size(); ++i) {
        if (properties[i].type.type != CimType::kObject) continue;
        Value storage;
        ValueView view;
        bool is_set = false;
        SERVICE_RETURN_IF_ERROR(holder.ReadOwn(i, is_set, storage, view));
        if (!is_set) continue;
        const auto index = newer ? newer->FindProperty(std::string_view(properties[i].name)) : std::nullopt;
        const std::string target = index ? newer->Properties()[*index].type.class_name : "";
        const auto look_at = [&](const Instance& object) -> Status {
            const ClassVersion* version = VersionOf(*object.Class());
            if (!version || version->is_forced) return LossesWithin(object, found);
            const auto leaves = leaves_line_.find(object.Class()->Id());
            if (leaves != leaves_line_.end() && !target.empty() && !version->newer->IsA(target))
                found.push_back(&leaves->second);
            const auto losses = losses_.find(object.Class()->Id());
            if (losses == losses_.end()) return LossesWithin(object, found);
            for (const Loss& loss : losses->second) {
                bool loses = !version->newer;
                const bool is_of_property = loss.loser != Loser::kEach && loss.loser != Loser::kWhoHasNone;
                if (is_of_property) SERVICE_RETURN_IF_ERROR(Loses(loss, object, loses));
                if (loses) found.push_back(&loss);
            }
            return LossesWithin(object, found);
        };
        SERVICE_RETURN_IF_ERROR(ForEachObject(view, look_at));
    }
    return {};
}

Status ClassChange::Refuse(const Counts& counts, std::string& at_fault) const {
    if (counts.empty()) return {};
    const auto& [key, concerned] = *counts.begin();
    const auto& [cause, what] = key;
    uint64_t count = 0;
    std::string where;
    for (const auto& [shown, of_class] : concerned.classes) {
        count += of_class;
        where += (where.empty() ? "" : ", ") + shown;
    }
    at_fault = cause;
    if (concerned.way_out.empty()) {
        return {WBEM_E_CLASS_HAS_INSTANCES,
                "class " + cause + " cannot be deleted, for " + Counted(count) +
                    (count == 1 ? " depends" : " depend") + " on it (" + where +
                    "): delete them first, or delete the class by force, which deletes all of it"};
    }
    return {WBEM_E_CLASS_HAS_INSTANCES, "the new declaration of class " + cause + " " + what +
                                            ", which concerns " + Counted(count) + " (" + where +
                                            "): " + concerned.way_out};
}

std::vector<ClassPtr> ClassChange::Holders() const {
    // The names of the classes that a property may be declared with to hold what matters, and those to look
    // at.
    std::unordered_set<std::string> names;
    std::vector<std::string> fresh;
    const auto reach = [&](const ClassDefinition& held) {
        for (const ClassDefinition* each = &held; each; each = each->Superclass().get()) {
            if (names.insert(each->FoldedName()).second) fresh.push_back(each->FoldedName());
        }
    };
    for (const ClassVersion& version : versions_) {
        const auto losses = losses_.find(version.older->Id());
        const bool matters = !version.newer || leaves_line_.contains(version.older->Id()) ||
                             (losses != losses_.end() &&
                              std::any_of(losses->second.begin(), losses->second.end(),
                                          [](const Loss& loss) { return loss.loser != Loser::kEach; }));
        if (matters) reach(*version.older);
    }
    if (fresh.empty()) return {};

    // By the name that they declare a property with; an empty one holds any object.
    std::unordered_map<std::string, std::vector<ClassPtr>> candidates;
    for (const ClassPtr& candidate : *all_) {
        for (const PropertyDefinition& property : candidate->Properties()) {
            if (property.type.type == CimType::kObject)
                candidates[Fold(property.type.class_name)].push_back(candidate);
        }
    }
    std::vector<ClassPtr> holders;
    std::unordered_set<const ClassDefinition*> known;
    fresh.emplace_back();
    while (!fresh.empty()) {
        const std::string name = std::move(fresh.back());
        fresh.pop_back();
        const auto of_name = candidates.find(name);
        if (of_name == candidates.end()) continue;
        for (const ClassPtr& candidate : of_name->second) {
            if (!known.insert(candidate.get()).second) continue;
            holders.push_back(candidate);
            reach(*candidate);
        }
    }
    return holders;
}

// Stops between two places only: of those that share one it could not be told later which were visited.
Status ClassChange::ForEachEntry(const ClassDefinition& definition, FunctionRef<Status(Entry&)> visit) {
    std::string place;
    for (bool is_at_end = false; !is_at_end;) {
        std::vector<Entry> some;
        size_t bytes = 0;
        is_at_end = true;
        const std::string start = place;
        SERVICE_RETURN_IF_ERROR(writer_.ScanInstances(definition.Id(), start, [&](const InstanceView& found) {
            if (bytes >= kEnoughBytes && found.place != place) {
                is_at_end = false;
                return false;
            }
            place = found.place;
            some.push_back({std::string(found.key), std::string(found.record)});
            bytes += found.key.size() + found.record.size();
            return true;
        }));
        for (Entry& entry : some)
            SERVICE_RETURN_IF_ERROR(visit(entry));
    }
    return {};
}

Status ClassChange::Convert(std::string& at_fault) {
    const auto is_rewritten = [&](const ClassVersion& version) {
        const auto losses = losses_.find(version.older->Id());
        if (version.is_forced && leaves_line_.contains(version.older->Id())) return true;
        return losses != losses_.end() &&
               (version.is_forced ||
                std::any_of(losses->second.begin(), losses->second.end(),
                            [](const Loss& loss) { return loss.loser == Loser::kNobody; }));
    };
    if (std::none_of(versions_.begin(), versions_.end(), is_rewritten)) return {};
    const std::vector<ClassPtr> holders = Holders();
    const std::unordered_set<ClassPtr> held_in(holders.begin(), holders.end());
    for (const ClassVersion& version : versions_) {
        if (!held_in.contains(version.older) && !is_rewritten(version)) continue;
        at_fault = version.cause;
        SERVICE_RETURN_IF_ERROR(ConvertClass(version.older, version.newer));
    }
    for (const ClassPtr& holder : holders) {
        if (!VersionOf(*holder)) SERVICE_RETURN_IF_ERROR(ConvertClass(holder, holder));
    }
    return {};
}

Status ClassChange::ConvertClass(const ClassPtr& older, const ClassPtr& newer) {
    const bool becomes_abstract = newer && newer->IsAbstract() && !older->IsAbstract();
    if (!newer || becomes_abstract) return DeleteInstances(*older);
    const auto keeps_type = [&](size_t older_key, size_t newer_key) {
        return older->Properties()[older_key].type.SameShape(newer->Properties()[newer_key].type);
    };
    const bool keeps_keys =
        HasSameKeys(*older, *newer) &&
        std::equal(older->Keys().begin(), older->Keys().end(), newer->Keys().begin(), keeps_type);
    if (!keeps_keys) return File(older, newer);
    return ForEachEntry(*older, [&](Entry& entry) -> Status {
        SERVICE_ASSIGN_OR_RETURN(const Instance instance, DecodeInstance(older, entry.record, sources_));
        SERVICE_ASSIGN_OR_RETURN(const Instance converted, Converted(instance, newer));
        SERVICE_RETURN_IF_ERROR(CheckValues(instance, converted));
        std::string record;
        SERVICE_RETURN_IF_ERROR(EncodeInstance(converted, record));
        if (record == entry.record) return {};
        return writer_.PutInstance(older->Id(), entry.key, entry.record, record);
    });
}

Status ClassChange::CheckValues(const Instance& older, const Instance& newer) {
    const auto& properties = newer.Class()->Properties();
    for (size_t i = 0; i < properties.size(); ++i) {
        if (!properties[i].is_not_null || properties[i].is_key) continue;
        Value storage;
        ValueView view;
        SERVICE_RETURN_IF_ERROR(newer.Read(i, storage, view));
        if (!IsNull(view)) continue;
        return {WBEM_E_ILLEGAL_NULL, "the new declaration of class " + newer.Class()->Name() +
                                         " leaves the instance " + ShownPath(older) +
                                         " without a value of the property " + properties[i].name +
                                         ", which is not_null: give it a default value"};
    }
    return {};
}

Status ClassChange::DeleteInstances(const ClassDefinition& definition) {
    return ForEachEntry(definition, [&](Entry& entry) {
        return writer_.DeleteInstance(definition.Id(), entry.key, entry.record);
    });
}

// A new key may be the old one of another instance, so all leave their places before any takes its new one.
Status ClassChange::File(const ClassPtr& older, const ClassPtr& newer) {
    struct Move {
        Entry before;
        Entry after;
    };
    std::vector<Move> moves;
    std::unordered_map<std::string, size_t> taken;
    const auto plan = [&](Entry& entry) -> Status {
        SERVICE_ASSIGN_OR_RETURN(const Instance instance, DecodeInstance(older, entry.record, sources_));
        SERVICE_ASSIGN_OR_RETURN(const Instance converted, Converted(instance, newer));
        SERVICE_RETURN_IF_ERROR(CheckValues(instance, converted));
        Result<std::string> key = KeyOf(converted);
        if (!key.ok()) return WithoutKey(instance, converted, key.status());
        const auto [other, is_free] = taken.try_emplace(*key, moves.size());
        if (!is_free) {
            const Result<Instance> there =
                DecodeInstance(older, moves[other->second].before.record, sources_);
            return {WBEM_E_ALREADY_EXISTS,
                    "by the new declaration of class " + newer->Name() + " the instances " +
                        (there.ok() ? ShownPath(*there) : "another") + " and " + ShownPath(instance) +
                        " would have one and the same key: delete one of them, or keep the keys"};
        }
        Move move{std::move(entry), {std::move(*key), {}}};
        SERVICE_RETURN_IF_ERROR(EncodeInstance(converted, move.after.record));
        moves.push_back(std::move(move));
        return {};
    };
    SERVICE_RETURN_IF_ERROR(ForEachEntry(*older, plan));
    for (const Move& move : moves) {
        if (move.before.key == move.after.key) continue;
        SERVICE_RETURN_IF_ERROR(writer_.DeleteInstance(older->Id(), move.before.key, move.before.record));
    }
    for (const Move& move : moves) {
        const bool stays = move.before.key == move.after.key;
        if (stays && move.before.record == move.after.record) continue;
        const std::string_view before = stays ? std::string_view(move.before.record) : std::string_view();
        SERVICE_RETURN_IF_ERROR(writer_.PutInstance(older->Id(), move.after.key, before, move.after.record));
    }
    return {};
}

Result<Instance> ClassChange::Converted(const Instance& instance, const ClassPtr& newer) const {
    Instance converted(newer);
    const auto& properties = instance.Class()->Properties();
    for (size_t i = 0; i < properties.size(); ++i) {
        const auto index = newer->FindProperty(std::string_view(properties[i].name));
        if (!index) continue;
        bool is_set = false;
        Value storage;
        ValueView view;
        SERVICE_RETURN_IF_ERROR(instance.ReadOwn(i, is_set, storage, view));
        if (!is_set) continue;
        Value value = OwnedCopy(view);
        const std::string& target = newer->Properties()[*index].type.class_name;
        if (properties[i].type.type == CimType::kObject) {
            SERVICE_ASSIGN_OR_RETURN(value, ConvertedObjects(std::move(value), target));
        }
        auto fitting = ConvertedValue(properties[i].type, newer->Properties()[*index].type, value);
        if (fitting) SERVICE_RETURN_IF_ERROR(converted.Set(*index, std::move(*fitting)));
    }
    return converted;
}

Result<Value> ClassChange::ConvertedObjects(Value value, const std::string& target) const {
    if (const auto* object = std::get_if<ObjectPtr>(&value)) return ConvertedObject(*object, target);
    if (auto* array = std::get_if<Array>(&value)) {
        for (Scalar& element : *array) {
            const auto* object = std::get_if<ObjectPtr>(&element);
            if (!object) continue;
            SERVICE_ASSIGN_OR_RETURN(const Value converted, ConvertedObject(*object, target));
            const auto* kept = std::get_if<ObjectPtr>(&converted);
            element = kept ? Scalar(*kept) : Scalar();
        }
    }
    return value;
}

Result<Value> ClassChange::ConvertedObject(const ObjectPtr& object, const std::string& target) const {
    const ClassVersion* version = VersionOf(*object->Class());
    const ClassPtr newer = NewerOf(object->Class());
    if (!newer || (!target.empty() && !newer->IsA(target))) return Value();
    if (!version && !newer->HasObjects()) return Value(object);
    SERVICE_ASSIGN_OR_RETURN(Instance converted, Converted(*object, newer));
    return Value(ObjectPtr(std::make_shared<const Instance>(std::move(converted))));
}

}  // namespace service
