// How a connection comes about, what it is asked for, and what it says when it refuses.
#include <pwd.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/doubles/refusing_interfaces.h"
#include "tests/service/com/service_client.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;

constexpr const char* kSchema = R"(
class Policy { [key] string INSTANCE_ID; uint32 Days = 7; [not_null] string Owner; };
class Pair { [key] string A; [key] uint32 B; };
[abstract] class Abstract { [key] string ID; };
class Real : Abstract {};
[singleton] class Only { string P; };
)";

// An object that only looks like one of the service's.
class Foreign final : public doubles::RefusingClassObject {
 public:
    explicit Foreign(std::atomic<long>& live) noexcept : RefusingClassObject(live) {}
};

class ServicesTest : public ServiceClient {
 protected:
    ServicesTest() { EXPECT_CODE(S_OK, Import(kSchema)) << TakeReason(); }

    ObjectPointer MakePolicy(std::wstring_view id) const {
        const auto policy = Spawn(L"Policy");
        EXPECT_CODE(S_OK, PutValue(policy, L"INSTANCE_ID", Text(id)));
        EXPECT_CODE(S_OK, PutValue(policy, L"Owner", L"me"));
        return policy;
    }
};

TEST_F(ServicesTest, PutInstanceKeepsItsConditions) {
    const auto policy = MakePolicy(L"a");
    EXPECT_CODE(WBEM_E_NOT_FOUND, PutInstance(policy, WBEM_FLAG_UPDATE_ONLY));
    EXPECT_CODE(S_OK, PutInstance(policy, WBEM_FLAG_CREATE_ONLY));
    EXPECT_CODE(WBEM_E_ALREADY_EXISTS, PutInstance(policy, WBEM_FLAG_CREATE_ONLY));
    EXPECT_CODE(S_OK, PutInstance(policy, WBEM_FLAG_UPDATE_ONLY));
    EXPECT_CODE(S_OK, PutInstance(policy, WBEM_FLAG_CREATE_OR_UPDATE));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, PutInstance(policy, WBEM_FLAG_UPDATE_ONLY | WBEM_FLAG_CREATE_ONLY));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, PutInstance(policy, 0x1000));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, PutInstance(nullptr));
    std::atomic<long> live{0};
    const ObjectPointer foreign(new Foreign(live)), definition = Get(L"Policy");
    for (IWbemClassObject* wrong : {definition.p, foreign.p})
        EXPECT_CODE(WBEM_E_INVALID_OBJECT, PutInstance(wrong));
    for (IWbemClassObject* wrong : {policy.p, foreign.p})
        EXPECT_CODE(WBEM_E_INVALID_OBJECT, services->PutClass(wrong, 0, nullptr, nullptr));
    EXPECT_CODE(WBEM_E_INVALID_OBJECT, policy->CompareTo(0, foreign));
}

TEST_F(ServicesTest, AbstractClassesHaveNoInstances) {
    ObjectPointer instance;
    EXPECT_CODE(WBEM_E_INVALID_OPERATION, Get(L"Abstract")->SpawnInstance(0, &instance));
    // One that was spawned before the class became abstract.
    const auto real = Spawn(L"Real");
    ASSERT_CODE(S_OK, PutValue(real, L"ID", L"r"));
    ASSERT_CODE(S_OK, Import("[abstract] class Real : Abstract {};"));
    EXPECT_CODE(WBEM_E_INVALID_OPERATION, PutInstance(real));
}

