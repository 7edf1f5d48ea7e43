// What a connection is asked for, and what it says when it refuses.
#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

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

class ServicesTest : public ServiceClient {
 protected:
    ServicesTest() { EXPECT_CODE(S_OK, Import(kSchema)) << TakeReason(); }

    ObjectPointer MakePolicy(std::wstring_view id) const {
        const auto policy = Spawn(L"Policy");
        EXPECT_CODE(S_OK, PutValue(policy, L"INSTANCE_ID", Text(id)));
        EXPECT_CODE(S_OK, PutValue(policy, L"Owner", L"me"));
        return policy;
    }

    HRESULT CodeOf(std::wstring_view path) const {
        ObjectPointer object;
        return GetObject(path, object);
    }
};

TEST_F(ServicesTest, PutInstanceKeepsItsConditions) {
    const auto policy = MakePolicy(L"a");
    EXPECT_CODE(WBEM_E_NOT_FOUND, PutInstance(policy, WBEM_FLAG_UPDATE_ONLY));
    EXPECT_THAT(TakeReason(), AllOf(HasSubstr("Policy"), HasSubstr("\"a\"")));
    EXPECT_CODE(S_OK, PutInstance(policy, WBEM_FLAG_CREATE_ONLY));
    EXPECT_CODE(WBEM_E_ALREADY_EXISTS, PutInstance(policy, WBEM_FLAG_CREATE_ONLY));
    EXPECT_THAT(TakeReason(), AllOf(HasSubstr("Policy"), HasSubstr("\"a\"")));
    EXPECT_CODE(S_OK, PutInstance(policy, WBEM_FLAG_UPDATE_ONLY));
    EXPECT_CODE(S_OK, PutInstance(policy, WBEM_FLAG_CREATE_OR_UPDATE));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, PutInstance(policy, WBEM_FLAG_UPDATE_ONLY | WBEM_FLAG_CREATE_ONLY));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, PutInstance(policy, 0x1000));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, PutInstance(nullptr));
    EXPECT_CODE(WBEM_E_INVALID_OBJECT, PutInstance(Get(L"Policy")));
    EXPECT_CODE(WBEM_E_INVALID_OBJECT, services->PutClass(policy, 0, nullptr, nullptr));
}

TEST_F(ServicesTest, WhatMustHaveAValueIsNamed) {
    const auto policy = Spawn(L"Policy");
    EXPECT_CODE(WBEM_E_ILLEGAL_NULL, PutInstance(policy));
    EXPECT_THAT(TakeReason(), HasSubstr("Policy.INSTANCE_ID"));
    ASSERT_CODE(S_OK, PutValue(policy, L"INSTANCE_ID", L"a"));
    EXPECT_CODE(WBEM_E_ILLEGAL_NULL, PutInstance(policy));
    EXPECT_THAT(TakeReason(), AllOf(HasSubstr("Owner"), HasSubstr("Policy")));
    ASSERT_CODE(S_OK, PutValue(policy, L"Owner", L""));
    EXPECT_CODE(S_OK, PutInstance(policy)) << "an empty text is a value";
    ASSERT_CODE(S_OK, PutValue(policy, L"INSTANCE_ID", L""));
    EXPECT_CODE(S_OK, PutInstance(policy));
    EXPECT_CODE(S_OK, CodeOf(L"Policy.INSTANCE_ID=\"\""));

    const auto pair = Spawn(L"Pair");
    ASSERT_CODE(S_OK, PutValue(pair, L"A", L"a"));
    EXPECT_CODE(WBEM_E_ILLEGAL_NULL, PutInstance(pair));
    EXPECT_THAT(TakeReason(), HasSubstr("Pair.B"));
}

