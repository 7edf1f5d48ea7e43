#include "service/store/class_change.h"

#include <algorithm>
#include <optional>
#include <set>

#include "service/model/limits.h"
#include "service/model/object_path.h"
#include "service/model/text.h"
#include "service/store/classes_of_a_moment.h"
#include "service/store/value_conversion.h"

namespace service {
namespace {

// Of instances that are held at a time.
constexpr size_t kEnoughBytes = size_t{1} << 20;

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
        if (auto losses = LossesOf(version); !losses.empty())
            losses_[version.older->Id()] = std::move(losses);
    }
}

const ClassVersion* ClassChange::VersionOf(const ClassDefinition& older) const {
    const auto found = by_id_.find(older.Id());
    return found == by_id_.end() ? nullptr : found->second;
}

std::vector<ClassChange::Loss> ClassChange::LossesOf(const ClassVersion& version) {
    const ClassDefinition& older = *version.older;
    if (!version.newer) return {{"deletes the class", {}, false, 0}};
    const ClassDefinition& newer = *version.newer;
    std::vector<Loss> losses;
    for (size_t i = 0; i < older.Properties().size(); ++i) {
        const PropertyDefinition& property = older.Properties()[i];
        const std::string name = "the property " + property.name;
        const auto index = newer.FindProperty(std::string_view(property.name));
        if (!index) {
            losses.push_back({"drops " + name, i, false, 0});
            continue;
        }
        const PropertyDefinition& now = newer.Properties()[*index];
        const size_t elements = now.type.max_elements;
        if (!now.type.SameShape(property.type)) {
            losses.push_back({"changes the type of " + name + " from " + DescribeType(property.type) +
                                  " to " + DescribeType(now.type),
                              i, false, 0});
        } else if (now.id != property.id) {
            losses.push_back({"moves " + name + " from class " + property.origin + " to class " + now.origin,
                              i, false, 0});
        } else if (elements != 0 &&
                   (property.type.max_elements == 0 || elements < property.type.max_elements)) {
            losses.push_back(
                {"shortens " + name + " to " + std::to_string(elements) + " elements", i, true, elements});
        }
    }
    if (!HasSameKeys(older, newer)) {
        losses.push_back(
            {"changes the keys from " + KeyNames(older) + " to " + KeyNames(newer), {}, false, 0});
    }
    if (newer.IsAbstract() && !older.IsAbstract())
        losses.push_back({"makes the class abstract", {}, false, 0});
    return losses;
}

Status ClassChange::Loses(const Loss& loss, const Instance& instance, bool& loses) {
    loses = instance.IsSet(*loss.property);
    if (!loses || !loss.is_shortened) return {};
    Value storage;
    ValueView view;
    SERVICE_RETURN_IF_ERROR(instance.ReadOwn(*loss.property, loses, storage, view));
    const auto* array = std::get_if<const Array*>(&view);
    loses = array && (*array)->size() > loss.max_elements;
    return {};
}

Status ClassChange::CheckSafe() {
    if (losses_.empty()) return {};
    Counts counts;
    for (const ClassVersion& version : versions_)
        SERVICE_RETURN_IF_ERROR(CountInstances(version, counts));
    SERVICE_RETURN_IF_ERROR(CountInHolders(counts));
    return Refuse(counts);
}

