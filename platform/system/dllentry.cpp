#include <dlfcn.h>
#include <dllentry.h>

#include <cstdio>
#include <cstdlib>

#include <winbase.h>

namespace mgmt_platform {

ModuleEntry::ModuleEntry(Function entry) noexcept : entry_(entry), module_(nullptr) {
    // This object lies in the library that it speaks for; the entry point's own address need not, because a
    // symbol of its name in another library may have taken its place.
    Dl_info image = {};
    if (dladdr(this, &image) != 0) module_ = static_cast<HINSTANCE>(image.dli_fbase);

    if (entry_(module_, DLL_PROCESS_ATTACH, nullptr)) return;
    std::fprintf(stderr, "%s: the entry point refused to be loaded\n",
                 image.dli_fname ? image.dli_fname : "?");
    std::abort();
}

ModuleEntry::~ModuleEntry() {
    entry_(module_, DLL_PROCESS_DETACH, nullptr);
}

}  // namespace mgmt_platform