TEST_F(ServicesTest, GetObjectGivesNothingOnAFault) {
    ASSERT_CODE(S_OK, PutInstance(MakePolicy(L"a")));
    const auto get = [&](std::wstring_view path) {
        auto* object = reinterpret_cast<IWbemClassObject*>(std::uintptr_t{16});
        const HRESULT result = services->GetObject(CComBSTR(static_cast<int>(path.size()), path.data()), 0,
                                                   nullptr, &object, nullptr);
        EXPECT_EQ(object, nullptr) << Narrow(path);
        return result;
    };
    EXPECT_CODE(WBEM_E_NOT_FOUND, get(L"Policy.INSTANCE_ID=\"b\""));
    EXPECT_CODE(WBEM_E_INVALID_CLASS, get(L"Nowhere.INSTANCE_ID=\"a\""));
    for (const wchar_t* malformed :
         {L"Policy.INSTANCE_ID=\"a", L"Policy.INSTANCE_ID=\"a\"b\"", L"Policy.Days=7", L"Policy=7",
          L"Policy=@", L".INSTANCE_ID=\"\"", L"Pair.A=\"x\""})
        EXPECT_CODE(WBEM_E_INVALID_OBJECT_PATH, get(malformed)) << Narrow(std::wstring_view(malformed));
    EXPECT_CODE(WBEM_E_INVALID_OBJECT_PATH, get(std::wstring_view(L"Policy\0", 7)));
    EXPECT_CODE(WBEM_E_INVALID_NAMESPACE, get(L"\\\\.\\root\\Nowhere:Policy"));
    EXPECT_CODE(WBEM_E_NOT_SUPPORTED, get(L"\\\\elsewhere\\root\\Test:Policy"));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, get(L"Policy.INSTANCE_ID=\"\xD800\""));
    ObjectPointer object;
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER,
                services->GetObject(CComBSTR(L"Policy"), 0x1000, nullptr, &object, nullptr));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER,
                services->GetObject(CComBSTR(L"Policy"), 0, nullptr, nullptr, nullptr));
}

// A caller's path has 255 units at most; what that cuts off is a malformed path.
TEST_F(ServicesTest, PathsOfAnyKindFindTheInstance) {
    ASSERT_CODE(S_OK, PutInstance(MakePolicy(L"a")));
    ASSERT_CODE(S_OK,
                Import("instance of Only { P = \"p\"; }; instance of Pair { A = \"x\"; B = 4294967295; };"));
    for (const wchar_t* path : {L"Policy.INSTANCE_ID=\"a\"", L"policy.instance_id='A'", L"Policy=\"a\"",
                                L"\\\\.\\root\\Test:Policy=\"a\"",
                                L"//localhost/ROOT/test:Policy.INSTANCE_ID=\"a\"", L"root\\Test:Policy=\"a\"",
                                L"Only=@", L"Pair.A=\"x\",B=4294967295", L"Pair.b=4294967295,a=\"X\""}) {
        EXPECT_CODE(S_OK, CodeOf(path)) << Narrow(std::wstring_view(path));
    }
    const std::wstring whole = L"Policy.INSTANCE_ID=\"" + std::wstring(300, L'k') + L"\"";
    EXPECT_CODE(WBEM_E_INVALID_OBJECT_PATH, CodeOf(whole.substr(0, 255)));
    EXPECT_CODE(WBEM_E_NOT_FOUND, CodeOf(whole));
}

