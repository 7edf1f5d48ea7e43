#include <atlbase.h>

#include <cwchar>
#include <limits>

#include "platform/automation/narrow_text.h"

void AtlThrow(HRESULT status) {
    throw CAtlException(status);
}

BSTR CComBSTR::FromNarrow(LPCSTR text) {
    BSTR wide = nullptr;
    const HRESULT status = NarrowToBstr(text, &wide);
    if (FAILED(status)) AtlThrow(status);
    return wide;
}

HRESULT CComBSTR::Append(LPCOLESTR text, std::size_t length) noexcept {
    if (text == nullptr) return length == 0 ? S_OK : E_INVALIDARG;
    const std::size_t oldLength = Length();
    if (length > std::numeric_limits<UINT>::max() - oldLength) return E_OUTOFMEMORY;
    const BSTR joined = ::SysAllocStringLen(nullptr, static_cast<UINT>(oldLength + length));
    if (joined == nullptr) return E_OUTOFMEMORY;
    if (oldLength != 0) std::wmemcpy(joined, m_str, oldLength);
    std::wmemcpy(joined + oldLength, text, length);
    Attach(joined);
    return S_OK;
}
