#include "service/com/mof_compiler.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "service/com/boundary.h"
#include "service/com/identity.h"
#include "service/language/mof_compiler.h"
#include "service/store/repository.h"

namespace service {
namespace {

constexpr const char* kDefaultNamespace = "root\\default";

struct ImportFlags {
    bool is_check_only = false;
    PutCondition classes = PutCondition::kCreateOrUpdate;
    PutCondition instances = PutCondition::kCreateOrUpdate;
};

Result<PutCondition> ConditionOf(LONG flags) {
    switch (flags) {
        case WBEM_FLAG_CREATE_OR_UPDATE:
            return PutCondition::kCreateOrUpdate;
        case WBEM_FLAG_UPDATE_ONLY:
            return PutCondition::kUpdateOnly;
        case WBEM_FLAG_CREATE_ONLY:
            return PutCondition::kCreateOnly;
        default:
            return Status(
                WBEM_E_INVALID_PARAMETER,
                "the flags of classes and instances are create or update, update only or create only");
    }
}

Result<ImportFlags> ReadFlags(LONG options, LONG classes, LONG instances) {
    ImportFlags flags;
    flags.is_check_only = (options & WBEM_FLAG_CHECK_ONLY) != 0;
    SERVICE_ASSIGN_OR_RETURN(flags.classes, ConditionOf(classes));
    SERVICE_ASSIGN_OR_RETURN(flags.instances, ConditionOf(instances));
    return flags;
}

// An import's transaction as the language sees it.
class TransactionTarget final : public MofTarget {
 public:
    TransactionTarget(RepositoryWriter& writer, const ImportFlags& flags) noexcept
        : writer_(writer), flags_(flags) {}

    Status UseNamespace(const std::string& path) override {
        SERVICE_ASSIGN_OR_RETURN(const NamespacePath parsed, ParseNamespacePath(path));
        if (!IsThisMachine(parsed.server)) {
            return {WBEM_E_NOT_SUPPORTED, "the server " + parsed.server + " is not this machine"};
        }
        bool is_new = false;
        SERVICE_ASSIGN_OR_RETURN(space_, writer_.MakeNamespace(parsed.path, is_new));
        return {};
    }

    Status CreateChildNamespace(const std::string& name) override {
        SERVICE_ASSIGN_OR_RETURN(const NamespacePath parsed, ParseNamespacePath(space_.path + "\\" + name));
        bool is_new = false;
        return writer_.MakeNamespace(parsed.path, is_new).status();
    }

    Result<ClassPtr> FindClass(std::string_view name) override { return writer_.FindClass(space_, name); }

    Status PutClass(ClassDeclaration declaration) override {
        bool is_changed = false;
        return writer_.PutClass(space_, std::move(declaration), flags_.classes, is_changed);
    }

    Status PutInstance(Instance instance) override {
        return writer_.PutInstance(space_, instance, flags_.instances);
    }