TEST_F(ServicesTest, IdsMayHoldAnything) {
    const std::wstring odd = L"\"quoted\" 'both'", slash = L"back\\slash", zero(L"\n\0b", 3);
    for (const std::wstring& id : {odd,
                                   slash,
                                   zero,
                                   {L"\x1F600"},
                                   std::wstring(300, L'i'),
                                   std::wstring(60'000, L'i'),
                                   std::wstring()}) {
        ASSERT_CODE(S_OK, PutInstance(MakePolicy(id))) << TakeReason();
        std::wstring path = L"Policy.INSTANCE_ID=\"";
        for (const wchar_t unit : id) {
            if (unit == L'"' || unit == L'\\') path += L'\\';
            path += unit;
        }
        path += L'"';
        EXPECT_EQ(Show(Get(path), L"INSTANCE_ID"), ::Show(Text(id)));
        const _variant_t relative = GetValue(Get(path), L"__RELPATH");
        EXPECT_EQ(std::wstring(relative.bstrVal, SysStringLen(relative.bstrVal)), path);
        EXPECT_CODE(S_OK, DeleteInstance(path));
        EXPECT_CODE(WBEM_E_NOT_FOUND, CodeOf(path));
    }
    ASSERT_CODE(S_OK, PutInstance(MakePolicy(L"c:\\data\\x")));
    EXPECT_CODE(S_OK, CodeOf(L"Policy.INSTANCE_ID=\"c:\\data\\x\"")) << "single backslashes need no escape";
}

TEST_F(ServicesTest, DeleteInstanceDeletesInstancesOnly) {
    ASSERT_CODE(S_OK, PutInstance(MakePolicy(L"a")));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, DeleteInstance(L"Policy"));
    EXPECT_THAT(TakeReason(), HasSubstr("Policy"));
    EXPECT_CODE(WBEM_E_INVALID_CLASS, DeleteInstance(L"Nowhere=\"a\""));
    for (const wchar_t* path : {L"", L".INSTANCE_ID=\"\""})
        EXPECT_CODE(WBEM_E_INVALID_OBJECT_PATH, DeleteInstance(path));
    EXPECT_CODE(WBEM_E_CLASS_HAS_INSTANCES, DeleteClass(L"Policy"));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, DeleteClass(L"Policy=\"a\""));
    EXPECT_CODE(S_OK, DeleteInstance(L"POLICY=\"A\""));
    EXPECT_CODE(WBEM_E_NOT_FOUND, DeleteInstance(L"Policy=\"a\""));
    EXPECT_CODE(S_OK, DeleteClass(L"Policy"));
}

TEST_F(ServicesTest, NamespacesAreInstances) {
    const auto space = Spawn(L"__Namespace");
    ASSERT_CODE(S_OK, PutValue(space, L"Name", L"Below"));
    EXPECT_CODE(S_OK, PutInstance(space, WBEM_FLAG_CREATE_ONLY));
    EXPECT_CODE(WBEM_E_ALREADY_EXISTS, PutInstance(space, WBEM_FLAG_CREATE_ONLY));
    EXPECT_CODE(S_OK, CodeOf(L"__NAMESPACE.Name=\"below\""));
    EXPECT_CODE(WBEM_E_NOT_FOUND, CodeOf(L"__Namespace.Name=\"other\""));
    ASSERT_CODE(S_OK, PutValue(space, L"Name", L"not a name"));
    EXPECT_TRUE(FAILED(PutInstance(space)));
    EXPECT_TRUE(FAILED(DeleteInstance(L"__Namespace.Name=\"Below\"")));

    ServicesPointer below;
    EXPECT_CODE(S_OK, services->OpenNamespace(CComBSTR(L"Below"), 0, nullptr, &below, nullptr));
    ObjectPointer object;
    EXPECT_CODE(WBEM_E_INVALID_CLASS, below->GetObject(CComBSTR(L"Policy"), 0, nullptr, &object, nullptr));
    EXPECT_CODE(S_OK, below->GetObject(CComBSTR(L"root\\Test:Policy"), 0, nullptr, &object, nullptr));
    // The class is not in the namespace that the instance is put into.
    EXPECT_CODE(WBEM_E_INVALID_CLASS, below->PutInstance(MakePolicy(L"a"), 0, nullptr, nullptr));
}

TEST_F(ServicesTest, TheErrorObjectIsOfTheLastFault) {
    for (const wchar_t* name : {L"First", L"Second"})
        EXPECT_CODE(WBEM_E_INVALID_CLASS, CodeOf(name));
    EXPECT_THAT(TakeReason(), HasSubstr("Second"));
    EXPECT_EQ(TakeReason(), "");
    EXPECT_CODE(WBEM_E_INVALID_CLASS, CodeOf(L"Third"));
    CComPtr<IErrorInfo> info;
    ASSERT_CODE(S_OK, GetErrorInfo(0, &info));
    CComPtr<IErrorCode> code;
    ASSERT_CODE(S_OK, info.QueryInterface(&code));
    HRESULT reported = S_OK;
    code->GetCode(&reported);
    EXPECT_CODE(WBEM_E_INVALID_CLASS, reported);
}

