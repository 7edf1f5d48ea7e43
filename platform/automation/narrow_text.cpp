#include "platform/automation/narrow_text.h"

#include <oleauto.h>
#include <winnls.h>

namespace {

int Convert(const char* narrow, BSTR wide, int size) noexcept {
    return MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, narrow, -1, wide, size);
}

}  // namespace

HRESULT NarrowToBstr(const char* narrow, BSTR* wide) noexcept {
    *wide = nullptr;
    if (narrow == nullptr) return S_OK;
    const int size = Convert(narrow, nullptr, 0);
    if (size == 0) return HRESULT_FROM_WIN32(GetLastError());

    const BSTR result = SysAllocStringLen(nullptr, static_cast<UINT>(size - 1));
    if (result == nullptr) return E_OUTOFMEMORY;
    if (Convert(narrow, result, size) == 0) {
        SysFreeString(result);
        return HRESULT_FROM_WIN32(GetLastError());
    }
    *wide = result;
    return S_OK;
}