// Where no property is lost the instances are only counted, and none is decoded.
Status ClassChange::CountInstances(const ClassVersion& version, Counts& counts) {
    const auto found = losses_.find(version.older->Id());
    if (found == losses_.end()) return {};
    const std::vector<Loss>& losses = found->second;
    const bool counts_properties =
        std::any_of(losses.begin(), losses.end(), [](const Loss& loss) { return loss.property.has_value(); });
    std::vector<uint64_t> concerned(losses.size());
    uint64_t all = 0;
    Status fault;
    SERVICE_RETURN_IF_ERROR(writer_.ScanInstances(version.older->Id(), {}, [&](const InstanceView& entry) {
        ++all;
        if (!counts_properties) return true;
        Result<Instance> instance = DecodeInstance(version.older, entry.record, sources_);
        if (!instance.ok()) fault = std::move(instance).status();
        for (size_t i = 0; i < losses.size() && fault.ok(); ++i) {
            bool loses = false;
            if (losses[i].property) fault = Loses(losses[i], *instance, loses);
            if (loses) ++concerned[i];
        }
        return fault.ok();
    }));
    SERVICE_RETURN_IF_ERROR(std::move(fault));
    for (size_t i = 0; i < losses.size(); ++i) {
        const uint64_t count = losses[i].property ? concerned[i] : all;
        if (count != 0)
            counts[losses[i].what].emplace_back(Counted(count) + " of class " + version.older->Name(), count);
    }
    return {};
}

Status ClassChange::CountInHolders(Counts& counts) {
    for (const ClassPtr& holder : Holders()) {
        std::map<std::string, uint64_t> concerned;
        Status fault;
        SERVICE_RETURN_IF_ERROR(writer_.ScanInstances(holder->Id(), {}, [&](const InstanceView& entry) {
            Result<Instance> instance = DecodeInstance(holder, entry.record, sources_);
            std::vector<std::string> found;
            fault = instance.ok() ? LossesWithin(*instance, found) : std::move(instance).status();
            for (const std::string& what : std::set<std::string>(found.begin(), found.end()))
                ++concerned[what];
            return fault.ok();
        }));
        SERVICE_RETURN_IF_ERROR(std::move(fault));
        for (const auto& [what, count] : concerned) {
            counts[what].emplace_back(
                Counted(count) + " of class " + holder->Name() + " with objects in them", count);
        }
    }
    return {};
}

// An embedded object has no key of its own and is not filed, so only its properties matter.
Status ClassChange::LossesWithin(const Instance& holder, std::vector<std::string>& found) {
    const auto& properties = holder.Class()->Properties();
    for (size_t i = 0; i < properties.size(); ++i) {
        if (properties[i].type.type != CimType::kObject) continue;
        Value storage;
        ValueView view;
        bool is_set = false;
        SERVICE_RETURN_IF_ERROR(holder.ReadOwn(i, is_set, storage, view));
        if (!is_set) continue;
        const auto look_at = [&](const Instance& object) -> Status {
            const auto losses = losses_.find(object.Class()->Id());
            if (losses != losses_.end()) {
                const bool is_deleted = !VersionOf(*object.Class())->newer;
                for (const Loss& loss : losses->second) {
                    bool loses = is_deleted;
                    if (loss.property) SERVICE_RETURN_IF_ERROR(Loses(loss, object, loses));
                    if (loses) found.push_back(loss.what);
                }
            }
            return LossesWithin(object, found);
        };
        SERVICE_RETURN_IF_ERROR(ForEachObject(view, look_at));
    }
    return {};
}

Status ClassChange::Refuse(const Counts& counts) const {
    if (counts.empty()) return {};
    const auto& [what, classes] = *counts.begin();
    uint64_t count = 0;
    std::string where;
    for (const auto& [shown, of_class] : classes) {
        count += of_class;
        where += (where.empty() ? "" : ", ") + shown;
    }
    const std::string& name = versions_.front().older->Name();
    if (!versions_.front().newer) {
        return {WBEM_E_CLASS_HAS_INSTANCES,
                "class " + name + " cannot be deleted, for " + Counted(count) +
                    (count == 1 ? " depends" : " depend") + " on it (" + where +
                    "): delete them first, or delete the class by force, which deletes all of it"};
    }
    return {WBEM_E_CLASS_HAS_INSTANCES, "the new declaration of class " + name + " " + what +
                                            ", which concerns " + Counted(count) + " (" + where +
                                            "): delete them first, keep what they depend on, or declare the "
                                            "class by force (mgmtctl import --force), which keeps "
                                            "the values that fit and drops the others"};
}

