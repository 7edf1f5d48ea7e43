// The library's entry point. At load it runs after the library's static objects were made (the default scope,
// then its lock), at unload before they are destroyed; CMakeLists.txt keeps this file last for that.
#include <dllentry.h>
#include <windows.h>

static BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID /*reserved*/) {
    // The library keeps nothing for a thread.
    if (reason == DLL_PROCESS_ATTACH) DisableThreadLibraryCalls(module);
    return TRUE;
}

MGMT_MODULE_ENTRY(DllMain);
