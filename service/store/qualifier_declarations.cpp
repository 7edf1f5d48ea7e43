// The declarations of qualifiers in a repository.
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "service/store/repository.h"
#include "service/store/schema_codec.h"
#include "service/store/schema_records.h"
#include "service/store/value_conversion.h"

namespace service {
namespace {

// Numbers among one another, texts, booleans.
int KindOf(CimType type) noexcept {
    switch (RepresentationOf(type)) {
        case Representation::kText:
            return type == CimType::kDatetime ? 3 : 0;
        case Representation::kBoolean:
            return 1;
        default:
            return 2;
    }
}

Status CheckUse(const std::string& owner, const std::vector<Qualifier>& qualifiers,
                const QualifierDeclaration& declaration) {
    const Qualifier* const used = FindQualifier(qualifiers, declaration.name);
    if (!used || IsNull(used->value)) return {};
    const bool fits = used->type.is_array == declaration.type.is_array &&
                      KindOf(used->type.type) == KindOf(declaration.type.type) &&
                      ConvertedValue(used->type, declaration.type, used->value);
    if (fits) return {};
    return {WBEM_E_TYPE_MISMATCH, "qualifier " + declaration.name + " cannot be declared as " +
                                      DescribeType(declaration.type) + ": " + owner + " has it as " +
                                      DescribeType(used->type) +
                                      ". Declare that class anew in the same import"};
}

Status CheckUseIn(const ClassDeclaration& declared, const QualifierDeclaration& declaration) {
    SERVICE_RETURN_IF_ERROR(CheckUse("class " + declared.name, declared.qualifiers, declaration));
    for (const PropertyDeclaration& property : declared.properties) {
        SERVICE_RETURN_IF_ERROR(
            CheckUse("property " + declared.name + "." + property.name, property.qualifiers, declaration));
    }
    for (const MethodDeclaration& method : declared.methods) {
        const std::string owner = "method " + declared.name + "." + method.name;
        SERVICE_RETURN_IF_ERROR(CheckUse(owner, method.qualifiers, declaration));
        for (const ParameterDeclaration& parameter : method.parameters)
            SERVICE_RETURN_IF_ERROR(CheckUse(owner, parameter.qualifiers, declaration));
    }
    return {};
}

}  // namespace

Result<SchemaCache::QualifierList> RepositoryReader::QualifierDeclarations(const Namespace& space) {
    if (SchemaCache::QualifierList cached = cache_->FindQualifiers(space.id)) return cached;
    auto declarations = std::make_shared<std::vector<QualifierDeclaration>>();
    Status damaged;
    SERVICE_RETURN_IF_ERROR(
        reader_.ScanSchema(QualifierPrefix(space.id), [&](std::string_view, std::string_view record) {
            Result<QualifierDeclaration> declaration = DecodeQualifierDeclaration(record);
            if (declaration.ok()) {
                declarations->push_back(std::move(*declaration));
            } else {
                damaged = std::move(declaration).status();
            }
            return damaged.ok();
        }));
    if (!damaged.ok()) return damaged;
    cache_->SetQualifiers(space.id, declarations);
    return SchemaCache::QualifierList(std::move(declarations));
}

Status RepositoryWriter::PutQualifierDeclaration(const Namespace& space,
                                                 const QualifierDeclaration& declaration, bool& is_changed) {
    is_changed = false;
    SERVICE_RETURN_IF_ERROR(CheckName("qualifier", declaration.name, true));
    SERVICE_RETURN_IF_ERROR(CheckValue(declaration.type, declaration.default_value));
    const std::string key = QualifierKey(space.id, declaration.name);
    if (key.size() > kMaxSchemaKeyBytes) {
        return {WBEM_E_INVALID_PARAMETER,
                "the name of qualifier " + declaration.name + " is too long once its case is folded"};
    }
    std::string record;
    SERVICE_RETURN_IF_ERROR(EncodeQualifierDeclaration(declaration, record));
    std::string_view stored;
    bool found = false;
    SERVICE_RETURN_IF_ERROR(reader_.GetSchema(key, stored, found));
    if (found && stored == record) return {};
    SERVICE_RETURN_IF_ERROR(NoteType(space, declaration, found ? stored : std::string_view()));
    SERVICE_RETURN_IF_ERROR(writer_.PutSchema(key, record));
    is_changed = true;
    LeaveSharedCache();
    cache_->SetQualifiers(space.id, nullptr);
    return {};
}

// Where no class is yet, none can have it as something else.
Status RepositoryWriter::NoteType(const Namespace& space, const QualifierDeclaration& declaration,
                                  std::string_view stored) {
    if (!stored.empty()) {
        SERVICE_ASSIGN_OR_RETURN(const QualifierDeclaration older, DecodeQualifierDeclaration(stored));
        if (older.type.SameShape(declaration.type)) return {};
    }
    SERVICE_ASSIGN_OR_RETURN(const SchemaCache::ClassList classes, Classes(space));
    if (!classes->empty()) retyped_qualifiers_[space.id].push_back(declaration);
    return {};
}

Status RepositoryWriter::CheckQualifierUse(const Namespace& space, std::string& at_fault) {
    const auto retyped = retyped_qualifiers_.extract(space.id);
    if (!retyped) return {};
    SERVICE_ASSIGN_OR_RETURN(const SchemaCache::ClassList classes, Classes(space));
    for (const QualifierDeclaration& declaration : retyped.mapped()) {
        at_fault = declaration.name;
        for (const ClassPtr& each : *classes)
            SERVICE_RETURN_IF_ERROR(CheckUseIn(each->Declaration(), declaration));
    }
    return {};
}

}  // namespace service
