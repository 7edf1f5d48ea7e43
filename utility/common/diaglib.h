// The product's diagnostic log.
//
//   DBG::DebugLogEx(module, DBG::LEVEL_FAILURE, L"" __FILE__, __LINE__, L"open fail. hr=0x%x", hr);
//
// Any thread may log at any time; lines of different threads are never mixed. A call never fails into its
// caller: it throws nothing, and a line that cannot be written is dropped.
//
// Where the lines go is taken from the environment variable MGMT_LOG when the first line is logged:
//
//   unset           failures to the standard error, everything else nowhere
//   "off" or empty  nowhere
//   "stderr"        every line to the standard error
//   anything else   the path of a file to which every line is appended, by any number of processes; a file
//                   that cannot be opened leaves the log as if the variable were unset
//
// A process that runs with more rights than its caller (setuid, setgid) does not read the variable.
//
// A line is UTF-8 and ends where the record ends, because control characters in the text are written as
// escapes ("\n", "\x1b"); text that has no UTF-8 form is shown as U+FFFD:
//
//   2024-01-31T23:59:58.123456+0100 failure [pid:tid] util_MgmtClass.cpp:57 CreateInstanceEnum() fail.
//   hr=0x80041010
#pragma once

#include <windows.h>

namespace DBG {

// A failed request, a failed status or a failed system call.
inline constexpr int LEVEL_FAILURE = 0x1001;
// A normal completion or an expected event.
inline constexpr int LEVEL_NOTICE = 0x102;

// Writes one line. `module` is the image that logs; the line does not carry it. A level other than the two
// above is written as its number and treated as a notice. `sourceFile` may be null. `format` is a wide printf
// format with the arguments that it names, %s and %ls both taking wide text (%hs narrow text). The text is
// cut at 32767 characters.
void DebugLogEx(HINSTANCE module, int level, const wchar_t* sourceFile, int line, const wchar_t* format,
                ...) noexcept;

}  // namespace DBG
