// How a connection comes about, or does not.
#include <pwd.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/service/com/service_client.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;

class ConnectionTest : public ServiceClient {
 protected:
    static HRESULT SetIdentity(IUnknown* proxy, const wchar_t* user, const wchar_t* domain,
                               const wchar_t* password) {
        std::wstring user_text(user ? user : L""), domain_text(domain ? domain : L""),
            password_text(password ? password : L"");
        COAUTHIDENTITY identity{};
        identity.User = user ? reinterpret_cast<decltype(identity.User)>(user_text.data()) : nullptr;
        identity.UserLength = static_cast<ULONG>(user_text.size());
        identity.Domain = domain ? reinterpret_cast<decltype(identity.Domain)>(domain_text.data()) : nullptr;
        identity.DomainLength = static_cast<ULONG>(domain_text.size());
        identity.Password =
            password ? reinterpret_cast<decltype(identity.Password)>(password_text.data()) : nullptr;
        identity.PasswordLength = static_cast<ULONG>(password_text.size());
        identity.Flags = SEC_WINNT_AUTH_IDENTITY_UNICODE;
        return CoSetProxyBlanket(proxy, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                                 RPC_C_IMP_LEVEL_IMPERSONATE, &identity, EOAC_NONE);
    }

    static std::wstring Account() {
        const std::string name = getpwuid(geteuid())->pw_name;
        return {name.begin(), name.end()};
    }
};

TEST_F(ConnectionTest, ANamespaceThatIsNotThereIsNamed) {
    ServicesPointer connected;
    for (const wchar_t* path : {L"\\\\.\\root\\Nowhere", L"root\\Nowhere", L"//./root/Nowhere"}) {
        EXPECT_CODE(WBEM_E_INVALID_NAMESPACE, Connect(path, connected));
        EXPECT_FALSE(connected.p);
        EXPECT_THAT(TakeReason(), AllOf(HasSubstr("root\\Nowhere"), HasSubstr(store)));
    }
    for (const wchar_t* path : {L"", L"\\\\.\\", L"root\\", L"root\\a b", L"\\\\.\\root\\A:Class"})
        EXPECT_CODE(WBEM_E_INVALID_NAMESPACE, Connect(path, connected)) << Narrow(std::wstring_view(path));
    EXPECT_CODE(WBEM_E_NOT_SUPPORTED, Connect(L"\\\\elsewhere\\root", connected));
    EXPECT_CODE(S_OK, Connect(L"\\\\.\\root", connected)) << "every store has its root";
    EXPECT_CODE(S_OK, Connect(L"\\\\LOCALHOST\\ROOT", connected));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, Connect(L"root\\\xD800", connected));
    CComPtr<IWbemLocator> locator;
    ASSERT_CODE(S_OK, locator.CoCreateInstance(CLSID_WbemLocator));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, locator->ConnectServer(CComBSTR(L"root"), nullptr, nullptr, nullptr,
                                                                 0, nullptr, nullptr, nullptr));
    EXPECT_CODE(WBEM_E_INVALID_NAMESPACE,
                locator->ConnectServer(nullptr, nullptr, nullptr, nullptr, 0, nullptr, nullptr, &connected));
}

