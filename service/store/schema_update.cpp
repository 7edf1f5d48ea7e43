#include "service/store/schema_update.h"

#include <algorithm>
#include <utility>

#include "service/model/limits.h"
#include "service/model/text.h"
#include "service/store/schema_codec.h"
#include "service/store/schema_records.h"

namespace service {
namespace {

// Properties keep the number they had, so that records find them; new ones, and those of another type, get
// numbers that were never used.
Status NumberProperties(ClassDeclaration& declaration, const ClassDeclaration* older) {
    declaration.next_ordinal = older ? older->next_ordinal : 0;
    for (PropertyDeclaration& property : declaration.properties) {
        const PropertyDeclaration* same = nullptr;
        if (older) {
            for (const PropertyDeclaration& candidate : older->properties) {
                if (candidate.type.SameShape(property.type) && EqualFolded(candidate.name, property.name))
                    same = &candidate;
            }
        }
        property.ordinal = same ? same->ordinal : declaration.next_ordinal++;
    }
    if (declaration.next_ordinal <= UINT16_MAX) return {};
    return {WBEM_E_QUOTA_VIOLATION,
            "class " + declaration.name + " was given too many new properties in its life"};
}

}  // namespace

SchemaUpdate::SchemaUpdate(RepositoryWriter& writer, Namespace space, const std::vector<std::string>& names)
    : writer_(writer), space_(std::move(space)) {
    for (const std::string& name : names)
        pending_.insert(Fold(name));
}

Result<ClassPtr> SchemaUpdate::Stored(std::string_view name) {
    if (before_) {
        const std::string folded = Fold(name);
        const auto found = std::lower_bound(before_->begin(), before_->end(), folded,
                                            [](const ClassPtr& definition, const std::string& wanted) {
                                                return definition->FoldedName() < wanted;
                                            });
        if (found != before_->end() && (*found)->FoldedName() == folded) return *found;
    }
    // One that was put before the first change is not among those before it when it is a new one.
    Result<ClassPtr> found = writer_.RepositoryReader::FindClass(space_, name);
    if (!found.ok() && found.code() == WBEM_E_INVALID_CLASS) return ClassPtr();
    return found;
}

Result<ClassPtr> SchemaUpdate::Find(std::string_view name) {
    if (const auto staged = staged_.find(Fold(name)); staged != staged_.end())
        return Current(staged->second.definition);
    SERVICE_ASSIGN_OR_RETURN(ClassPtr stored, Stored(name));
    if (!stored) return writer_.RepositoryReader::FindClass(space_, name);
    return Current(stored);
}

Result<ClassPtr> SchemaUpdate::Current(const ClassPtr& definition) {
    const ClassPtr& above = definition->Superclass();
    const bool is_pending = pending_.contains(definition->FoldedName());
    if (!above || !before_ || is_pending) return definition;
    if (const auto known = current_.find(definition->Id()); known != current_.end()) return known->second;
    const auto staged = staged_.find(above->FoldedName());
    SERVICE_ASSIGN_OR_RETURN(ClassPtr above_now,
                             Current(staged == staged_.end() ? above : staged->second.definition));
    ClassPtr current = definition;
    if (above_now != above) {
        SERVICE_ASSIGN_OR_RETURN(
            current,
            ClassDefinition::Resolve(definition->Id(), definition->Declaration(), std::move(above_now)));
    }
    current_[definition->Id()] = current;
    return current;
}

Result<ClassPtr> SchemaUpdate::SuperclassOf(ClassDeclaration& declaration) {
    if (declaration.superclass.empty()) return ClassPtr();
    Result<ClassPtr> found = Find(declaration.superclass);
    if (!found.ok()) {
        return Status(found.code() == WBEM_E_INVALID_CLASS ? WBEM_E_INVALID_SUPERCLASS : found.code(),
                      "the superclass of class " + declaration.name + ": " + found.status().reason());
    }
    if ((*found)->IsA(declaration.name)) {
        return Status(WBEM_E_INVALID_SUPERCLASS, "class " + declaration.name + " cannot derive from " +
                                                     (*found)->Name() + ", which derives from it");
    }
    declaration.superclass = (*found)->Name();
    return found;
}

Status SchemaUpdate::CheckTargets(const ClassDeclaration& declaration, const ClassDefinition* superclass) {
    if (!superclass || !superclass->HasObjects()) return {};
    for (const PropertyDeclaration& property : declaration.properties) {
        const auto index = superclass->FindProperty(std::string_view(property.name));
        if (!index) continue;
        const PropertyType& inherited = superclass->Properties()[*index].type;
        if (inherited.type != CimType::kObject || inherited.class_name.empty() ||
            EqualFolded(inherited.class_name, property.type.class_name))
            continue;
        const Result<ClassPtr> target = Find(property.type.class_name);
        if (target.ok() && (*target)->IsA(inherited.class_name)) continue;
        return {WBEM_E_TYPE_MISMATCH, "property " + declaration.name + "." + property.name +
                                          " is declared as " + DescribeType(property.type) + ", but " +
                                          superclass->Properties()[*index].origin + " declares it as " +
                                          DescribeType(inherited) + ": take a class that derives from it"};
    }
    return {};
}

Status SchemaUpdate::Put(ClassDeclaration declaration, PutCondition condition, ClassUpdate mode,
                         bool& is_changed) {
    is_changed = false;
    SERVICE_RETURN_IF_ERROR(CheckName("class", declaration.name));
    const std::string folded = Fold(declaration.name);
    SERVICE_ASSIGN_OR_RETURN(const ClassPtr older, Stored(declaration.name));
    if (older && condition == PutCondition::kCreateOnly) {
        return {WBEM_E_ALREADY_EXISTS,
                "class " + declaration.name + " is in the namespace " + space_.path + " already"};
    }
    if (!older && condition == PutCondition::kUpdateOnly) {
        return {WBEM_E_NOT_FOUND,
                "there is no class " + declaration.name + " in the namespace " + space_.path};
    }
    SERVICE_ASSIGN_OR_RETURN(const ClassPtr superclass, SuperclassOf(declaration));
    SERVICE_RETURN_IF_ERROR(CheckTargets(declaration, superclass.get()));

    ClassRecord record;
    if (older) {
        record.class_id = older->Id();
    } else {
        SERVICE_RETURN_IF_ERROR(writer_.writer_.NextId(record.class_id));
    }
    SERVICE_RETURN_IF_ERROR(NumberProperties(declaration, older ? &older->Declaration() : nullptr));
    SERVICE_ASSIGN_OR_RETURN(ClassPtr newer,
                             ClassDefinition::Resolve(record.class_id, declaration, superclass));
    record.declaration = std::move(declaration);
    std::string bytes;
    SERVICE_RETURN_IF_ERROR(EncodeClass(record, bytes));
    const std::string key = ClassKey(space_.id, record.declaration.name);
    if (key.size() > kMaxSchemaKeyBytes) {
        return {WBEM_E_INVALID_PARAMETER,
                "the name of class " + newer->Name() + " is too long once its case is folded"};
    }

    std::string_view stored;
    bool found = false;
    SERVICE_RETURN_IF_ERROR(writer_.reader_.GetSchema(key, stored, found));
    is_changed = !found || stored != bytes;
    const bool is_other = is_changed || (older && superclass != older->Superclass());
    if (older && is_other && !before_) {
        SERVICE_ASSIGN_OR_RETURN(before_, writer_.Classes(space_));
    }
    if (is_changed) SERVICE_RETURN_IF_ERROR(writer_.writer_.PutSchema(key, bytes));
    pending_.erase(folded);
    if (is_changed) writer_.LeaveSharedCache();
    if (!older && is_changed) writer_.cache_->ClearLists();
    if (!before_ || !is_other) return {};
    current_.clear();
    if (older) redeclared_.insert(folded);
    staged_[folded] = {std::move(newer), mode == ClassUpdate::kForced};
    return {};
}

const SchemaUpdate::Staged* SchemaUpdate::CauseOf(const ClassDefinition& definition) const {
    for (const ClassDefinition* each = &definition; each; each = each->Superclass().get()) {
        if (const auto staged = staged_.find(each->FoldedName()); staged != staged_.end())
            return &staged->second;
    }
    return nullptr;
}

Result<std::vector<ClassVersion>> SchemaUpdate::Versions(std::string& at_fault) {
    std::vector<ClassVersion> versions;
    for (const ClassPtr& older : *before_) {
        const auto staged = staged_.find(older->FoldedName());
        const bool is_put = staged != staged_.end();
        Result<ClassPtr> newer = Current(is_put ? staged->second.definition : older);
        const Staged* const cause = CauseOf(*older);
        if (!newer.ok()) {
            if (cause) at_fault = cause->definition->Name();
            return Status(newer.code(), "the new declaration of class " + at_fault +
                                            " does not fit its subclass " + older->Name() + ": " +
                                            newer.status().reason() +
                                            ". Declare the subclass anew in the same import");
        }
        if (*newer == older) continue;
        versions.push_back({older, std::move(*newer), cause && cause->is_forced,
                            cause ? cause->definition->Name() : older->Name()});
    }
    return versions;
}

Status SchemaUpdate::Finish(std::string& at_fault) {
    if (!before_) return {};
    pending_.clear();
    current_.clear();
    SERVICE_ASSIGN_OR_RETURN(std::vector<ClassVersion> versions, Versions(at_fault));
    std::vector<ClassPtr> now;
    for (const ClassVersion& version : versions)
        now.push_back(version.newer);
    for (const auto& [folded, staged] : staged_) {
        if (redeclared_.contains(folded)) continue;
        SERVICE_ASSIGN_OR_RETURN(ClassPtr added, Current(staged.definition));
        now.push_back(std::move(added));
    }
    ClassChange change(writer_.writer_, before_, std::move(versions));
    SERVICE_RETURN_IF_ERROR(change.CheckSafe(at_fault));
    SERVICE_RETURN_IF_ERROR(change.Convert(at_fault));
    writer_.cache_->Replace(space_.id, now, {});
    writer_.cache_->ClearLists();
    return {};
}

}  // namespace service