TEST_F(ServicesTest, AbstractClassesHaveNoInstances) {
    ObjectPointer instance;
    EXPECT_CODE(WBEM_E_INVALID_OPERATION, Get(L"Abstract")->SpawnInstance(0, &instance));
    EXPECT_FALSE(instance.p);
    EXPECT_THAT(TakeReason(), AllOf(HasSubstr("Abstract"), HasSubstr("abstract")));
    EXPECT_TRUE(Spawn(L"Real").p);
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
    EXPECT_THAT(TakeReason(), AllOf(HasSubstr("Policy"), HasSubstr("\"b\"")));
    EXPECT_CODE(WBEM_E_INVALID_CLASS, get(L"Nowhere.INSTANCE_ID=\"a\""));
    EXPECT_THAT(TakeReason(), AllOf(HasSubstr("Nowhere"), HasSubstr("root\\Test")));
    EXPECT_CODE(WBEM_E_INVALID_CLASS, get(L"Nowhere"));
    EXPECT_CODE(WBEM_E_INVALID_OBJECT_PATH, get(L"Policy.INSTANCE_ID=\"a"));
    EXPECT_CODE(WBEM_E_INVALID_OBJECT_PATH, get(L"Policy.INSTANCE_ID=\"a\"b\""));
    EXPECT_CODE(WBEM_E_INVALID_OBJECT_PATH, get(L"Policy.Days=7"));
    EXPECT_CODE(WBEM_E_INVALID_OBJECT_PATH, get(L"Policy=@"));
    EXPECT_CODE(WBEM_E_INVALID_OBJECT_PATH, get(L".INSTANCE_ID=\"\""));
    EXPECT_CODE(WBEM_E_INVALID_NAMESPACE, get(L"\\\\.\\root\\Nowhere:Policy"));
    EXPECT_CODE(WBEM_E_NOT_SUPPORTED, get(L"\\\\elsewhere\\root\\Test:Policy"));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, get(L"Policy.INSTANCE_ID=\"\xD800\""));
    EXPECT_CODE(WBEM_E_INVALID_OBJECT_PATH, get(std::wstring_view(L"Policy\0", 7)));
    ObjectPointer object;
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER,
                services->GetObject(CComBSTR(L"Policy"), 0x1000, nullptr, &object, nullptr));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER,
                services->GetObject(CComBSTR(L"Policy"), 0, nullptr, nullptr, nullptr));
}

// A caller's path has 255 units at most; what that cuts off is a malformed path.
TEST_F(ServicesTest, PathsOfAnyKindFindTheInstance) {
    ASSERT_CODE(S_OK, PutInstance(MakePolicy(L"a")));
    const auto only = Spawn(L"Only");
    ASSERT_CODE(S_OK, PutValue(only, L"P", L"p"));
    ASSERT_CODE(S_OK, PutInstance(only));
    const auto pair = Spawn(L"Pair");
    ASSERT_CODE(S_OK, PutValue(pair, L"A", L"x"));
    ASSERT_CODE(S_OK, PutValue(pair, L"B", -1L));
    ASSERT_CODE(S_OK, PutInstance(pair));
    for (const wchar_t* path : {L"Policy.INSTANCE_ID=\"a\"", L"policy.instance_id='A'", L"Policy=\"a\"",
                                L"\\\\.\\root\\Test:Policy=\"a\"",
                                L"//localhost/ROOT/test:Policy.INSTANCE_ID=\"a\"", L"root\\Test:Policy=\"a\"",
                                L"Only=@", L"Pair.A=\"x\",B=4294967295", L"Pair.b=4294967295,a=\"X\""}) {
        EXPECT_CODE(S_OK, CodeOf(path)) << Narrow(std::wstring_view(path));
    }
    EXPECT_CODE(WBEM_E_INVALID_OBJECT_PATH, CodeOf(L"Pair.A=\"x\""));
    const std::wstring whole = L"Policy.INSTANCE_ID=\"" + std::wstring(300, L'k') + L"\"";
    EXPECT_CODE(WBEM_E_INVALID_OBJECT_PATH, CodeOf(whole.substr(0, 255)));
    EXPECT_CODE(WBEM_E_NOT_FOUND, CodeOf(whole));
}

