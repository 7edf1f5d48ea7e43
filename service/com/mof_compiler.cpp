#include "service/com/mof_compiler.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "service/com/boundary.h"
#include "service/com/identity.h"
#include "service/language/mof_compiler.h"
#include "service/model/text.h"
#include "service/store/repository.h"

namespace service {
namespace {

constexpr const char* kDefaultNamespace = "root\\default";

struct ImportFlags {
    bool is_check_only = false;
    PutCondition classes = PutCondition::kCreateOrUpdate;
    PutCondition instances = PutCondition::kCreateOrUpdate;
    bool is_forced = false;
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
            return Status(WBEM_E_INVALID_PARAMETER,
                          "the flags of classes and instances are create or update, update only or create "
                          "only, and for "
                          "classes safe mode or force mode besides");
    }
}

Result<ImportFlags> ReadFlags(LONG options, LONG classes, LONG instances) {
    ImportFlags flags;
    flags.is_check_only = (options & WBEM_FLAG_CHECK_ONLY) != 0;
    flags.is_forced = (classes & WBEM_FLAG_UPDATE_FORCE_MODE) != 0;
    constexpr LONG kModes = WBEM_FLAG_UPDATE_SAFE_MODE | WBEM_FLAG_UPDATE_FORCE_MODE;
    SERVICE_ASSIGN_OR_RETURN(flags.classes, ConditionOf(classes & ~kModes));
    SERVICE_ASSIGN_OR_RETURN(flags.instances, ConditionOf(instances));
    return flags;
}

// `shown` names the file in messages.
Result<std::string> ReadWhole(const std::string& name, const std::string& shown) {
    struct stat facts {};
    if (stat(name.c_str(), &facts) != 0) return Status(WBEM_E_NOT_FOUND, shown + ": " + std::strerror(errno));
    if (S_ISDIR(facts.st_mode))
        return Status(WBEM_E_INVALID_PARAMETER, shown + " is a directory: name the files in it");
    std::ifstream file(name, std::ios::binary);
    if (!file.is_open())
        return Status(WBEM_E_ACCESS_DENIED, shown + " cannot be read: " + std::strerror(errno));
    std::string bytes;
    // A pipe has no size.
    if (S_ISREG(facts.st_mode)) bytes.reserve(static_cast<size_t>(facts.st_size));
    bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    if (file.bad()) return Status(WBEM_E_ACCESS_DENIED, shown + " cannot be read: " + std::strerror(errno));
    return bytes;
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

    Status PutClass(ClassDeclaration declaration, const MofUpdate& update) override {
        bool is_changed = false;
        return writer_.PutClass(space_, std::move(declaration), ConditionBy(update, flags_.classes),
                                is_changed, ModeBy(update));
    }

    Status BeginClasses(const std::vector<std::string>& names) override {
        return writer_.BeginClasses(space_, names);
    }
    Status FinishClasses(std::string& at_fault) override { return writer_.FinishClasses(space_, at_fault); }

    Status PutInstance(Instance instance, const MofUpdate& update) override {
        return writer_.PutInstance(space_, instance, ConditionBy(update, flags_.instances));
    }

    Status PutQualifierDeclaration(QualifierDeclaration declaration) override {
        bool is_changed = false;
        return writer_.PutQualifierDeclaration(space_, declaration, is_changed);
    }

    Result<std::vector<QualifierDeclaration>> QualifierDeclarations() override {
        SERVICE_ASSIGN_OR_RETURN(const auto declarations, writer_.QualifierDeclarations(space_));
        return *declarations;
    }

    Status DeleteClass(const std::string& name) override {
        return writer_.DeleteClass(space_, name, ModeBy({}));
    }

    Status DeleteInstance(const ObjectPath& path) override { return writer_.DeleteInstance(space_, path); }

 private:
    // What the text asks for goes before what the caller does.
    static PutCondition ConditionBy(const MofUpdate& update, PutCondition asked) noexcept {
        if (update.is_update_only) return PutCondition::kUpdateOnly;
        return update.is_create_only ? PutCondition::kCreateOnly : asked;
    }
    ClassUpdate ModeBy(const MofUpdate& update) const noexcept {
        return update.is_forced || flags_.is_forced ? ClassUpdate::kForced : ClassUpdate::kSafe;
    }

    RepositoryWriter& writer_;
    const ImportFlags& flags_;
    Namespace space_;
};

// The files of this machine. Relative names count from the file that names them, in a text that is in no file
// from the current directory.
class DiskFiles final : public MofFiles {
 public:
    Result<Found> Find(std::string_view name, const MofSource& including) override {
        namespace fs = std::filesystem;
        // Published schemas separate folders either way.
        std::string slashed(name);
        std::replace(slashed.begin(), slashed.end(), '\\', '/');
        const fs::path folder = including.file.empty() ? fs::path() : fs::path(including.file).parent_path();
        std::error_code fault;
        for (const std::string& spelled : {std::string(name), slashed}) {
            const fs::path file = fs::canonical(folder / spelled, fault);
            if (fault) continue;
            if (!fs::is_regular_file(file, fault)) {
                return Status(WBEM_E_INVALID_PARAMETER, file.string() + " is no file that can be included");
            }
            const fs::path shown =
                including.file.empty() ? fs::path(spelled) : fs::path(including.name).parent_path() / spelled;
            return Found{shown.lexically_normal().string(), file.string()};
        }
        return Status(WBEM_E_NOT_FOUND, "the file " + (folder / slashed).lexically_normal().string() +
                                            " cannot be included: " + fault.message());
    }

