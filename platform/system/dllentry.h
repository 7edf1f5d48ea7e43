// How a library's entry point gets called when the library is loaded and unloaded.
//
//   BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) { ... return TRUE; }
//   MGMT_MODULE_ENTRY(DllMain);   // in one source file of the library
//
// At load the entry point is called with DLL_PROCESS_ATTACH after the library's static objects were
// constructed, and at unload or at the process's end with DLL_PROCESS_DETACH before they are destroyed, as on
// the published platform. The linker runs static construction in the order of the objects it is given, so THE
// SOURCE FILE WITH THIS LINE MUST COME LAST IN THE LIBRARY'S SOURCE LIST; only function-local statics that
// are first reached later fall outside that order. Both calls come on the thread that loads or unloads, under
// the loader's lock: the entry point must not load libraries or wait for other threads. Threads are never
// announced.
#pragma once

#include <platform_api.h>
#include <windef.h>

namespace mgmt_platform {

// One static object a library; use MGMT_MODULE_ENTRY.
class MGMT_PLATFORM_API ModuleEntry {
 public:
    // The third argument is null in every call. A constructor cannot refuse the load, so an entry point that
    // answers DLL_PROCESS_ATTACH with FALSE ends the process, with a line on standard error.
    using Function = BOOL(WINAPI*)(HINSTANCE module, DWORD reason, LPVOID reserved);

    explicit ModuleEntry(Function entry) noexcept;
    ~ModuleEntry();

    ModuleEntry(const ModuleEntry&) = delete;
    ModuleEntry& operator=(const ModuleEntry&) = delete;

 private:
    Function entry_;
    HINSTANCE module_;
};

}  // namespace mgmt_platform

#define MGMT_MODULE_ENTRY(entry)                                  \
    namespace {                                                   \
    const mgmt_platform::ModuleEntry mgmt_module_entry{&(entry)}; \
    }                                                             \
    static_assert(true, "takes the semicolon")