TEST_F(ConnectionTest, AnUnreadableStoreIsAStatus) {
    ServicesPointer connected;
    std::ofstream(store) << "a file where the directory should be";
    EXPECT_CODE(WBEM_E_NOT_AVAILABLE, Connect(L"root", connected));
    EXPECT_THAT(TakeReason(), HasSubstr(store));
    std::filesystem::remove(store);

    std::filesystem::create_directory(store);
    std::ofstream(store + "/data.mdb") << std::string(100'000, 'x');
    EXPECT_CODE(WBEM_E_CRITICAL_ERROR, Connect(L"root", connected));
    EXPECT_THAT(TakeReason(), HasSubstr(store + "/data.mdb"));
    EXPECT_FALSE(connected.p);
    EXPECT_CODE(WBEM_E_CRITICAL_ERROR, Import("class A { [key] string ID; };"));
    std::filesystem::remove_all(store);
    EXPECT_CODE(S_OK, Connect(L"root", connected)) << "the next attempt starts anew";
}

TEST_F(ConnectionTest, TheOwnAccountIsAccepted) {
    ASSERT_CODE(S_OK, Import("class A { [key] string ID; };"));
    EXPECT_CODE(S_OK, SetIdentity(services, nullptr, nullptr, nullptr));
    EXPECT_CODE(S_OK, SetIdentity(services, nullptr, nullptr, L"a password without a user"));
    EXPECT_CODE(S_OK, SetIdentity(services, Account().c_str(), nullptr, L"any"));
    EXPECT_CODE(S_OK, SetIdentity(services, Account().c_str(), L".", nullptr));
    EXPECT_CODE(S_OK, SetIdentity(services, Account().c_str(), L"LocalHost", L""));
    EXPECT_CODE(S_OK, SetIdentity(services, (Account() + L"@localhost").c_str(), nullptr, L""));
    EXPECT_TRUE(Get(L"A").p);
}

TEST_F(ConnectionTest, AnotherIdentityIsRefusedAndNotReplaced) {
    ASSERT_CODE(S_OK, Import("class A { [key] string ID; };"));
    const auto held = Spawn(L"A");
    ASSERT_CODE(S_OK, PutValue(held, L"ID", L"a"));
    for (const std::wstring& user : {std::wstring(L"nobody-here"), std::wstring(), Account() + L"x",
                                     Account() + L"@elsewhere", std::wstring(L"\xD800")}) {
        EXPECT_CODE(WBEM_E_ACCESS_DENIED, SetIdentity(services, user.c_str(), nullptr, L"x")) << Narrow(user);
        ObjectPointer object;
        EXPECT_CODE(WBEM_E_ACCESS_DENIED, GetObject(L"A", object));
        EXPECT_FALSE(object.p);
        EXPECT_CODE(WBEM_E_ACCESS_DENIED, PutInstance(held));
        EXPECT_CODE(WBEM_E_ACCESS_DENIED, DeleteInstance(L"A=\"a\""));
        CComPtr<IEnumWbemClassObject> classes;
        EXPECT_CODE(WBEM_E_ACCESS_DENIED, services->CreateClassEnum(nullptr, 0, nullptr, &classes));
    }
    EXPECT_CODE(WBEM_E_ACCESS_DENIED, SetIdentity(services, Account().c_str(), L"OTHERDOMAIN", L"x"));
    EXPECT_THAT(TakeReason(), HasSubstr("OTHERDOMAIN"));
    EXPECT_CODE(S_OK, SetIdentity(services, Account().c_str(), nullptr, nullptr));
    EXPECT_CODE(S_OK, PutInstance(held)) << "an accepted identity takes the refusal back";

    CComPtr<IWbemLocator> locator;
    ASSERT_CODE(S_OK, locator.CoCreateInstance(CLSID_WbemLocator));
    ServicesPointer connected;
    EXPECT_CODE(WBEM_E_ACCESS_DENIED,
                locator->ConnectServer(CComBSTR(kNamespace), CComBSTR(L"nobody-here"), nullptr, nullptr, 0,
                                       nullptr, nullptr, &connected));
    EXPECT_FALSE(connected.p);
    EXPECT_CODE(S_OK, locator->ConnectServer(CComBSTR(kNamespace), CComBSTR(Account().c_str()), nullptr,
                                             nullptr, 0, nullptr, nullptr, &connected));
}

TEST_F(ConnectionTest, ConnectionsShareTheStore) {
    ASSERT_CODE(S_OK, Import("class A { [key] string ID; string V; };"));
    ServicesPointer other;
    ASSERT_CODE(S_OK, Connect(L"//./ROOT/test", other));
    const auto held = Spawn(L"A");
    ASSERT_CODE(S_OK, PutValue(held, L"ID", L"a"));
    // An object of one connection may be put through another.
    EXPECT_CODE(S_OK, other->PutInstance(held, WBEM_FLAG_CREATE_ONLY, nullptr, nullptr));
    EXPECT_EQ(Show(Get(L"A=\"a\""), L"ID"), "BSTR a");
}

}  // namespace
