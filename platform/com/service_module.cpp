#include "platform/com/service_module.h"

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include <comdef.h>
#include <errorinfo.h>
#include <objbase.h>

namespace mgmt_platform {
namespace {

using GetClassObject = decltype(&DllGetClassObject);

constexpr char MODULE_NAME[] = "libmgmt_service.so";
constexpr char MODULE_VARIABLE[] = "MGMT_SERVICE_MODULE";

// The loaded module's function; null until the module is there.
std::atomic<GetClassObject> class_object_source{nullptr};

// One reference of a loaded image.
class Image {
 public:
    explicit Image(const char* path) noexcept : handle_(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {}
    ~Image() {
        if (handle_ != nullptr) dlclose(handle_);
    }

    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;

    explicit operator bool() const noexcept { return handle_ != nullptr; }
    GetClassObject FindClassObjectSource() const noexcept {
        return reinterpret_cast<GetClassObject>(dlsym(handle_, "DllGetClassObject"));
    }
    // The image stays loaded until the process ends.
    void Keep() noexcept { handle_ = nullptr; }

 private:
    void* handle_;
};

// The file next to this library's own; empty where there is none. A library that was loaded by a relative
// path has no folder that could be told later, when the process may have another working directory.
std::string PathNextToThisLibrary() {
    Dl_info image = {};
    if (dladdr(&class_object_source, &image) == 0 || image.dli_fname == nullptr) return {};
    const std::string_view own(image.dli_fname);
    if (!own.starts_with('/')) return {};
    std::string path(own.substr(0, own.rfind('/') + 1));
    path += MODULE_NAME;
    return access(path.c_str(), F_OK) == 0 ? path : std::string();
}

std::string ModulePath() {
    const char* const configured = secure_getenv(MODULE_VARIABLE);
    if (configured != nullptr && *configured != '\0') return configured;
    std::string path = PathNextToThisLibrary();
    return path.empty() ? MODULE_NAME : path;
}

// Reports `code` with a sentence that names the module and the loader's reason, and returns the code.
HRESULT ReportModuleFault(HRESULT code, const char* path) noexcept try {
    const char* const reason = dlerror();
    const _bstr_t sentence = _bstr_t(L"The management service's module \"") + path + L"\" cannot be used: " +
                             (reason != nullptr ? reason : "no reason was given") +
                             L". The environment variable " + MODULE_VARIABLE + L" can name another file.";
    ReportError(code, sentence);
    return code;
} catch (const _com_error&) {
    ReportError(code, L"The management service's module cannot be used.");
    return code;
}

HRESULT LoadModule(GetClassObject* source) noexcept try {
    const std::string path = ModulePath();
    Image image(path.c_str());
    if (!image) return ReportModuleFault(REGDB_E_CLASSNOTREG, path.c_str());
    *source = image.FindClassObjectSource();
    if (*source == nullptr) return ReportModuleFault(CO_E_ERRORINDLL, path.c_str());

    // Loading runs the module's own code, so no lock is held. Threads that load it at once share one image,
    // and all but the first give their reference back.
    GetClassObject none = nullptr;
    if (class_object_source.compare_exchange_strong(none, *source, std::memory_order_acq_rel))
        image.Keep();
    else
        *source = none;
    return S_OK;
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

}  // namespace

HRESULT GetModuleClassObject(REFCLSID clsid, REFIID riid, void** out) noexcept {
    GetClassObject source = class_object_source.load(std::memory_order_acquire);
    if (source == nullptr) {
        const HRESULT hr = LoadModule(&source);
        if (FAILED(hr)) return hr;
    }
    return source(clsid, riid, out);
}

}  // namespace mgmt_platform
