// What cannot be watched is refused, with a reason, by the library and the service together.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/system/event_recorder.h"
#include "tests/system/process_resources.h"
#include "tests/system/system_fixture.h"

namespace {

class EventQueriesTest : public SystemTest {
 protected:
    EventQueriesTest() { EXPECT_TRUE(Import(kThingSchema)); }
};

TEST_F(EventQueriesTest, NonsenseStartsNothing) {
    PutThing(L"a", 1);
    const ProcessResources before = ProcessResources::WhenQuiet();
    const std::wstring creation = L"SELECT * FROM __InstanceCreationEvent ";
    const std::wstring of_thing = creation + L"WITHIN 1 WHERE TargetInstance ISA 'Thing'";
    std::vector<CMgmtEventWatcher> watchers;
    const std::wstring queries[] = {L" ",
                                    L"SELECT",
                                    L"SELECT N FROM Thing",
                                    L"SELECT * FROM __Event",
                                    L"SELECT * FROM __InstanceOperationEvent\x110000",
                                    creation + L"WITHIN -1",
                                    creation + L"WITHIN 1e999",
                                    creation + L"WITHIN x",
                                    creation + L"WHERE",
                                    creation + L"WHERE TargetInstance",
                                    creation + L"WHERE TargetInstance ISA None",

                                    creation + L"WHERE PreviousInstance ISA 'Thing'",
                                    of_thing + L" AND TargetInstance.None = 1",
                                    of_thing + L" AND TargetInstance.N = 'x'",
                                    of_thing + L" AND TargetInstance.N LIKE '[z'",
                                    of_thing + L" AND TargetInstance.N = TargetInstance.Days",
                                    of_thing + L" AND",
                                    of_thing + L")",
                                    of_thing + L" GROUP WITHIN 5",
                                    creation + L"WHERE " + std::wstring(100'000, L'('),
                                    creation + L"WHERE TargetInstance ISA 'Thing\xD800'"};
    for (const std::wstring& query : queries)
        watchers.emplace_back(query.c_str());
    for (const wchar_t* name : {L"None", L"1", L"Thing\"", L"Th'ing", L"Thing "})
        watchers.emplace_back(1, name, nullptr, 1);
    watchers.emplace_back(1, L"Thing", nullptr, -1);
    watchers.emplace_back(1, L"Thing", L"a\" OR \"", 1);
    for (const size_t length : {180U, 181U, 1'000U, 100'000U}) {
        watchers.emplace_back(1, std::wstring(length, L'c').c_str(), nullptr, 1);
        watchers.emplace_back(1, L"Thing", std::wstring(length, L'i').c_str(), 1);
    }
    for (size_t i = 0; i < watchers.size(); ++i) {
        SCOPED_TRACE("watcher " + std::to_string(i));
        SetErrorInfo(0, nullptr);
        EXPECT_FALSE(watchers[i].Start());
        CComPtr<IErrorInfo> info;
        CComBSTR reason;
        EXPECT_TRUE(GetErrorInfo(0, &info) == S_OK && info->GetDescription(&reason) == S_OK &&
                    reason.Length() > 10);
        EXPECT_FALSE(watchers[i].Stop());
    }
    EXPECT_EQ(ProcessResources::WhenQuiet().threads, before.threads);
}

// Where the cut leaves a whole query, that is what is watched: the class, and not the one instance.
TEST_F(EventQueriesTest, ACutAt255UnitsNeverMakesAnotherQuery) {
    const std::wstring form = L"SELECT * FROM __InstanceCreationEvent WITHIN 1 WHERE TargetInstance ISA \"\"";
    for (size_t length = 150; length <= 200; ++length) {
        const std::string name(length, 'c');
        ASSERT_TRUE(Import("class " + name + " { [key] string INSTANCE_ID; };"));
        for (const wchar_t* id : {static_cast<const wchar_t*>(nullptr), L"a", L"12345678901234567890"}) {
            CMgmtEventWatcher watcher(1, Widen(name).c_str(), id, 1);
            const std::wstring all = L" AND TargetInstance.INSTANCE_ID=\"\"";
            const size_t size = form.size() + length + (id ? all.size() + std::wcslen(id) : 0);
            const bool is_started = watcher.Start();
            EXPECT_EQ(is_started,
                      size <= 255 || (id && form.size() + length >= 254 && form.size() + length <= 255))
                << length;
            EXPECT_EQ(watcher.Stop(), is_started);
        }
    }
}

}  // namespace
