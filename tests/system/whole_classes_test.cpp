// Whole classes through the library and the real service: listed, extended, rendered, and changed by others
// meanwhile.
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/service/child_process.h"
#include "tests/system/system_fixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class WholeClassTest : public SystemTest {
 protected:
    WholeClassTest() {
        EXPECT_TRUE(
            Import("class Inner { string Text; object Next; };"
                   "class Policy { [key] string INSTANCE_ID; sint32 Days = 7; datetime Changed; "
                   "  string Tags[]; sint32 Numbers[]; object Parts[]; object Any; };"
                   "class MailPolicy : Policy { string Box; };"));
    }

    static void Add(const wchar_t* class_name, const std::wstring& id) {
        CMgmtClass policies(class_name, true);
        const std::unique_ptr<CMgmtObjectBase> created(policies.CreateInstance(id.c_str()));
        EXPECT_TRUE(created);
    }

    static std::multiset<std::wstring> IdsOf(CMgmtObjectCollection* collection) {
        std::multiset<std::wstring> ids;
        for (size_t i = 0; i < collection->GetTotalItemCount(); ++i) {
            ids.insert(std::wstring(collection->GetItem(i)->GetCategoryID()) + L"/" +
                       collection->GetItem(i)->GetInstanceId());
        }
        return ids;
    }
};

TEST_F(WholeClassTest, ListedCreatedAndDeletedAgain) {
    Add(L"Policy", L"a");
    Add(L"MailPolicy", L"b \"quoted\" \\ name");
    CMgmtClass policies(L"Policy", true);
    EXPECT_THAT(IdsOf(policies.GetInstances()), ElementsAre(L"MailPolicy/b \"quoted\" \\ name", L"Policy/a"));
    EXPECT_EQ(policies.CreateInstance(L"a"), nullptr) << "it is there already";
    CMgmtObject source(L"whatever", L"c", nullptr);
    source.SetPropertyValue(L"Days", 30);
    source.SetPropertyValue(L"Changed", _variant_t(45000.5, VT_DATE));
    EXPECT_TRUE(policies.CreateInstance(source));
    EXPECT_FALSE(policies.CreateInstance(source));

    // One of a listed object is gone before it is looked at again.
    CMgmtObjectCollection* const listed = policies.GetInstances();
    ASSERT_EQ(listed->GetTotalItemCount(), 3U);
    CMgmtObject* cached = nullptr;
    for (size_t i = 0; i < 3; ++i) {
        if (std::wstring(listed->GetItem(i)->GetInstanceId()) == L"c") cached = listed->GetItem(i);
    }
    ASSERT_NE(cached, nullptr);
    EXPECT_EQ(NumberOf(*cached, L"Days"), 30);
    EXPECT_EQ(cached->GetPropertyValue(L"Changed")->vt, VT_DATE);
    EXPECT_EQ(cached->GetPropertyValue(L"Changed")->date, 45000.5);
    EXPECT_TRUE(CMgmtObject(L"Policy", L"c", nullptr).DeleteInstance());
    EXPECT_FALSE(cached->Get());
    EXPECT_FALSE(cached->Put(false));

    CMgmtClass by_path(L"Policy", false);
    CMgmtObjectCollection* const paths = by_path.GetInstances();
    ASSERT_EQ(paths->GetTotalItemCount(), 2U);
    for (size_t i = 0; i < 2; ++i)
        EXPECT_TRUE(paths->GetItem(i)->Get()) << "by its path, quoted as it must be";
}

TEST_F(WholeClassTest, ArraysTravelWhole) {
    Add(L"Policy", L"a");
    for (const size_t count : {size_t{0}, size_t{1}, size_t{1'000'000}}) {
        CMgmtBSTRArrayAccessHelper strings;
        CMgmtSINT32ArrayAccessHelper numbers;
        for (size_t i = 0; i < count; ++i) {
            if (i % 3 == 1) {
                strings.Add(static_cast<const wchar_t*>(nullptr));
            } else {
                strings.Add(i % 3 == 0 ? L"" : L"text");
            }
            numbers.Add(static_cast<long>(i) - 5);
        }
        _variant_t strings_value, numbers_value;
        ASSERT_TRUE(strings.PutElementsIntoArray(strings_value));
        ASSERT_TRUE(numbers.PutElementsIntoArray(numbers_value));
        CMgmtObject policy(L"Policy", L"a", nullptr);
        policy.SetPropertyValue(L"Tags", strings_value);
        policy.SetPropertyValue(L"Numbers", numbers_value);
        ASSERT_TRUE(policy.Put(false));

        CMgmtObject read(L"Policy", L"a", nullptr);
        ASSERT_TRUE(read.Get());
        CMgmtBSTRArrayAccessHelper strings_read(read.GetPropertyValue(L"Tags"));
        CMgmtSINT32ArrayAccessHelper numbers_read(read.GetPropertyValue(L"Numbers"));
        ASSERT_EQ(strings_read.GetElementsCount(), count);
        ASSERT_EQ(numbers_read.GetElementsCount(), count);
        for (size_t i = 0; i < count; ++i) {
            const wchar_t* const text = strings_read.GetElement(i);
            ASSERT_EQ(text == nullptr, i % 3 == 1) << i;
            if (text) {
                ASSERT_EQ(std::wstring_view(text), i % 3 == 0 ? L"" : L"text") << i;
            }
            ASSERT_EQ(numbers_read.GetElement(i), static_cast<long>(i) - 5);
        }
    }
}