    Result<std::string> Read(const Found& found) override { return ReadWhole(found.file, found.name); }
};

void FillIn(const MofImport& import, WBEM_COMPILE_STATUS_INFO* info) noexcept {
    if (!info) return;
    *info = {};
    const MofSummary& put = import.summary;
    info->ObjectNum = static_cast<long>(put.classes + put.instances + put.qualifiers + put.deletions);
    if (!import.fault) return;
    info->lPhaseError = static_cast<long>(import.fault->phase);
    info->hRes = import.fault->code;
    info->FirstLine = static_cast<long>(import.fault->line);
    info->LastLine = info->FirstLine;
}

// A store for a check where there is none yet: a check makes none. What the process maps of it stays until
// the process ends, as with any store.
class ScratchStore {
 public:
    ScratchStore() = default;
    ~ScratchStore() {
        std::error_code fault;
        if (!directory_.empty()) std::filesystem::remove_all(directory_, fault);
    }
    ScratchStore(const ScratchStore&) = delete;
    ScratchStore& operator=(const ScratchStore&) = delete;

    Result<std::shared_ptr<Repository>> Open() {
        std::error_code fault;
        std::string name = (std::filesystem::temp_directory_path(fault) / "mgmt-check-XXXXXX").string();
        if (fault || !mkdtemp(name.data()))
            return Status(WBEM_E_NOT_AVAILABLE,
                          "a check where there is no store yet needs the directory for "
                          "temporary files, and " +
                              name + " cannot be made: set TMPDIR");
        directory_ = std::move(name);
        return Repository::Open(directory_);
    }

 private:
    std::string directory_;
};

Status Import(const std::vector<MofSource>& sources, const std::string& default_namespace,
              const ImportFlags& flags, CComPtr<IMofProgress> progress, WBEM_COMPILE_STATUS_INFO* info) {
    DiskFiles files;
    MofOptions options;
    options.files = &files;
    std::set<std::string> warned;  // the transaction may run again
    if (progress) {
        options.progress = [&](size_t done, size_t total) { progress->Progress(done, total); };
        options.warn = [&](const std::string& sentence) {
            if (warned.insert(sentence).second) progress->Warning(ToWideLossy(sentence).c_str());
        };
    }
    SERVICE_ASSIGN_OR_RETURN(std::shared_ptr<Repository> repository,
                             Repository::Open(Repository::DefaultDirectory()));
    ScratchStore scratch;
    if (flags.is_check_only && !repository->store()->IsThere()) {
        SERVICE_ASSIGN_OR_RETURN(repository, scratch.Open());
    }
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
        if (!FileName) return NullArgument("FileName");
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
        std::deque<std::string> texts;
        std::vector<MofSource> sources;
        for (const std::string& name : names) {
            std::error_code fault;
            if (std::filesystem::is_regular_file(name, fault)) {
                sources.push_back({name, {}, std::filesystem::canonical(name).string()});
                continue;
            }
            // A pipe can be read once only, and the transaction may run again.
            SERVICE_ASSIGN_OR_RETURN(std::string text, ReadWhole(name, name));
            sources.push_back({name, texts.emplace_back(std::move(text))});
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
