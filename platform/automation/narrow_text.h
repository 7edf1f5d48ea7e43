// Narrow text to wide. For the files of this folder only.
//
//   BSTR wide = nullptr;
//   HRESULT status = NarrowToBstr("text", &wide);
//
// A pure function, any thread.
#pragma once

#include <winerror.h>
#include <wtypes.h>

// Stores the wide form of UTF-8 text, null for null; the caller frees it. E_OUTOFMEMORY, or
// HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION) for text that is not well-formed: *wide is then null.
HRESULT NarrowToBstr(const char* narrow, BSTR* wide) noexcept;