// Objects within objects, 100 deep, and many side by side in an array.
TEST_F(WholeClassTest, EmbeddedObjectsTravelWhole) {
    CMgmtClass inner(L"Inner", true);
    CMgmtObjectBase* innermost = inner.CreateInstance();
    ASSERT_NE(innermost, nullptr);
    innermost->SetPropertyValue(L"Text", L"innermost <&>");
    for (int depth = 1; depth < 100; ++depth) {
        CMgmtObjectBase* const around = inner.CreateInstance();
        around->SetPropertyValue(L"Next", static_cast<const _variant_t>(*innermost));
        innermost = around;
    }
    CMgmtObjectArrayAccessHelper parts;
    for (int i = 0; i < 1'000; ++i)
        parts.Add(inner.CreateInstance());
    _variant_t parts_value;
    ASSERT_TRUE(parts.PutElementsIntoArray(parts_value));
    CMgmtObject policy(L"Policy", L"deep", nullptr);
    policy.SetPropertyValue(L"INSTANCE_ID", L"deep");
    policy.SetPropertyValue(L"Any", static_cast<const _variant_t>(*innermost));
    policy.SetPropertyValue(L"Parts", parts_value);
    ASSERT_TRUE(policy.Put(true));

    CMgmtObject read(L"Policy", L"deep", nullptr);
    ASSERT_TRUE(read.Get());
    CMgmtObjectArrayAccessHelper parts_read(read.GetPropertyValue(L"Parts"));
    EXPECT_EQ(parts_read.GetElementsCount(), 1'000U);
    _variant_t next(*read.GetPropertyValue(L"Any"));
    int depth = 0;
    for (; next.vt == VT_UNKNOWN; ++depth) {
        CMgmtObjectBase object(&next, true);
        if (object.GetPropertyValue(L"Next")->vt != VT_UNKNOWN) {
            EXPECT_STREQ(object.GetPropertyValue(L"Text")->bstrVal, L"innermost <&>");
        }
        next = *object.GetPropertyValue(L"Next");
    }
    EXPECT_EQ(depth, 100);
    const std::wstring xml(read.GetXML());
    EXPECT_THAT(xml, HasSubstr(L"innermost &lt;&amp;&gt;"));
    EXPECT_THAT(xml, testing::StartsWith(L"<INSTANCE CLASSNAME=\"Policy\">"));
}

// Another process changes and deletes while this one lists: what is listed is what was there.
TEST_F(WholeClassTest, ListingIsNotDisturbed) {
    std::string instances;
    for (int i = 0; i < 2'000; ++i) {
        instances += "instance of Policy { INSTANCE_ID = \"" + std::to_string(i) +
                     "\"; Days = " + std::to_string(i % 2) + "; };";
    }
    ASSERT_TRUE(Import(instances));
    Signal begun;
    const ChildProcess other([&] {
        begun.Give();
        for (int round = 0;; ++round) {
            std::string changes;
            for (int i = 0; i < 2'000; i += 7) {
                changes += "instance of Policy { INSTANCE_ID = \"" + std::to_string(i) +
                           "\"; Days = " + std::to_string(i % 2 + 2 * round) + "; };";
            }
            if (!Import(changes)) return 1;
            CMgmtObject(L"Policy", std::to_wstring(1'000 + round % 500).c_str(), nullptr).DeleteInstance();
            Add(L"Policy", L"new-" + std::to_wstring(round));
        }
    });
    begun.Take();
    for (int round = 0; round < 20; ++round) {
        CMgmtClass policies(L"Policy", true);
        CMgmtObjectCollection* const listed = policies.GetInstances();
        const std::multiset<std::wstring> ids = IdsOf(listed);
        EXPECT_EQ(ids.size(), std::set<std::wstring>(ids.begin(), ids.end()).size()) << "one came twice";
        // All that a round of the other process changes at once is as it was before or as it is after.
        std::set<long> rounds;
        for (size_t i = 0; i < listed->GetTotalItemCount(); ++i) {
            const std::wstring id = listed->GetItem(i)->GetInstanceId();
            if (id.starts_with(L"new-") || std::stoi(id) % 7 != 0) continue;
            rounds.insert(NumberOf(*listed->GetItem(i), L"Days") / 2);
        }
        EXPECT_EQ(rounds.size(), 1U) << "two states in one listing";
    }
    other.Kill();
}

}  // namespace
