#include <dllentry.h>

#include "tests/platform/test_module/trace.h"

bool StaticObjectIsReady();

static BOOL WINAPI TestModuleMain(HINSTANCE module, DWORD reason, LPVOID) {
    ModuleLife& life = *GetModuleLife();
    if (reason == DLL_PROCESS_ATTACH) {
        ++life.attached;
        life.module = module;
        life.static_object_was_ready = StaticObjectIsReady();
        life.thread_calls_disabled = DisableThreadLibraryCalls(module) != FALSE;
    }
    if (reason == DLL_PROCESS_DETACH && life.unload != nullptr) *life.unload += "detach ";
    return TRUE;
}

MGMT_MODULE_ENTRY(TestModuleMain);