 private:
    RepositoryWriter& writer_;
    const ImportFlags& flags_;
    Namespace space_;
};

void FillIn(const MofImport& import, WBEM_COMPILE_STATUS_INFO* info) noexcept {
    if (!info) return;
    *info = {};
    info->ObjectNum = static_cast<long>(import.summary.classes + import.summary.instances);
    if (!import.fault) return;
    info->lPhaseError = static_cast<long>(import.fault->phase);
    info->hRes = import.fault->code;
    info->FirstLine = static_cast<long>(import.fault->line);
    info->LastLine = info->FirstLine;
}

Status Import(const std::vector<MofSource>& sources, const std::string& default_namespace,
              const ImportFlags& flags, CComPtr<IMofProgress> progress, WBEM_COMPILE_STATUS_INFO* info) {
    MofOptions options;
    if (progress) options.progress = [&](size_t done, size_t total) { progress->Progress(done, total); };
    SERVICE_ASSIGN_OR_RETURN(const std::shared_ptr<Repository> repository,
                             Repository::Open(Repository::DefaultDirectory()));
    MofImport import;
    bool is_checked = false;
    Status result = repository->Write([&](RepositoryWriter& writer) -> Status {
        TransactionTarget target(writer, flags);
        import = CompileMof(sources, default_namespace, target, options);
        if (import.fault) return {import.fault->code, Describe(*import.fault)};
        is_checked = flags.is_check_only;
        // Any fault makes the transaction void.
        return is_checked ? Status(WBEM_E_FAILED, "checked only") : Status();
    });
    FillIn(import, info);
    return is_checked && !import.fault ? Status() : std::move(result);
}

Result<std::string> ReadWhole(const std::string& name) {
    struct stat facts {};
    if (stat(name.c_str(), &facts) != 0) return Status(WBEM_E_NOT_FOUND, name + ": " + std::strerror(errno));
    if (S_ISDIR(facts.st_mode))
        return Status(WBEM_E_INVALID_PARAMETER, name + " is a directory: name the files in it");
    std::ifstream file(name, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (file.bad() || !file.is_open())
        return Status(WBEM_E_ACCESS_DENIED, name + " cannot be read: " + std::strerror(errno));
    return bytes;
}

Result<std::string> NamespaceArgument(LPWSTR given) {
    if (!given || !*given) return std::string(kDefaultNamespace);
    return TakeText(std::wstring_view(given), "the namespace's path");
}

}  // namespace

HRESULT MofCompiler::CompileFile(LPWSTR FileName, LPWSTR ServerAndNamespace, LPWSTR User, LPWSTR, LPWSTR,
                                 LONG lOptionFlags, LONG lClassFlags, LONG lInstanceFlags,
                                 WBEM_COMPILE_STATUS_INFO* pInfo) {
    const HRESULT result = AtBoundary([&]() -> Status {
        if (pInfo) *pInfo = {};
        if (!FileName) return {WBEM_E_INVALID_PARAMETER, "FileName must not be null"};
        if (User) SERVICE_RETURN_IF_ERROR(CheckIdentity(User, {}));
        SERVICE_ASSIGN_OR_RETURN(const ImportFlags flags,
                                 ReadFlags(lOptionFlags, lClassFlags, lInstanceFlags));
        SERVICE_ASSIGN_OR_RETURN(const std::string space, NamespaceArgument(ServerAndNamespace));
        SERVICE_ASSIGN_OR_RETURN(const std::string list,
                                 TakeText(std::wstring_view(FileName), "the file's name"));
        std::vector<std::string> names;
        for (size_t start = 0; start <= list.size();) {
            const size_t end = std::min(list.find('\n', start), list.size());
            if (end > start) names.push_back(list.substr(start, end - start));
            start = end + 1;
        }
        std::vector<std::string> texts;
        std::vector<MofSource> sources;
        texts.reserve(names.size());
        for (const std::string& name : names) {
            SERVICE_ASSIGN_OR_RETURN(std::string text, ReadWhole(name));
            texts.push_back(std::move(text));
            sources.push_back({name, texts.back()});
        }
        return Import(sources, space, flags, progress_, pInfo);
    });
    if (pInfo) pInfo->hRes = result;
    return result;
}

HRESULT MofCompiler::CompileBuffer(long BuffSize, BYTE* pBuffer, LPWSTR ServerAndNamespace, LPWSTR User,
                                   LPWSTR, LPWSTR, LONG lOptionFlags, LONG lClassFlags, LONG lInstanceFlags,
                                   WBEM_COMPILE_STATUS_INFO* pInfo) {
    const HRESULT result = AtBoundary([&]() -> Status {
        if (pInfo) *pInfo = {};
        if (!pBuffer || BuffSize < 0)
            return {WBEM_E_INVALID_PARAMETER, "a buffer and its size in bytes are needed"};
        if (User) SERVICE_RETURN_IF_ERROR(CheckIdentity(User, {}));
        SERVICE_ASSIGN_OR_RETURN(const ImportFlags flags,
                                 ReadFlags(lOptionFlags, lClassFlags, lInstanceFlags));
        SERVICE_ASSIGN_OR_RETURN(const std::string space, NamespaceArgument(ServerAndNamespace));
        const std::string_view bytes(reinterpret_cast<const char*>(pBuffer), static_cast<size_t>(BuffSize));
        return Import({{"buffer", bytes}}, space, flags, progress_, pInfo);
    });
    if (pInfo) pInfo->hRes = result;
    return result;
}

HRESULT MofCompiler::CreateBMOF(LPWSTR, LPWSTR, LPWSTR, LONG, LONG, LONG, WBEM_COMPILE_STATUS_INFO*) {
    return Report(Status(WBEM_E_NOT_SUPPORTED, "binary MOF is not supported by this service"));
}

HRESULT MofCompiler::SetProgress(IMofProgress* progress) {
    progress_ = progress;
    return S_OK;
}

}  // namespace service
