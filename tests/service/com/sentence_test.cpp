// What each status is told with: one sentence that names the namespace, class, key or property at fault, what
// was found, what was allowed, and a way out. What takes a damaged store, a full disk or events that are lost
// is with those tests.
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/service/com/service_client.h"

namespace {

using testing::HasSubstr;

struct Case {
    HRESULT status;
    std::function<HRESULT()> attempt;
    std::vector<std::string> fragments;
};

class SentenceTest : public ServiceClient {
 protected:
    SentenceTest() {
        EXPECT_CODE(S_OK, Import(R"(
            class Policy { [key] string INSTANCE_ID; uint8 Days; [not_null] string Owner = "me"; Part P; };
            class Part { string Name; };
            class Pair { [key] string A; [key] uint32 B; };
            [abstract] class Shape { [key] string ID; };
            class Circle : Shape {};
            instance of Policy { INSTANCE_ID = "a"; Days = 7; };)"))
            << TakeReason();
    }

    static void Check(const std::vector<Case>& cases) {
        for (const auto& [status, attempt, fragments] : cases) {
            TakeReason();
            const HRESULT result = attempt();
            const std::string reason = TakeReason();
            EXPECT_CODE(status, result) << reason;
            for (const std::string& fragment : fragments)
                EXPECT_THAT(reason, HasSubstr(fragment)) << Code(status);
        }
    }

    HRESULT Put(const wchar_t* name, _variant_t value, CIMTYPE type = 0) const {
        return PutValue(Get(L"Policy=\"a\""), name, std::move(value), type);
    }
    HRESULT Find(const wchar_t* path) const {
        ObjectPointer object;
        return GetObject(path, object);
    }
    HRESULT Query(const wchar_t* text, const wchar_t* language = L"WQL") const {
        CComPtr<IEnumWbemClassObject> found;
        return services->ExecQuery(CComBSTR(language), CComBSTR(text), 0, nullptr, &found);
    }
    HRESULT Store(const wchar_t* id, long flags, const wchar_t* owner = L"me") const {
        const auto policy = Spawn(L"Policy");
        PutValue(policy, L"INSTANCE_ID", id);
        PutValue(policy, L"Owner", owner ? Text(owner) : Null());
        return PutInstance(policy, flags);
    }
    HRESULT DeleteClass(const wchar_t* name) const {
        return services->DeleteClass(CComBSTR(name), 0, nullptr, nullptr);
    }
    static HRESULT ConnectTo(const wchar_t* path) {
        ServicesPointer connected;
        return Connect(path, connected);
    }

    static constexpr const char* kSpace = "namespace root\\Test";
    static constexpr const char* kInstance = "Policy.INSTANCE_ID=\"a\"";
};

TEST_F(SentenceTest, OfRequestsAndPaths) {
    const std::string other = "Policy.INSTANCE_ID=\"b\"";
    const std::string list = "mgmtctl list Policy";
    const std::string import = "mgmtctl import FILE";
    Check({
        {WBEM_E_NOT_FOUND, [&] { return Find(L"Policy.INSTANCE_ID=\"b\""); }, {other, kSpace, list}},
        {WBEM_E_NOT_FOUND,
         [&] { return DeleteInstance(L"Policy.INSTANCE_ID=\"b\""); },
         {other, kSpace, list}},
        {WBEM_E_NOT_FOUND, [&] { return Store(L"b", WBEM_FLAG_UPDATE_ONLY); }, {other, "create it", kSpace}},
        {WBEM_E_ALREADY_EXISTS,
         [&] { return Store(L"a", WBEM_FLAG_CREATE_ONLY); },
         {kInstance, "update it, or choose another key", kSpace}},
        {WBEM_E_INVALID_CLASS, [&] { return Find(L"Polisy"); }, {"class Polisy", kSpace, import}},
        {WBEM_E_INVALID_CLASS, [&] { return DeleteClass(L"Polisy"); }, {"class Polisy", kSpace, import}},
        {WBEM_E_INVALID_NAMESPACE, [&] { return ConnectTo(L"root\\Gone"); }, {"root\\Gone", store, import}},
        {WBEM_E_INVALID_NAMESPACE, [&] { return ConnectTo(L"root\\x y"); }, {"x y", "letters"}},
        {WBEM_E_NOT_SUPPORTED, [&] { return ConnectTo(L"\\\\far\\root\\Test"); }, {"far", "\"\\\\.\\\""}},
        {WBEM_E_INVALID_OBJECT_PATH,
         [&] { return Find(L"Policy.INSTANCE_ID=\"a"); },
         {"character 22", "closing \" was expected, the end of the path was found"}},
        {WBEM_E_INVALID_OBJECT_PATH,
         [&] { return Find(L"Policy.Days=7"); },
         {"class Policy", "no key property Days", "its key is INSTANCE_ID", kSpace}},
        {WBEM_E_INVALID_OBJECT_PATH,
         [&] { return Find(L"Pair.A=\"x\""); },
         {"Pair has 2 key properties", "gives 1", "A, B", kSpace}},
        {WBEM_E_INVALID_OBJECT_PATH,
         [&] { return Find(L"Pair.A=\"x\",B=\"y\""); },
         {"Pair.B takes a number", "the text \"y\" was found", kSpace}},
        {WBEM_E_INVALID_PARAMETER,
         [&] { return DeleteInstance(L"Policy"); },
         {"Policy", "has a key", kSpace}},
        {WBEM_E_INVALID_PARAMETER, [&] { return Store(L"a", 0x4000); }, {"0x4000", "0x3"}},
        {WBEM_E_INVALID_OBJECT,
         [&] { return PutInstance(Get(L"Policy")); },
         {"class Policy was given", "an instance was expected", "SpawnInstance"}},
        {WBEM_E_INVALID_QUERY,
         [&] { return Query(L"SELECT * FROM Policy WHERE Days = 'x'"); },
         {"character 35", "Days is of type uint8", "with a number", "the text \"x\" was found", kSpace}},
        {WBEM_E_UNPARSABLE_QUERY,
         [&] { return Query(L"SELECT * FORM Policy"); },
         {"character 10", "\"FROM\" was expected, \"FORM\" was found"}},
        {WBEM_E_INVALID_QUERY_TYPE, [&] { return Query(L"SELECT", L"CQL"); }, {"\"CQL\"", "must be \"WQL\""}},
        {WBEM_E_NOT_SUPPORTED,
         [&] { return services->GetObjectAsync(CComBSTR(L"Policy"), 0, nullptr, nullptr); },
         {"asynchronous", "the one that waits"}},
        {WBEM_E_CLASS_HAS_INSTANCES,
         [&] { return DeleteClass(L"Policy"); },
         {"1 instance of class Policy", "by force", kSpace}},
        {WBEM_E_CLASS_HAS_CHILDREN, [&] { return DeleteClass(L"Shape"); }, {"Shape", "Circle", "by force"}},
        {WBEM_E_ACCESS_DENIED,
         [&] {
             ServicesPointer refused;
             CComPtr<IWbemLocator> locator;
             locator.CoCreateInstance(CLSID_WbemLocator);
             return locator->ConnectServer(CComBSTR(L"root\\Test"), CComBSTR(L"nobody"), CComBSTR(L"secret"),
                                           nullptr, 0, nullptr, nullptr, &refused);
         },
         {"nobody"}},
    });
}

TEST_F(SentenceTest, OfValues) {
    const auto owner = [&] { return Store(L"b", 0, nullptr); };
    Check({
        {WBEM_E_NOT_FOUND,
         [&] { return Put(L"Dayz", 1L); },
         {"class Policy", "Dayz", "INSTANCE_ID, Days, Owner, P", kInstance, kSpace}},
        {WBEM_E_TYPE_MISMATCH,
         [&] { return Put(L"Days", 256L); },
         {"Policy.Days", "the number 256", "uint8, which takes 0 to 255", kInstance, kSpace}},
        {WBEM_E_TYPE_MISMATCH, [&] { return Put(L"Days", L"many"); }, {"the text \"many\"", kInstance}},
        {WBEM_E_TYPE_MISMATCH,
         [&] { return Put(L"P", true); },
         {"Policy.P", "the boolean TRUE", "object:Part"}},
        {WBEM_E_INVALID_PARAMETER,
         [&] { return Put(L"Days", 5L, CIM_STRING); },
         {"Days", "must be 0", kSpace}},
        {WBEM_E_INVALID_PARAMETER,
         [&] { return Put(L"Owner", Text(L"\xD800")); },
         {"Policy.Owner", "no UTF-8 form", "surrogate", kInstance, kSpace}},
        {WBEM_E_ILLEGAL_NULL,
         [&] { return PutInstance(Spawn(L"Policy")); },
         {"key property Policy.INSTANCE_ID", "has no value", kSpace}},
        {WBEM_E_ILLEGAL_NULL, owner, {"Policy.INSTANCE_ID=\"b\"", "Owner", "not_null", "set one", kSpace}},
        {WBEM_E_INVALID_OPERATION,
         [&] {
             ObjectPointer instance;
             return Get(L"Shape")->SpawnInstance(0, &instance);
         },
         {"Shape is abstract", "spawn one of a class derived from it"}},
        {WBEM_E_UNEXPECTED,
         [&] {
             const auto policy = Get(L"Policy");
             policy->BeginEnumeration(0);
             return policy->BeginEnumeration(0);
         },
         {"has begun already", "end it first"}},
        {WBEM_E_UNEXPECTED,
         [&] { return Get(L"Policy")->Next(0, nullptr, nullptr, nullptr, nullptr); },
         {"call BeginEnumeration first"}},
    });
}

TEST_F(SentenceTest, OfSchemas) {
    const auto import = [&](const char* text) { return [this, text] { return Import(text); }; };
    const std::string place = "buffer:1:";
    const std::string force = "mgmtctl import --force";
    Check({
        {WBEM_E_INVALID_SYNTAX,
         import("class {"),
         {place, "the name of a class was expected, \"{\" was found"}},
        {WBEM_E_INVALID_OBJECT, import("class X { string P; string p; };"), {place, "class X", "p twice"}},
        {WBEM_E_INVALID_OBJECT,
         import("class X { string P; }; instance of X { P = \"1\"; };"),
         {place, "class X", "no key property", "[key]"}},
        {WBEM_E_INVALID_PROPERTY_TYPE,
         import("class X { [key] real32 R; };"),
         {place, "X.R", "real32", "datetime"}},
        {WBEM_E_INVALID_SUPERCLASS, import("class X : Gone {};"), {place, "Gone", "\\\\.\\root\\Test"}},
        {WBEM_E_INVALID_SUPERCLASS,
         import("class X : Y {}; class Y : X {};"),
         {place, "circle", "X needs Y needs X"}},
        {WBEM_E_ALREADY_EXISTS, import("class X {}; class X {};"), {"buffer:1:19", "first at buffer:1"}},
        {WBEM_E_CLASS_HAS_INSTANCES,
         import("class Policy { [key] string INSTANCE_ID; string Days; };"),
         {"Policy", "Days", "uint8", "string", "1 instance", force}},
        {WBEM_E_CLASS_HAS_INSTANCES,
         import("class Policy { [key] string INSTANCE_ID; };"),
         {"Policy", "Days", "1 instance", force}},
        {WBEM_E_CLASS_HAS_INSTANCES,
         import("class Policy { [key] string INSTANCE_ID; [key] string K; };"),
         {"Policy", "from INSTANCE_ID to INSTANCE_ID, K", "1 instance", force}},
    });
}

TEST_F(SentenceTest, OfTheStore) {
    const std::string foreign = directory.path() + "/foreign";
    const std::string file = directory.path() + "/file";
    std::ofstream(file) << "text";
    mkdir(foreign.c_str(), 0700);
    std::ofstream(foreign + "/letter.txt") << "dear";
    const auto at = [](const std::string& place) {
        return [place] {
            setenv("MGMT_STORE", place.c_str(), 1);
            return ImportInto(kNamespace, "class X {};");
        };
    };
    Check({
        {WBEM_E_NOT_AVAILABLE, at(foreign), {foreign, "is no store", "letter.txt"}},
        {WBEM_E_NOT_AVAILABLE, at(file), {file, "must name a directory"}},
    });
}

}  // namespace
