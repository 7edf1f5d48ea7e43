// Narrow text to wide, as MultiByteToWideChar reads it. For the files of this folder only.
//
//   BSTR wide = nullptr;
//   HRESULT status = NarrowToBstr("text", &wide);
//
// Any thread.
#pragma once

#include <winerror.h>
#include <wtypes.h>

// Stores the wide form of text in the local encoding (CP_ACP), null for null; the caller frees it. On a
// failure *wide is null and the result stands for the last error:
// HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION) for text that is not valid, E_OUTOFMEMORY.
HRESULT NarrowToBstr(const char* narrow, BSTR* wide) noexcept;
