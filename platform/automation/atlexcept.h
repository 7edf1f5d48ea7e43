// CAtlException is what CComBSTR and CComVariant throw: the status of the call that failed.
//
//   try { CComBSTR name(text); ... }
//   catch (const CAtlException& failure) { return failure.m_hr; }
//
// A plain value.
#pragma once

#include <platform_api.h>
#include <winerror.h>

class MGMT_PLATFORM_API CAtlException {
 public:
    CAtlException() noexcept = default;
    explicit CAtlException(HRESULT status) noexcept : m_hr(status) {}
    operator HRESULT() const noexcept { return m_hr; }

    HRESULT m_hr = E_FAIL;
};

// Throws CAtlException with the status.
[[noreturn]] MGMT_PLATFORM_API void AtlThrow(HRESULT status);
