// The declarations of qualifiers in a repository.
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "service/store/repository.h"
#include "service/store/schema_codec.h"
#include "service/store/schema_records.h"

namespace service {

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
    SERVICE_RETURN_IF_ERROR(writer_.PutSchema(key, record));
    is_changed = true;
    LeaveSharedCache();
    cache_->SetQualifiers(space.id, nullptr);
    return {};
}

}  // namespace service
