// The library's entry point. At load it runs after the library's static objects were made (the default scope,
// then its lock), at unload before they are destroyed; CMakeLists.txt keeps this file last for that.
#include "utility/management/util_MgmtModule.h"

#include <dllentry.h>

static HINSTANCE g_libraryModule = nullptr;

HINSTANCE LibraryModule() noexcept {
    return g_libraryModule;
}

static BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID /*reserved*/) {
    if (reason != DLL_PROCESS_ATTACH) return TRUE;
    g_libraryModule = module;
    // The library keeps nothing for a thread.
    DisableThreadLibraryCalls(module);
    return TRUE;
}

MGMT_MODULE_ENTRY(DllMain);
