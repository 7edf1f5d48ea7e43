// What the test module tells of its life. The module writes to the string that the test has set, and keeps
// what happened before that itself.
#pragma once

#include <string>

#include <windows.h>

struct ModuleLife {
    // Receives a word for each event of the unload: "detach" from the entry point, "destroyed" from a static
    // object. Null until set.
    std::string* unload = nullptr;
    bool static_object_was_ready = false;
    HINSTANCE module = nullptr;
    bool thread_calls_disabled = false;
    int attached = 0;
};

// The module exports this function under this name.
extern "C" ModuleLife* GetModuleLife();