class ConnectionTest : public ServiceClient {
 protected:
    HRESULT SetIdentity(const wchar_t* user_name, const wchar_t* domain, const wchar_t* password) const {
        const auto text = [](const wchar_t* of) {
            return reinterpret_cast<decltype(COAUTHIDENTITY::User)>(const_cast<wchar_t*>(of));
        };
        const auto length = [](const wchar_t* of) { return of ? static_cast<ULONG>(wcslen(of)) : 0; };
        COAUTHIDENTITY identity{};
        identity.User = text(user_name), identity.UserLength = length(user_name);
        identity.Domain = text(domain), identity.DomainLength = length(domain);
        identity.Password = text(password), identity.PasswordLength = length(password);
        identity.Flags = SEC_WINNT_AUTH_IDENTITY_UNICODE;
        return CoSetProxyBlanket(services, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr,
                                 RPC_C_AUTHN_LEVEL_CALL, RPC_C_IMP_LEVEL_IMPERSONATE, &identity, EOAC_NONE);
    }

    const std::string user = getpwuid(geteuid())->pw_name;
    const std::wstring account{user.begin(), user.end()};
    ServicesPointer connected;
};

TEST_F(ConnectionTest, ANamespaceThatIsNotThereIsNamed) {
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

TEST_F(ConnectionTest, AnotherIdentityIsRefusedAndNotReplaced) {
    ASSERT_CODE(S_OK, Import("class A { [key] string ID; };"));
    const auto held = Spawn(L"A");
    ASSERT_CODE(S_OK, PutValue(held, L"ID", L"a"));
    for (const wchar_t* none : {static_cast<const wchar_t*>(nullptr), L"a password without a user"})
        EXPECT_CODE(S_OK, SetIdentity(nullptr, nullptr, none));
    for (const std::wstring& other :
         {std::wstring(L"nobody-here"), {}, account + L"x", account + L"@elsewhere", {L"\xD800"}}) {
        EXPECT_CODE(WBEM_E_ACCESS_DENIED, SetIdentity(other.c_str(), nullptr, L"x")) << Narrow(other);
        ObjectPointer object;
        EXPECT_CODE(WBEM_E_ACCESS_DENIED, GetObject(L"A", object));
        EXPECT_FALSE(object.p);
        EXPECT_CODE(WBEM_E_ACCESS_DENIED, PutInstance(held));
        EXPECT_CODE(WBEM_E_ACCESS_DENIED, DeleteInstance(L"A=\"a\""));
        CComPtr<IEnumWbemClassObject> classes;
        EXPECT_CODE(WBEM_E_ACCESS_DENIED, services->CreateClassEnum(nullptr, 0, nullptr, &classes));
    }
    EXPECT_CODE(WBEM_E_ACCESS_DENIED, SetIdentity(account.c_str(), L"OTHERDOMAIN", L"x"));
    EXPECT_THAT(TakeReason(), HasSubstr("OTHERDOMAIN"));
    EXPECT_CODE(S_OK, SetIdentity(account.c_str(), nullptr, nullptr));
    EXPECT_CODE(S_OK, PutInstance(held)) << "an accepted identity takes the refusal back";
    EXPECT_CODE(S_OK, SetIdentity(account.c_str(), L".", nullptr));
    EXPECT_CODE(S_OK, SetIdentity(account.c_str(), L"LocalHost", L""));
    EXPECT_CODE(S_OK, SetIdentity((account + L"@localhost").c_str(), nullptr, L""));

    CComPtr<IWbemLocator> locator;
    ASSERT_CODE(S_OK, locator.CoCreateInstance(CLSID_WbemLocator));
    const auto connect_as = [&](const wchar_t* name) {
        return locator->ConnectServer(CComBSTR(kNamespace), CComBSTR(name), nullptr, nullptr, 0, nullptr,
                                      nullptr, &connected);
    };
    EXPECT_CODE(WBEM_E_ACCESS_DENIED, connect_as(L"nobody-here"));
    EXPECT_FALSE(connected.p);
    EXPECT_CODE(S_OK, connect_as(account.c_str()));
    EXPECT_CODE(S_OK, connected->PutInstance(held, 0, nullptr, nullptr)) << "of another connection";
}

}  // namespace