std::vector<ClassPtr> ClassChange::Holders() const {
    // What may be held, first the classes that lose something, then what may hold them and be held in turn.
    std::vector<const ClassDefinition*> held;
    for (const ClassVersion& version : versions_) {
        const auto losses = losses_.find(version.older->Id());
        if (losses == losses_.end()) continue;
        const bool matters = !version.newer || std::any_of(losses->second.begin(), losses->second.end(),
                                                           [](const Loss& loss) { return loss.property; });
        if (matters) held.push_back(version.older.get());
    }
    const auto may_hold = [&](const PropertyDefinition& property) {
        return property.type.type == CimType::kObject &&
               (property.type.class_name.empty() ||
                std::any_of(held.begin(), held.end(), [&](const ClassDefinition* each) {
                    return each->IsA(property.type.class_name);
                }));
    };
    std::vector<ClassPtr> holders;
    std::set<const ClassDefinition*> known;
    for (bool is_growing = !held.empty(); is_growing;) {
        is_growing = false;
        for (const ClassPtr& candidate : *all_) {
            const auto& properties = candidate->Properties();
            if (known.contains(candidate.get()) ||
                std::none_of(properties.begin(), properties.end(), may_hold))
                continue;
            known.insert(candidate.get());
            held.push_back(candidate.get());
            holders.push_back(candidate);
            is_growing = true;
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

Status ClassChange::Convert() {
    if (losses_.empty()) return {};
    const std::vector<ClassPtr> holders = Holders();
    for (const ClassVersion& version : versions_) {
        const bool is_held = std::find(holders.begin(), holders.end(), version.older) != holders.end();
        if (!is_held && !losses_.contains(version.older->Id())) continue;
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
        std::string record;
        SERVICE_RETURN_IF_ERROR(EncodeInstance(converted, record));
        if (record == entry.record) return {};
        return writer_.PutInstance(older->Id(), entry.key, entry.record, record);
    });
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
        Result<std::string> key = KeyOf(converted);
        if (!key.ok()) {
            return {key.code(), "the new declaration of class " + newer->Name() + " leaves the instance " +
                                    ShownPath(instance) + " without a key: " + key.status().reason()};
        }
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
        if (properties[i].type.type == CimType::kObject) {
            SERVICE_ASSIGN_OR_RETURN(value, ConvertedObjects(std::move(value)));
        }
        auto fitting = ConvertedValue(properties[i].type, newer->Properties()[*index].type, value);
        if (fitting) SERVICE_RETURN_IF_ERROR(converted.Set(*index, std::move(*fitting)));
    }
    return converted;
}

Result<Value> ClassChange::ConvertedObjects(Value value) const {
    if (const auto* object = std::get_if<ObjectPtr>(&value)) return ConvertedObject(*object);
    if (auto* array = std::get_if<Array>(&value)) {
        for (Scalar& element : *array) {
            const auto* object = std::get_if<ObjectPtr>(&element);
            if (!object) continue;
            SERVICE_ASSIGN_OR_RETURN(const Value converted, ConvertedObject(*object));
            const auto* kept = std::get_if<ObjectPtr>(&converted);
            element = kept ? Scalar(*kept) : Scalar();
        }
    }
    return value;
}

// Null for an object of a deleted class.
Result<Value> ClassChange::ConvertedObject(const ObjectPtr& object) const {
    const ClassVersion* version = VersionOf(*object->Class());
    const ClassPtr& newer = version ? version->newer : object->Class();
    if (!newer) return Value();
    if (!version && !newer->HasObjects()) return Value(object);
    SERVICE_ASSIGN_OR_RETURN(Instance converted, Converted(*object, newer));
    return Value(ObjectPtr(std::make_shared<const Instance>(std::move(converted))));
}

}  // namespace service