TEST_F(ServicesTest, IdsMayHoldAnything) {
    const std::vector<std::wstring> ids = {L"\"quoted\" 'both'",
                                           L"back\\slash",
                                           L"line\nfeed",
                                           std::wstring(L"a\0b", 3),
                                           L"\x1F600",
                                           std::wstring(300, L'i'),
                                           std::wstring(60'000, L'i'),
                                           std::wstring(20'000, L'\xE4')};
    for (const std::wstring& id : ids) {
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
    const auto policy = Spawn(L"Policy");
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, PutValue(policy, L"INSTANCE_ID", L"\xDC00"));
    ASSERT_CODE(S_OK, PutInstance(MakePolicy(L"c:\\data\\x")));
    EXPECT_CODE(S_OK, CodeOf(L"Policy.INSTANCE_ID=\"c:\\data\\x\"")) << "single backslashes need no escape";
}

TEST_F(ServicesTest, DeleteInstanceDeletesInstancesOnly) {
    ASSERT_CODE(S_OK, PutInstance(MakePolicy(L"a")));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER, DeleteInstance(L"Policy"));
    EXPECT_THAT(TakeReason(), HasSubstr("Policy"));
    EXPECT_CODE(WBEM_E_NOT_FOUND, DeleteInstance(L"Policy=\"b\""));
    EXPECT_CODE(WBEM_E_INVALID_CLASS, DeleteInstance(L"Nowhere=\"a\""));
    EXPECT_CODE(WBEM_E_INVALID_OBJECT_PATH, DeleteInstance(L""));
    EXPECT_CODE(WBEM_E_INVALID_OBJECT_PATH, DeleteInstance(L".INSTANCE_ID=\"\""));
    EXPECT_CODE(WBEM_E_CLASS_HAS_INSTANCES, services->DeleteClass(CComBSTR(L"Policy"), 0, nullptr, nullptr));
    EXPECT_CODE(WBEM_E_INVALID_PARAMETER,
                services->DeleteClass(CComBSTR(L"Policy=\"a\""), 0, nullptr, nullptr));
    EXPECT_CODE(S_OK, DeleteInstance(L"POLICY=\"A\""));
    EXPECT_CODE(WBEM_E_NOT_FOUND, DeleteInstance(L"Policy=\"a\""));
    EXPECT_CODE(S_OK, services->DeleteClass(CComBSTR(L"Policy"), 0, nullptr, nullptr));
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
    EXPECT_CODE(WBEM_E_INVALID_CLASS, CodeOf(L"First"));
    EXPECT_CODE(WBEM_E_INVALID_CLASS, CodeOf(L"Second"));
    CComPtr<IErrorInfo> info;
    ASSERT_CODE(S_OK, GetErrorInfo(0, &info));
    CComBSTR text;
    info->GetDescription(&text);
    EXPECT_THAT(Narrow(text.m_str), HasSubstr("Second"));
    CComPtr<IErrorCode> code;
    ASSERT_CODE(S_OK, info.QueryInterface(&code));
    HRESULT reported = S_OK;
    code->GetCode(&reported);
    EXPECT_CODE(WBEM_E_INVALID_CLASS, reported);
    EXPECT_EQ(TakeReason(), "");
}

// An object that only looks like one of the service's.
class Foreign final : public doubles::RefusingClassObject {
 public:
    explicit Foreign(std::atomic<long>& live) noexcept : RefusingClassObject(live) {}
};

TEST_F(ServicesTest, AnObjectOfSomebodyElseIsRefused) {
    std::atomic<long> live{0};
    ObjectPointer foreign;
    foreign = new Foreign(live);
    EXPECT_CODE(WBEM_E_INVALID_OBJECT, PutInstance(foreign));
    EXPECT_CODE(WBEM_E_INVALID_OBJECT, services->PutClass(foreign, 0, nullptr, nullptr));
    EXPECT_CODE(WBEM_E_INVALID_OBJECT, Spawn(L"Policy")->CompareTo(0, foreign));
}

}  // namespace
