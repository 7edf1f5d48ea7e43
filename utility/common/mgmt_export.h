// MGMT_API marks what the library exports. Everything else is compiled with hidden visibility, and
// exports.map lists the exported classes and functions once more, because templates of the standard library
// are visible whatever the compiler is told.
#pragma once

#if defined(_WIN32)
#if defined(MGMT_BUILD)
#define MGMT_API __declspec(dllexport)
#else
#define MGMT_API __declspec(dllimport)
#endif
#define MGMT_LOCAL
#else
#define MGMT_API __attribute__((visibility("default")))
// Keeps a member of an exported class out of the exports.
#define MGMT_LOCAL __attribute__((visibility("hidden")))
#endif
