#include "service/store/store_check.h"

#include <algorithm>
#include <map>
#include <utility>

#include "service/model/limits.h"
#include "service/model/object_path.h"
#include "service/model/text.h"
#include "service/store/classes_of_a_moment.h"

namespace service {
namespace {

constexpr uint64_t kBetweenProgress = 4096;
constexpr size_t kMaxShownKey = 120;
constexpr std::string_view kRootNamespace = "root";

void Raise(uint64_t& most, uint64_t found) noexcept {
    most = std::max(most, found);
}

// A key as people can read it; its bytes need not be text.
std::string Shown(std::string_view key) {
    std::string text(key.substr(0, kMaxShownKey));
    for (char& c : text) {
        if (static_cast<unsigned char>(c) < ' ') c = '|';
    }
    return "\"" + ToUtf8Lossy(ToWideLossy(text)) + "\"";
}

}  // namespace

void StoreCheck::Find(const std::string& sentence) {
    ++counts_.findings;
    if (report_.finding) report_.finding(sentence);
}

void StoreCheck::Proceed() {
    if (++done_ % kBetweenProgress == 0 && report_.progress) report_.progress(done_, std::max(done_, total_));
}

Status StoreCheck::Run(Report report) {
    report_ = std::move(report);
    SERVICE_RETURN_IF_ERROR(store_.FindFaults([&](const std::string& fault) {
        Find(fault);
        return true;
    }));
    if (counts_.findings != 0) {
        Find("the records were not read, because the pages that they lie in are damaged: restore the store " +
             store_.Location() + " from a backup");
        return {};
    }
    StoreFigures figures;
    SERVICE_RETURN_IF_ERROR(store_.Figures(figures));
    total_ = figures.instances + figures.changes;
    SERVICE_RETURN_IF_ERROR(store_.Read([&](StoreReader& reader) { return CheckRecords(reader); }));
    if (report_.progress) report_.progress(done_, done_);
    return {};
}

Status StoreCheck::CheckRecords(StoreReader& reader) {
    SERVICE_RETURN_IF_ERROR(CheckSchema(reader));
    const auto check_instance = [&](uint32_t class_id, const InstanceView& found, bool is_reachable) {
        CheckInstance(class_id, found, is_reachable);
        Proceed();
        return true;
    };
    SERVICE_RETURN_IF_ERROR(reader.ScanAllInstances(check_instance));
    return reader.ScanLog([&](uint64_t number, const ChangeView* change) {
        CheckChange(number, change);
        Proceed();
        return true;
    });
}

Status StoreCheck::CheckSchema(StoreReader& reader) {
    uint32_t last_id = 0;
    SERVICE_RETURN_IF_ERROR(reader.LastId(last_id));
    use_.class_numbers = last_id;
    SERVICE_RETURN_IF_ERROR(reader.ScanAllSchema([&](std::string_view key, std::string_view record) {
        if (key.starts_with(kNamespaceTag)) {
            ReadNamespace(key, record);
        } else if (key.starts_with(kClassTag)) {
            ReadClass(key, record);
        } else if (key.starts_with(kQualifierTag)) {
            ReadQualifierDeclaration(key, record);
        } else {
            Find("the schema has a record of an unknown kind, " + Shown(key));
        }
        return true;
    }));
    const bool has_root = std::any_of(spaces_.begin(), spaces_.end(), [](const auto& space) {
        return EqualFolded(space.second, kRootNamespace);
    });
    if (!has_root) spaces_.emplace(0, kRootNamespace);
    counts_.namespaces = spaces_.size();
    for (const auto& [id, path] : spaces_) {
        const size_t last = path.rfind('\\');
        const std::string above = last == std::string::npos ? path : path.substr(0, last);
        const bool is_there = std::any_of(spaces_.begin(), spaces_.end(), [&](const auto& space) {
            return EqualFolded(space.second, above);
        });
        if (!is_there) Find("the namespace " + path + " lies in " + above + ", which is not there");
        if (id != 0) TakeNumber(id, last_id, "the namespace " + path);
    }
    ResolveClasses(last_id);
    return {};
}

void StoreCheck::ReadNamespace(std::string_view key, std::string_view record) {
    Namespace space;
    if (!DecodeNamespace(record, space) || NamespaceKey(space.path) != key)
        return Find("the record of the namespace " + Shown(key.substr(1)) + " is damaged");
    Raise(use_.namespace_bytes, space.path.size());
    const auto [other, is_new] = spaces_.emplace(space.id, space.path);
    if (!is_new) Find("the namespaces " + other->second + " and " + space.path + " have the same number");
}

void StoreCheck::ReadClass(std::string_view key, std::string_view record) {
    ++counts_.classes;
    Declared declared;
    const bool has_space = NamespaceIdOfClassKey(key, declared.namespace_id);
    const std::string name = has_space ? Shown(key.substr(ClassPrefix(0).size())) : Shown(key);
    Result<ClassRecord> decoded = DecodeClass(record);
    if (!has_space || !decoded.ok()) return Find("the record of the class " + name + " is damaged");
    if (ClassKey(declared.namespace_id, decoded->declaration.name) != key) {
        return Find("the record of the class " + decoded->declaration.name + " lies where one of the class " +
                    name + " belongs");
    }
    declared.record = std::move(*decoded);
    Raise(use_.record_bytes, record.size());
    declared_.emplace(key, std::move(declared));
}

void StoreCheck::ReadQualifierDeclaration(std::string_view key, std::string_view record) {
    const size_t prefix = QualifierPrefix(0).size();
    const Result<QualifierDeclaration> decoded = DecodeQualifierDeclaration(record);
    if (!decoded.ok() || key.size() < prefix || Fold(decoded->name) != key.substr(prefix)) {
        return Find("the record of the qualifier declaration " +
                    Shown(key.substr(std::min(prefix, key.size()))) + " is damaged");
    }
    Raise(use_.name_bytes, decoded->name.size());
}

std::string StoreCheck::SpaceOf(uint32_t namespace_id) const {
    const auto found = spaces_.find(namespace_id);
    return found == spaces_.end() ? "number " + std::to_string(namespace_id) : found->second;
}

void StoreCheck::TakeNumber(uint32_t id, uint32_t last_id, const std::string& what) {
    const auto [other, is_new] = numbers_.emplace(id, what);
    if (!is_new) Find(other->second + " and " + what + " have the same number " + std::to_string(id));
    if (id > last_id) {
        Find(what + " has the number " + std::to_string(id) + ", but the store has given out only " +
             std::to_string(last_id));
    }
}

void StoreCheck::ResolveClasses(uint32_t last_id) {
    std::map<uint32_t, std::vector<ClassPtr>> by_space;
    for (auto& [key, declared] : declared_) {
        const ClassDeclaration& declaration = declared.record.declaration;
        const std::string what =
            "the class " + declaration.name + " of the namespace " + SpaceOf(declared.namespace_id);
        TakeNumber(declared.record.class_id, last_id, what);
        if (!spaces_.contains(declared.namespace_id)) Find(what + " belongs to no namespace that is there");
        if (ClassPtr definition = Resolve(key, 0)) {
            NoteClass(*definition);
            by_space[declared.namespace_id].push_back(std::move(definition));
        }
    }
    for (auto& [namespace_id, list] : by_space) {
        std::sort(list.begin(), list.end(),
                  [](const ClassPtr& a, const ClassPtr& b) { return a->FoldedName() < b->FoldedName(); });
        const auto space = spaces_.find(namespace_id);
        const auto sources =
            std::make_shared<const ClassesOfAMoment>(std::make_shared<const std::vector<ClassPtr>>(list));
        for (const ClassPtr& definition : list)
            CheckNames(*definition, namespace_id);
        for (const ClassPtr& definition : list)
            classes_[definition->Id()] = {definition, space == spaces_.end() ? nullptr : &space->second,
                                          sources};
    }
}

// Null for a class that cannot be one; it is told once.
ClassPtr StoreCheck::Resolve(const std::string& key, size_t depth) {
    const auto found = declared_.find(key);
    if (found == declared_.end()) return nullptr;
    Declared& declared = found->second;
    if (declared.is_resolved) return declared.definition;
    const ClassDeclaration& declaration = declared.record.declaration;
    const std::string what =
        "the class " + declaration.name + " of the namespace " + SpaceOf(declared.namespace_id);
    ClassPtr superclass;
    if (depth > kMaxClassDepth + 1) {
        Find(what + " has superclasses that go round in a circle");
    } else if (!declaration.superclass.empty()) {
        superclass = Resolve(ClassKey(declared.namespace_id, declaration.superclass), depth + 1);
        if (!superclass)
            Find(what + " derives from " + declaration.superclass + ", which is not there or damaged");
    }
    declared.is_resolved = true;
    if (!superclass && !declaration.superclass.empty()) return nullptr;
    Result<ClassPtr> definition =
        ClassDefinition::Resolve(declared.record.class_id, declaration, std::move(superclass));
    if (!definition.ok()) {
        Find(what + " is no class: " + definition.status().reason());
        return nullptr;
    }
    return declared.definition = std::move(*definition);
}

void StoreCheck::CheckNames(const ClassDefinition& definition, uint32_t namespace_id) {
    for (const PropertyDeclaration& property : definition.Declaration().properties) {
        const std::string& name = property.type.class_name;
        if (name.empty() || declared_.contains(ClassKey(namespace_id, name))) continue;
        Find("the property " + definition.Name() + "." + property.name + " of the namespace " +
             SpaceOf(namespace_id) + " is of class " + name + ", which is not there");
    }
}

void StoreCheck::NoteClass(const ClassDefinition& definition) {
    const ClassDeclaration& declaration = definition.Declaration();
    Raise(use_.name_bytes, declaration.name.size());
    Raise(use_.class_depth, definition.Derivation().size());
    Raise(use_.properties, definition.Properties().size());
    Raise(use_.property_numbers, declaration.next_ordinal);
    const auto note_qualifiers = [&](const std::vector<Qualifier>& qualifiers) {
        Raise(use_.qualifiers, qualifiers.size());
        for (const Qualifier& qualifier : qualifiers)
            Raise(use_.name_bytes, qualifier.name.size());
    };
    note_qualifiers(declaration.qualifiers);
    for (const PropertyDeclaration& property : declaration.properties) {
        Raise(use_.name_bytes, property.name.size());
        note_qualifiers(property.qualifiers);
    }
    for (const MethodDeclaration& method : declaration.methods) {
        Raise(use_.name_bytes, method.name.size());
        note_qualifiers(method.qualifiers);
    }
}

void StoreCheck::CheckInstance(uint32_t class_id, const InstanceView& found, bool is_reachable) {
    ++counts_.instances;
    Raise(use_.record_bytes, found.record.size());
    Raise(use_.key_bytes, found.key.size());
    const auto known = classes_.find(class_id);
    if (known == classes_.end()) {
        return Find("the instance with the key " + Shown(found.key) + " is of class number " +
                    std::to_string(class_id) + ", which is not there or damaged");
    }
    const ClassPtr& definition = known->second.definition;
    const auto* const space = known->second.space;
    const std::string where = space ? *space : std::string("no namespace");
    const auto find = [&](const std::string& what) {
        Find("the instance of class " + definition->Name() + " with the key " + Shown(found.key) +
             " in the namespace " + where + " " + what);
    };
    Result<Instance> instance = DecodeInstance(definition, found.record, known->second.sources);
    if (!instance.ok()) return find("is damaged: its record does not agree with its checksum");
    if (ClassIdOfRecord(found.record) != class_id) return find("has the record of another class");
    if (definition->IsAbstract()) find("is there although the class is abstract");
    if (Status fault = CheckValues(*instance); !fault.ok()) return find("cannot be read: " + fault.reason());
    const Result<std::string> key = KeyOf(*instance);
    if (!key.ok()) return find("has no key: " + key.status().reason());
    if (*key != found.key)
        return find("lies where it does not belong: by its values its key is " + Shown(*key));
    if (!is_reachable) find("is not found by its key");
}

Status StoreCheck::CheckValues(const Instance& instance) {
    const auto& properties = instance.Class()->Properties();
    for (size_t i = 0; i < properties.size(); ++i) {
        Value storage;
        ValueView view;
        bool is_set = false;
        SERVICE_RETURN_IF_ERROR(instance.ReadOwn(i, is_set, storage, view));
        if (!is_set) continue;
        if (const auto* text = std::get_if<std::string_view>(&view); text && !IsValidUtf8(*text))
            return {WBEM_E_CRITICAL_ERROR, "property " + properties[i].name + " is not valid UTF-8"};
        if (const auto* array = std::get_if<const Array*>(&view))
            SERVICE_RETURN_IF_ERROR(CheckArray(**array));
        if (const auto* object = std::get_if<const ObjectPtr*>(&view)) {
            SERVICE_RETURN_IF_ERROR(CheckValues(***object));
        }
        if (properties[i].type.type == CimType::kObject) {
            SERVICE_RETURN_IF_ERROR(CheckTarget(properties[i], view));
            const Embedding objects = EmbeddedObjectsOf(view);
            Raise(use_.embedding_depth, objects.depth);
            Raise(use_.embedded_objects, objects.objects);
        }
    }
    return {};
}

Status StoreCheck::CheckTarget(const PropertyDefinition& property, const ValueView& value) {
    const std::string& target = property.type.class_name;
    const auto look_at = [&](const ObjectPtr& object) -> Status {
        if (target.empty() || object->Class()->IsA(target)) return {};
        return {WBEM_E_TYPE_MISMATCH, "property " + property.name + " holds an object of class " +
                                          object->Class()->Name() + ", and takes those of class " + target};
    };
    if (const auto* object = std::get_if<const ObjectPtr*>(&value)) return look_at(**object);
    if (const auto* array = std::get_if<const Array*>(&value)) {
        for (const Scalar& element : **array) {
            const auto* object = std::get_if<ObjectPtr>(&element);
            if (object) SERVICE_RETURN_IF_ERROR(look_at(*object));
        }
    }
    return {};
}

Status StoreCheck::CheckArray(const Array& array) {
    Raise(use_.array_elements, array.size());
    for (const Scalar& element : array) {
        const auto* text = std::get_if<std::string>(&element);
        if (text && !IsValidUtf8(*text)) return {WBEM_E_CRITICAL_ERROR, "an element is not valid UTF-8"};
        const auto* object = std::get_if<ObjectPtr>(&element);
        if (object) SERVICE_RETURN_IF_ERROR(CheckValues(**object));
    }
    return {};
}

// An entry may be of a class that was changed or deleted since, and so may be the classes of objects in it;
// then its checksum is all that can be looked at.
void StoreCheck::CheckChange(uint64_t number, const ChangeView* change) {
    ++counts_.changes;
    const std::string which = "the entry " + std::to_string(number) + " of the change log";
    if (last_change_ != 0 && number != last_change_ + 1)
        Find("the change log goes from " + std::to_string(last_change_) + " to " + std::to_string(number));
    last_change_ = number;
    if (!change) return Find(which + " is damaged");
    const bool has_before = !change->before.empty();
    const bool has_after = !change->after.empty();
    const bool fits = (change->kind == ChangeKind::kCreated && !has_before && has_after) ||
                      (change->kind == ChangeKind::kModified && has_before && has_after) ||
                      (change->kind == ChangeKind::kDeleted && has_before && !has_after);
    if (!fits) return Find(which + " is of a kind that its contents are not of");
    const auto known = classes_.find(change->class_id);
    for (const std::string_view record : {change->before, change->after}) {
        if (record.empty()) continue;
        if (!IsWholeRecord(record) || ClassIdOfRecord(record) != change->class_id)
            return Find(which + " has a damaged record");
        if (known == classes_.end()) continue;
        Result<Instance> instance = DecodeInstance(known->second.definition, record, known->second.sources);
        Status fault = instance.ok() ? CheckValues(*instance) : std::move(instance).status();
        if (fault.code() == WBEM_E_CRITICAL_ERROR) return Find(which + " cannot be read: " + fault.reason());
    }
}

}  // namespace service
