// The library's own loaded image, as its entry point received it, for the log. Internal to the library.
//
//   DBG::DebugLogEx(LibraryModule(), DBG::LEVEL_FAILURE, L"" __FILE__, __LINE__, L"open fail. hr=0x%x", hr);
//
// Set while the library is loaded and never again, so any thread may ask.
#pragma once

#include <windows.h>

HINSTANCE LibraryModule() noexcept;
