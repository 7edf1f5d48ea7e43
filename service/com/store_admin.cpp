#include "service/com/store_admin.h"

#include <utility>

#include <wbemidl.h>

#include "service/com/boundary.h"
#include "service/com/variant_conversion.h"
#include "service/language/mof_writer.h"
#include "service/language/wql_query.h"
#include "service/language/xml_writer.h"
#include "service/model/limits.h"
#include "service/model/text.h"
#include "service/store/repository.h"
#include "service/store/store_check.h"

namespace service {
namespace {

// A store that nobody has made must not be told to be sound, or copied, when its name was misspelled.
Result<std::shared_ptr<Store>> OpenStoreInUse() {
    SERVICE_ASSIGN_OR_RETURN(const std::shared_ptr<Repository> repository,
                             Repository::Open(Repository::DefaultDirectory()));
    if (repository->store()->IsThere()) return repository->store();
    return Status(WBEM_E_NOT_FOUND, "there is no store " + repository->Location() +
                                        ": the first import makes it (mgmtctl import FILE), or MGMT_STORE "
                                        "should name another directory");
}

StoreCheck::Report ReportTo(IMgmtStoreReport* report) {
    if (!report) return {};
    return {[report](uint64_t done, uint64_t total) { report->Progress(done, total); },
            [report](const std::string& sentence) { report->Finding(ToWideLossy(sentence).c_str()); }};
}

Status PutText(const char* text, BSTR& target) {
    target = SysAllocString(ToWideLossy(text).c_str());
    return target ? Status() : Status(WBEM_E_OUT_OF_MEMORY, "there is no memory for a text");
}

}  // namespace

HRESULT StoreAdmin::Check(IMgmtStoreReport* report, MgmtStoreCounts* counts) {
    bool has_findings = false;
    const HRESULT result = AtBoundary([&]() -> Status {
        if (!counts) return NullArgument("counts");
        *counts = {};
        SERVICE_ASSIGN_OR_RETURN(const std::shared_ptr<Store> store, OpenStoreInUse());
        StoreCheck check(*store);
        SERVICE_RETURN_IF_ERROR(check.Run(ReportTo(report)));
        const StoreCheck::Counts& found = check.counts();
        *counts = {found.namespaces, found.classes, found.instances, found.changes, found.findings};
        has_findings = found.findings != 0;
        return {};
    });
    return SUCCEEDED(result) && has_findings ? WBEM_S_FALSE : result;
}

HRESULT StoreAdmin::Backup(LPCWSTR path, IMgmtStoreReport* report) {
    return AtBoundary([&]() -> Status {
        if (!path) return {WBEM_E_INVALID_PARAMETER, "the path of the backup must not be null"};
        SERVICE_ASSIGN_OR_RETURN(const std::string name,
                                 TakeText(std::wstring_view(path), "the path of the backup"));
        SERVICE_ASSIGN_OR_RETURN(const std::shared_ptr<Store> store, OpenStoreInUse());
        StoreFigures figures;
        SERVICE_RETURN_IF_ERROR(store->Figures(figures));
        if (report) report->Progress(0, figures.used_bytes);
        SERVICE_RETURN_IF_ERROR(store->Backup(name));
        if (report) report->Progress(figures.used_bytes, figures.used_bytes);
        return {};
    });
}

Result<std::vector<StoreAdmin::Limit>> StoreAdmin::CountLimits() {
    SERVICE_ASSIGN_OR_RETURN(const std::shared_ptr<Store> store, OpenStoreInUse());
    StoreFigures figures;
    SERVICE_RETURN_IF_ERROR(store->Figures(figures));
    StoreCheck check(*store);
    SERVICE_RETURN_IF_ERROR(check.Run({}));
    const StoreUse& use = check.use();
    return std::vector<Limit>{
        {"store", "bytes, grows when full", figures.map_bytes, figures.used_bytes, true},
        {"change log", "bytes", figures.max_log_bytes, figures.log_bytes, true},
        {"readers at once", "readers", figures.max_readers, figures.readers, true},
        {"classes and namespaces ever made", "numbers", UINT32_MAX, use.class_numbers, true},
        {"path of a namespace", "bytes", kMaxNamespaceBytes, use.namespace_bytes, true},
        {"name of a class, property or qualifier", "bytes", kMaxNameBytes, use.name_bytes, true},
        {"superclasses above a class", "classes", kMaxClassDepth, use.class_depth, true},
        {"properties of a class", "properties", kMaxProperties, use.properties, true},
        {"properties ever declared by a class", "numbers", UINT16_MAX, use.property_numbers, true},
        {"qualifiers of a class or property", "qualifiers", kMaxQualifiers, use.qualifiers, true},
        {"key of an instance", "bytes", kMaxKeyBytes, use.key_bytes, true},
        {"record of an instance or class", "bytes", kMaxRecordBytes, use.record_bytes, true},
        {"elements of an array", "elements", kMaxArrayElements, use.array_elements, true},
        {"objects embedded in one another", "levels", kMaxEmbeddingDepth, use.embedding_depth, true},
        {"objects embedded in a property", "objects", kMaxEmbeddedObjects, use.embedded_objects, true},
        {"text of a query", "bytes", kMaxQueryBytes, 0, false},
        {"parentheses of a query", "levels", kMaxQueryDepth, 0, false},
        {"XML text of an object", "bytes", kMaxXmlBytes, 0, false},
    };
}

HRESULT StoreAdmin::GetLimit(ULONG number, MgmtStoreLimit* limit) {
    bool is_behind_last = false;
    const HRESULT result = AtBoundary([&]() -> Status {
        if (!limit) return NullArgument("limit");
        *limit = {};
        std::vector<Limit> counted;
        if (number == 0) {
            SERVICE_ASSIGN_OR_RETURN(counted, CountLimits());
        }
        const std::lock_guard lock(mutex_);
        if (number == 0) limits_ = std::move(counted);
        is_behind_last = number >= limits_.size();
        if (is_behind_last) return {};
        const Limit& found = limits_[number];
        CComBSTR name;
        SERVICE_RETURN_IF_ERROR(PutText(found.name, name.m_str));
        SERVICE_RETURN_IF_ERROR(PutText(found.unit, limit->unit));
        limit->name = name.Detach();
        limit->limit = found.limit;
        limit->used = found.used;
        limit->is_counted = found.is_counted ? TRUE : FALSE;
        return {};
    });
    return SUCCEEDED(result) && is_behind_last ? WBEM_S_NO_MORE_DATA : result;
}

HRESULT StoreAdmin::GetQualifierTypes(LPCWSTR name_space, BSTR* mof) {
    return AtBoundary([&]() -> Status {
        if (!mof) return NullArgument("mof");
        *mof = nullptr;
        SERVICE_ASSIGN_OR_RETURN(
            const std::string path,
            TakeText(std::wstring_view(name_space ? name_space : L""), "the namespace's path"));
        SERVICE_ASSIGN_OR_RETURN(const NamespacePath parsed, ParseNamespacePath(path));
        SERVICE_ASSIGN_OR_RETURN(const std::shared_ptr<Repository> repository,
                                 Repository::Open(Repository::DefaultDirectory()));
        SERVICE_ASSIGN_OR_RETURN(const Namespace space, repository->FindNamespace(parsed.path));
        SchemaCache::QualifierList declared;
        SERVICE_RETURN_IF_ERROR(repository->Read([&](RepositoryReader& reader) -> Status {
            SERVICE_ASSIGN_OR_RETURN(declared, reader.QualifierDeclarations(space));
            return {};
        }));
        std::string text;
        for (const QualifierDeclaration& each : *declared)
            AppendQualifierDeclarationMof(each, text);
        SERVICE_ASSIGN_OR_RETURN(*mof, MakeBstr(text));
        return {};
    });
}

}  // namespace service
