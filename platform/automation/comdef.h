// _com_error is what the string and variant wrappers throw: a status code and, if there is one, its reason.
//
//   try { _bstr_t name(text); ... }
//   catch (const _com_error& error) { return error.Error(); }
//
// An error belongs to the thread that handles it; copies share the reason object. Making and copying one
// allocates nothing.
#pragma once

#include <cstddef>

#include <comutil.h>
#include <oleauto.h>
#include <platform_api.h>

class MGMT_PLATFORM_API _com_error {
 public:
    // Takes over the reference to `reason`, which may be null; with `addReference` it takes one of its own.
    _com_error(HRESULT status, IErrorInfo* reason = nullptr, bool addReference = false) noexcept;
    _com_error(const _com_error& other) noexcept;
    _com_error& operator=(const _com_error& other) noexcept;
    virtual ~_com_error() noexcept;

    HRESULT Error() const noexcept { return m_status; }

    // The reason with a reference that the caller releases, or null.
    IErrorInfo* ErrorInfo() const noexcept;

    // The reason's sentence, null without one. Throws _com_error E_OUTOFMEMORY.
    _bstr_t Description() const;

    // A sentence for the status, "Unknown error 0x..." for one without; it lives as long as this object.
    const wchar_t* ErrorMessage() const noexcept;

 private:
    static constexpr std::size_t UNKNOWN_MESSAGE_LENGTH = 32;

    HRESULT m_status;
    IErrorInfo* m_reason;
    mutable wchar_t m_unknownMessage[UNKNOWN_MESSAGE_LENGTH] = {};
};
