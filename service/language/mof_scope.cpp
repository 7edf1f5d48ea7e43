#include "service/language/mof_scope.h"

#include <utility>

#include "service/model/object_path.h"
#include "service/model/text.h"

namespace service {

std::optional<size_t> MofScope::KnownClass::FindProperty(std::string_view name) const {
    const auto found = properties.find(Fold(name));
    return found == properties.end() ? std::nullopt : std::optional(found->second);
}

Result<size_t> MofScope::Add(std::string_view path) {
    SERVICE_ASSIGN_OR_RETURN(const NamespacePath parsed, ParseNamespacePath(path));
    const auto [known, is_new] =
        numbers_.try_emplace(Fold(parsed.server + '\\' + parsed.path), spaces_.size());
    if (is_new) spaces_.push_back({std::string(path), {}, {}, {}});
    return known->second;
}

std::optional<size_t> MofScope::Declare(size_t space, std::string_view class_name, size_t number) {
    const auto [known, is_new] = spaces_[space].declared.try_emplace(Fold(class_name), number);
    return is_new ? std::nullopt : std::optional(known->second);
}

std::optional<size_t> MofScope::FindDeclared(size_t space, std::string_view class_name) const {
    const auto found = spaces_[space].declared.find(Fold(class_name));
    return found == spaces_[space].declared.end() ? std::nullopt : std::optional(found->second);
}

Status MofScope::Enter(size_t space) {
    if (current_ == space) return {};
    current_.reset();
    SERVICE_RETURN_IF_ERROR(target_.UseNamespace(spaces_[space].path));
    current_ = space;
    return {};
}

Result<const MofScope::KnownClass*> MofScope::Find(size_t space, std::string_view class_name) {
    const auto [known, is_new] = spaces_[space].classes.try_emplace(Fold(class_name));
    KnownClass& entry = known->second;
    if (!is_new) return &entry;

    SERVICE_RETURN_IF_ERROR(Enter(space));
    Result<ClassPtr> found = target_.FindClass(class_name);
    if (!found.ok()) {
        const bool is_unknown = found.code() == WBEM_E_INVALID_CLASS || found.code() == WBEM_E_NOT_FOUND;
        if (is_unknown) return &entry;
        return std::move(found).status();
    }
    entry.definition = std::move(*found);
    const std::vector<PropertyDefinition>& properties = entry.definition->Properties();
    for (size_t i = 0; i < properties.size(); ++i)
        entry.properties.emplace(properties[i].folded_name, i);
    return &entry;
}

Result<const QualifierDeclaration*> MofScope::FindQualifier(size_t space, std::string_view name) {
    auto& known = spaces_[space].qualifiers;
    if (!known) {
        SERVICE_RETURN_IF_ERROR(Enter(space));
        SERVICE_ASSIGN_OR_RETURN(std::vector<QualifierDeclaration> all, target_.QualifierDeclarations());
        known.emplace();
        for (QualifierDeclaration& declaration : all) {
            std::string folded = Fold(declaration.name);
            known->emplace(std::move(folded), std::move(declaration));
        }
    }
    const auto found = known->find(Fold(name));
    return found == known->end() ? nullptr : &found->second;
}

void MofScope::Forget() {
    for (Space& space : spaces_)
        space.classes.clear();
}

}  // namespace service
