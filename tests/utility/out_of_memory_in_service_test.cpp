// As out_of_memory_test, with the real service behind the library: allocations fail inside the service, too.
// What fails there is a soft failure; the store and the objects stay as usable as before.
#include <functional>
#include <string>

#include "tests/utility/exhausted_memory.h"
#include "tests/utility/real_service_fixture.h"

namespace {

constexpr char kSchema[] =
    "class Inner { string Text; sint32 Numbers[]; };"
    "class Cls { [key] string INSTANCE_ID; string DisplayName; uint64 Size; string Tags[]; Inner Part; "
    "datetime At; };"
    "instance of Cls { INSTANCE_ID = \"a name of some length\"; DisplayName = \"a text of some length, too\";"
    "  Size = 18446744073709551615; Tags = {\"one of the tags\", NULL, \"\"}; At = "
    "\"20261122103000.000000+000\";"
    "  Part = instance of Inner { Text = \"within the other one\"; Numbers = {1, 2, 3}; }; };";

class OutOfMemoryInService : public RealServiceTest {
 protected:
    OutOfMemoryInService() : RealServiceTest(kSchema) {}

    // Runs `attempt`, which tells whether it succeeded, until no allocation fails any more, and `check` after
    // each.
    static void FailAtEachAllocation(
        const std::function<bool()>& attempt, const std::function<void()>& check = [] {}) {
        // What the service keeps for later, readers and classes, is there before leaks are counted.
        ASSERT_TRUE(attempt());
        check();
        SetErrorInfo(0, nullptr);
        FailEachAllocation([&] {
            bool succeeded = false;
            Succeeds([&] { succeeded = attempt(); });
            EXPECT_TRUE(succeeded || doubles::g_allocationSwitches.failed);
            const doubles::SparedAllocations spared;
            check();
            SetErrorInfo(0, nullptr);
        });
    }
};

constexpr const wchar_t* kId = L"a name of some length";

TEST_F(OutOfMemoryInService, Get) {
    FailAtEachAllocation([] { return CMgmtObject(L"Cls", kId, nullptr).Get(); },
                         [] {
                             CMgmtObject object(L"Cls", kId, nullptr);
                             ASSERT_TRUE(object.Get());
                             EXPECT_EQ(object.GetProperties()->GetTotalItemCount(), 6U);
                         });
}

TEST_F(OutOfMemoryInService, Put) {
    CMgmtObject object(L"Cls", kId, nullptr);
    ASSERT_TRUE(object.Get());
    int number = 0;
    int stored = 0;
    const auto put = [&] {
        object.SetPropertyValue(L"Size", ++number);
        return object.Put(false);
    };
    FailAtEachAllocation(put, [&] {
        CMgmtObject read(L"Cls", kId, nullptr);
        ASSERT_TRUE(read.Get());
        const int size = std::stoi(read.GetPropertyValue(L"Size")->bstrVal);
        EXPECT_TRUE(size == stored || size == number) << "neither what was there nor what was put";
        stored = size;
        EXPECT_EQ(std::wstring(read.GetPropertyValue(L"DisplayName")->bstrVal),
                  L"a text of some length, too");
    });
    EXPECT_EQ(stored, number);
}

// An object whose properties the service could not list to their end is there with those before.
TEST_F(OutOfMemoryInService, GetInstances) {
    CMgmtClass(L"None", true).GetInstances();  // what the first log line makes is kept, too
    for (const bool useInstanceId : {true, false})
        FailAtEachAllocation([&] {
            CMgmtClass instances(L"Cls", useInstanceId);
            CMgmtObjectCollection* const listed = instances.GetInstances();
            return listed->GetTotalItemCount() == 1 &&
                   listed->GetItem(0)->GetProperties()->GetTotalItemCount() == 6;
        });
}

// An enumeration that says it has come to its end has shown everything.
TEST_F(OutOfMemoryInService, EnumerationsAreNeverShortInSilence) {
    CComPtr<IWbemLocator> locator;
    CComPtr<IWbemServices> services;
    ASSERT_EQ(locator.CoCreateInstance(CLSID_WbemLocator), S_OK);
    ASSERT_EQ(locator->ConnectServer(CComBSTR(L"root\\Test"), nullptr, nullptr, nullptr, 0, nullptr, nullptr,
                                     &services),
              S_OK);
    constexpr ULONG kCount = 60;
    CMgmtClass instances(L"Cls", true);
    for (ULONG i = 1; i < kCount; ++i)
        delete instances.CreateInstance(std::to_wstring(i).c_str());
    const CComBSTR language(L"WQL"), query(L"SELECT DisplayName FROM Cls WHERE INSTANCE_ID <> 'none'");
    const auto list = [&] {
        CComPtr<IEnumWbemClassObject> found;
        if (services->ExecQuery(language, query, 0, nullptr, &found) != S_OK) return false;
        ULONG seen = 0;
        HRESULT result = S_OK;
        while (result == S_OK || result == WBEM_S_TIMEDOUT) {
            IWbemClassObject* objects[7] = {};
            ULONG returned = 0;
            result = found->Next(WBEM_INFINITE, 7, objects, &returned);
            EXPECT_TRUE(SUCCEEDED(result) || returned == 0) << "objects that nobody would release";
            for (ULONG i = 0; i < returned; ++i)
                objects[i]->Release();
            seen += returned;
        }
        EXPECT_TRUE(FAILED(result) || seen == kCount);
        return result == WBEM_S_FALSE;
    };
    FailAtEachAllocation(list);
}

TEST_F(OutOfMemoryInService, CreateInstance) {
    int number = 0;
    CMgmtClass instances(L"Cls", true);
    const auto create = [&] {
        CMgmtObject source(L"Cls", std::to_wstring(++number).c_str(), nullptr);
        source.SetPropertyValue(L"DisplayName", L"a text of some length, for the third time");
        return instances.CreateInstance(source);
    };
    FailAtEachAllocation(create, [&] {
        CMgmtObject created(L"Cls", std::to_wstring(number).c_str(), nullptr);
        if (created.Get()) {
            EXPECT_EQ(std::wstring(created.GetPropertyValue(L"DisplayName")->bstrVal),
                      L"a text of some length, for the third time");
        }
    });
}

TEST_F(OutOfMemoryInService, GetXML) {
    CMgmtObject object(L"Cls", kId, nullptr);
    ASSERT_TRUE(object.Get());
    const std::wstring whole(object.GetXML());
    // An option that found no memory is left at the service's default, and the text is another one.
    const auto render = [&] { return object.GetXML() == _bstr_t(whole.c_str()); };
    FailAtEachAllocation(render, [&] { EXPECT_EQ(std::wstring(object.GetXML()), whole); });
}

}  // namespace
