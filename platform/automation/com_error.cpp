#include <comdef.h>

#include <cwchar>
#include <utility>

#include <errorinfo.h>

namespace {

struct Message {
    HRESULT status;
    const wchar_t* sentence;
};

constexpr Message MESSAGES[] = {
    {S_OK, L"The operation completed successfully."},
    {S_FALSE, L"The operation completed with nothing to do."},
    {E_NOTIMPL, L"Not implemented."},
    {E_NOINTERFACE, L"No such interface is supported."},
    {E_POINTER, L"A pointer is not valid."},
    {E_ABORT, L"The operation was aborted."},
    {E_FAIL, L"Unspecified error."},
    {E_UNEXPECTED, L"The call was not expected in this state."},
    {E_ACCESSDENIED, L"Access is denied."},
    {E_HANDLE, L"A handle is not valid."},
    {E_OUTOFMEMORY, L"There is not enough memory to complete the operation."},
    {E_INVALIDARG, L"An argument is not valid."},
    {DISP_E_MEMBERNOTFOUND, L"The member was not found."},
    {DISP_E_TYPEMISMATCH, L"The value has another type."},
    {DISP_E_BADVARTYPE, L"The variant type is not valid."},
    {DISP_E_OVERFLOW, L"The value is out of the type's range."},
    {DISP_E_BADINDEX, L"An index is out of bounds."},
    {DISP_E_ARRAYISLOCKED, L"The array is locked."},
    {CO_E_NOTINITIALIZED, L"The thread has not initialised COM."},
    {RPC_E_CHANGED_MODE, L"The thread's concurrency model cannot be changed."},
    {REGDB_E_CLASSNOTREG, L"The class is not registered."},
    {CLASS_E_CLASSNOTAVAILABLE, L"The module does not supply the class."},
    {CLASS_E_NOAGGREGATION, L"The class cannot be a part of another object."},
};

const wchar_t* FindMessage(HRESULT status) noexcept {
    for (const Message& message : MESSAGES) {
        if (message.status == status) return message.sentence;
    }
    return nullptr;
}

}  // namespace

_com_error::_com_error(HRESULT status, IErrorInfo* reason, bool addReference) noexcept
    : m_status(status), m_reason(reason) {
    if (m_reason != nullptr && addReference) m_reason->AddRef();
}

_com_error::_com_error(const _com_error& other) noexcept : _com_error(other.m_status, other.m_reason, true) {}

_com_error& _com_error::operator=(const _com_error& other) noexcept {
    _com_error copy(other);
    m_status = copy.m_status;
    std::swap(m_reason, copy.m_reason);
    return *this;
}

_com_error::~_com_error() noexcept {
    if (m_reason != nullptr) m_reason->Release();
}

IErrorInfo* _com_error::ErrorInfo() const noexcept {
    if (m_reason != nullptr) m_reason->AddRef();
    return m_reason;
}

_bstr_t _com_error::Description() const {
    BSTR text = nullptr;
    if (m_reason != nullptr && FAILED(m_reason->GetDescription(&text))) return _bstr_t();
    return _bstr_t(text, false);
}

const wchar_t* _com_error::ErrorMessage() const noexcept {
    if (const wchar_t* const sentence = FindMessage(m_status)) return sentence;
    std::swprintf(m_unknownMessage, UNKNOWN_MESSAGE_LENGTH, L"Unknown error 0x%08X",
                  static_cast<unsigned int>(m_status));
    return m_unknownMessage;
}

void _com_issue_error(HRESULT status) {
    _com_raise_error(status);
}

void _com_raise_error(HRESULT status, IErrorInfo* reason) {
    throw _com_error(status, reason);
}
