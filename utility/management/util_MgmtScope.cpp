#include "utility/management/util_MgmtScope.h"

#include <atomic>
#include <cstdint>
#include <cwchar>
#include <string_view>
#include <utility>

#include <objbase.h>

#include "utility/management/util_SharedHandle.h"
#include "utility/management/util_SLock.h"

namespace {

constexpr wchar_t BUILT_IN_PATH[] = L"\\\\.\\root\\Vantrel\\Halvenor";

// Who the namespace is to be used as. Views the scope's strings, which must outlive it.
class Identity {
 public:
    Identity(const _bstr_t& userName, const _bstr_t& password) {
        m_Identity.Flags = SEC_WINNT_AUTH_IDENTITY_UNICODE;
        SetPassword(password);
        const wchar_t* const name = userName;
        if (name == nullptr || static_cast<const wchar_t*>(password) == nullptr) return;

        const std::size_t length = CopyText(name);
        const std::wstring_view text(m_Text, length);
        const std::size_t separator = text.find(L'\\');
        if (separator == std::wstring_view::npos || text.find(L'@') != std::wstring_view::npos) {
            SetUser(const_cast<wchar_t*>(name), userName.length());
            return;
        }
        m_Text[separator] = L'\0';
        SetDomain(m_Text, separator);
        SetUser(m_Text + separator + 1, length - separator - 1);
    }

    Identity(const Identity&) = delete;
    Identity& operator=(const Identity&) = delete;

    COAUTHIDENTITY* Get() noexcept { return &m_Identity; }

 private:
    std::size_t CopyText(const wchar_t* text) noexcept {
        const std::size_t length =
            std::wstring_view(text, wcsnlen(text, CAPACITY - 1)).copy(m_Text, CAPACITY);
        m_Text[length] = L'\0';
        return length;
    }

    void SetUser(wchar_t* text, std::size_t length) noexcept {
        m_Identity.User = text;
        m_Identity.UserLength = static_cast<ULONG>(length);
    }

    void SetDomain(wchar_t* text, std::size_t length) noexcept {
        m_Identity.Domain = text;
        m_Identity.DomainLength = static_cast<ULONG>(length);
    }

    void SetPassword(const _bstr_t& password) noexcept {
        m_Identity.Password = const_cast<wchar_t*>(static_cast<const wchar_t*>(password));
        m_Identity.PasswordLength = password.length();
    }

    static constexpr std::size_t CAPACITY = 260;

    wchar_t m_Text[CAPACITY];
    COAUTHIDENTITY m_Identity{};
};

HRESULT Secure(IWbemServices* services, const _bstr_t& userName, const _bstr_t& password) {
    Identity identity(userName, password);
    return CoSetProxyBlanket(services, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                             RPC_C_IMP_LEVEL_IMPERSONATE, identity.Get(), EOAC_NONE);
}

}  // namespace

struct MGMT_LOCAL CMgmtScope::SharedData {
    explicit SharedData(const wchar_t* path) : m_Path(path) {}

    std::atomic<std::int32_t> m_RefCount{1};
    _bstr_t m_UserName;
    _bstr_t m_Password;
    _bstr_t m_Path;
    std::atomic<bool> m_Connected{false};
    CComPtr<IWbemServices> m_Services;
    CSLock m_Lock;
};

// The order matters: the lock is made after the scope that it guards and destroyed before it.
CMgmtScope CMgmtScope::m_DefaultMgmtScope(BUILT_IN_PATH);
CSLock CMgmtScope::m_DefaultScopeLock;

CMgmtScope::CMgmtScope(const wchar_t* path)
    : m_SharedData(shared_handle::MakeRecord<SharedData>(L"" __FILE__, __LINE__, path)) {}

CMgmtScope::CMgmtScope(const CMgmtScope& other) noexcept : m_SharedData(other.m_SharedData) {
    _AddRef();
}

CMgmtScope& CMgmtScope::operator=(const CMgmtScope& other) noexcept {
    if (this != &other) shared_handle::Assign(m_SharedData, other.m_SharedData);
    return *this;
}

CMgmtScope::~CMgmtScope() {
    _Free();
}

_bstr_t CMgmtScope::GetPath() {
    return _Ensure(__LINE__).m_Path;
}

void CMgmtScope::SetPath(_bstr_t& path) {
    _Ensure(__LINE__).m_Path = path;
}

void CMgmtScope::SetUserName(const wchar_t* userName) {
    _Ensure(__LINE__).m_UserName = _bstr_t(userName);
}

void CMgmtScope::SetPassword(const wchar_t* password) {
    _Ensure(__LINE__).m_Password = _bstr_t(password);
}

void CMgmtScope::Connect() {
    SharedData& data = _Ensure(__LINE__);
    if (data.m_Connected.load(std::memory_order_acquire)) return;

    Guard<CSLock> guard(data.m_Lock);
    if (data.m_Connected.load(std::memory_order_relaxed)) return;
    _ConnectLocked(data);
}

void CMgmtScope::_ConnectLocked(SharedData& data) {
    data.m_Services.Release();

    CComPtr<IWbemLocator> locator;
    if (locator.CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_SERVER) != S_OK) return;

    // The credentials are not for the namespace's door but for the calls through it: see Secure.
    if (locator->ConnectServer(data.m_Path, nullptr, nullptr, nullptr, 0, nullptr, nullptr,
                               &data.m_Services) != WBEM_S_NO_ERROR)
        return;

    const HRESULT secured = Secure(data.m_Services, data.m_UserName, data.m_Password);
    data.m_Connected.store(SUCCEEDED(secured), std::memory_order_release);
}

bool CMgmtScope::IsConnected() {
    SharedData& data = _Ensure(__LINE__);
    Guard<CSLock> guard(data.m_Lock);
    return data.m_Connected.load(std::memory_order_relaxed);
}

IWbemServices* CMgmtScope::_GetWMISerives() {
    return _Ensure(__LINE__).m_Services;
}

CComPtr<IWbemServices> CMgmtScope::_TakeServices() {
    if (IsConnected()) return _GetWMISerives();
    Connect();
    // A connection that lacks its security settings may be replaced by another thread at any moment; the
    // lock keeps it alive until the reference is taken.
    Guard<CSLock> guard(_Ensure(__LINE__).m_Lock);
    return _GetWMISerives();
}

CMgmtScope CMgmtScope::GetDefaultMgmtScope() {
    Guard<CSLock> guard(m_DefaultScopeLock);
    return m_DefaultMgmtScope;
}

void CMgmtScope::SetDefaultMgmtScope(CMgmtScope& scope) {
    // Only the exchange happens under the lock: letting the old record go may call the service.
    CMgmtScope replaced(scope);
    Guard<CSLock> guard(m_DefaultScopeLock);
    std::swap(m_DefaultMgmtScope.m_SharedData, replaced.m_SharedData);
}

void CMgmtScope::_AddRef() noexcept {
    shared_handle::AddReference(m_SharedData);
}

void CMgmtScope::_Free() noexcept {
    shared_handle::Release(m_SharedData);
}

CMgmtScope::SharedData& CMgmtScope::_Ensure(int line) {
    return shared_handle::Ensure(m_SharedData, L"" __FILE__, line, BUILT_IN_PATH);
}
