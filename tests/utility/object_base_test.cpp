#include "utility/management/util_MgmtObjectBase.h"

#include <climits>
#include <optional>
#include <thread>

#include <atlbase.h>

#include "tests/doubles/com_object.h"
#include "tests/utility/service_fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ObjectBaseTest : public ServiceTest {
 protected:
    // A service's object of the class, as a VT_UNKNOWN.
    _variant_t MakeObject(const std::vector<doubles::Assignment>& values = {}) {
        doubles::Content content{L"Cls", false, m_Properties};
        for (const auto& [name, value] : values)
            content.Find(name)->value = value;
        return {service.MakeObject(content), false};
    }

    // What the service's object has under `name`.
    static _variant_t Held(const _variant_t& object, const wchar_t* name) {
        _variant_t value;
        static_cast<IWbemClassObject*>(object.punkVal)->Get(name, 0, &value, nullptr, nullptr);
        return value;
    }

    const std::vector<doubles::Property> m_Properties = {{L"__CLASS", CIM_STRING, _variant_t(L"Cls")},
                                                         {L"Name", CIM_STRING, _variant_t(L"n")},
                                                         {L"Count", CIM_SINT32},
                                                         {L"Ratio", CIM_REAL32},
                                                         {L"Enabled", CIM_BOOLEAN},
                                                         {L"Changed", CIM_DATETIME}};
};

TEST(UnboundBag, KeepsEveryTypeThatIsSet) {
    CMgmtObjectBase bag;
    EXPECT_EQ(bag.GetPropertyValue(L"missing"), nullptr);

    bag.SetPropertyValue(L"int", 5);
    bag.SetPropertyValue(L"long", 5L);
    bag.SetPropertyValue(L"wide long", LONG_MAX);
    bag.SetPropertyValue(L"least", long{INT_MIN});
    bag.SetPropertyValue(L"below", long{INT_MIN} - 1);
    bag.SetPropertyValue(L"float", 0.5F);
    bag.SetPropertyValue(L"true", true);
    bag.SetPropertyValue(L"false", false);
    bag.SetPropertyValue(L"text", L"t\U0001F600");
    bag.SetPropertyValue(L"no text", static_cast<const wchar_t*>(nullptr));
    bag.SetPropertyValue(std::wstring(L"a\0b", 3), _variant_t(1.5));
    bag.SetPropertyValue(L"null", NullValue());

    const auto value = [&](const wchar_t* name) -> const VARIANT& { return *bag.GetPropertyValue(name); };
    EXPECT_TRUE(value(L"int").vt == VT_INT && value(L"int").intVal == 5);
    EXPECT_TRUE(value(L"long").vt == VT_I4 && value(L"long").lVal == 5);
    EXPECT_TRUE(value(L"wide long").vt == VT_I8 && value(L"wide long").llVal == LONG_MAX);
    EXPECT_TRUE(value(L"least").vt == VT_I4 && value(L"least").lVal == INT_MIN);
    EXPECT_TRUE(value(L"below").vt == VT_I8 && value(L"below").llVal == long{INT_MIN} - 1);
    EXPECT_TRUE(value(L"float").vt == VT_R4 && value(L"float").fltVal == 0.5F);
    EXPECT_TRUE(value(L"true").vt == VT_BOOL && value(L"true").boolVal == VARIANT_TRUE);
    EXPECT_TRUE(value(L"false").vt == VT_BOOL && value(L"false").boolVal == VARIANT_FALSE);
    EXPECT_EQ(TextOf(value(L"text")), L"t\U0001F600");
    EXPECT_TRUE(value(L"no text").vt == VT_BSTR && value(L"no text").bstrVal == nullptr);
    EXPECT_EQ(bag.GetPropertyValue(std::wstring(L"a\0b", 3))->vt, VT_R8);
    EXPECT_EQ(bag.GetPropertyValue(L"a"), nullptr) << "a name counts whole";
    EXPECT_EQ(value(L"null").vt, VT_NULL);
    EXPECT_EQ(bag.GetProperties()->GetTotalItemCount(), 12U);
    EXPECT_EQ(static_cast<const _variant_t>(bag).vt, VT_EMPTY);
}

TEST(UnboundBag, NamesOfOtherCaseAreOtherPropertiesAndASecondValueReplaces) {
    CMgmtObjectBase bag;
    bag.SetPropertyValue(L"Name", 1);
    bag.SetPropertyValue(L"name", 2);
    bag.SetPropertyValue(L"Name", 3);
    // A value and a name that the bag itself handed out.
    const CMgmtPropertyData* const record = bag.GetProperties()->GetItem(1);
    bag.SetPropertyValue(*record->GetName(), *record->GetValue());
    EXPECT_EQ(bag.GetProperties()->GetTotalItemCount(), 2U);
    EXPECT_EQ(bag.GetPropertyValue(L"Name")->intVal, 3);
    EXPECT_EQ(bag.GetPropertyValue(L"name")->intVal, 2);
}

TEST(UnboundBag, TimesBecomeText) {
    CMgmtObjectBase bag;
    SYSTEMTIME time = {2024, 1, 3, 31, 23, 59, 58, 750};
    bag.SetPropertyValue(L"time", &time);
    EXPECT_EQ(TextOf(bag.GetPropertyValue(L"time")), L"20240131235958.000000+000");

    SYSTEMTIME impossible = {65535, 300, 0, 7, 8, 9, 65535, 0};
    bag.SetPropertyValue(L"impossible", &impossible);
    EXPECT_EQ(TextOf(bag.GetPropertyValue(L"impossible")), L"6553530007080965535.000000+000");

    FILETIME file = {10000000, 0};
    bag.SetPropertyValue(L"file", &file);
    EXPECT_EQ(TextOf(bag.GetPropertyValue(L"file")), L"16010101000001.000000+000");
    FILETIME noDate = {0, 0x80000000};
    bag.SetPropertyValue(L"file", &noDate);
    bag.SetPropertyValue(L"file", static_cast<SYSTEMTIME*>(nullptr));
    EXPECT_EQ(TextOf(bag.GetPropertyValue(L"file")), L"16010101000001.000000+000")
        << "no wrong date is stored";
}

TEST_F(ObjectBaseTest, ReadsOnDemandOnceAndCachesUnknownNames) {
    const _variant_t object = MakeObject({{L"Count", _variant_t(3L)}});
    CMgmtObjectBase bag(&object, false);
    EXPECT_EQ(bag.GetProperties()->GetTotalItemCount(), 0U);

    const _variant_t* const count = bag.GetPropertyValue(L"Count");
    EXPECT_EQ(count->lVal, 3);
    EXPECT_EQ(bag.GetPropertyValue(std::wstring(L"Count")), count);
    EXPECT_EQ(bag.GetPropertyValue(L"count")->lVal, 3) << "another record, the same property to the service";
    const _variant_t* const unknown = bag.GetPropertyValue(L"Unknown");
    ASSERT_NE(unknown, nullptr);
    EXPECT_EQ(unknown->vt, VT_EMPTY);
    EXPECT_EQ(bag.GetPropertyValue(L"Unknown"), unknown);
    EXPECT_EQ(bag.GetPropertyValue(L"Enabled")->vt, VT_NULL);
    EXPECT_EQ(bag.GetProperties()->GetTotalItemCount(), 4U);
    EXPECT_THAT(Requests(), ElementsAre(L"Get Count", L"Get count", L"Get Unknown", L"Get Enabled"));
}

TEST_F(ObjectBaseTest, DateTimeIsADateOnDemandAndTextWhenPopulated) {
    const _variant_t object = MakeObject({{L"Changed", _variant_t(L"19000101060000.000000+060")}});
    CMgmtObjectBase onDemand(&object, false);
    EXPECT_EQ(onDemand.GetPropertyValue(L"Changed")->vt, VT_DATE);
    EXPECT_DOUBLE_EQ(onDemand.GetPropertyValue(L"Changed")->date, 2.25);
    CMgmtObjectBase populated(&object, true);
    EXPECT_EQ(TextOf(populated.GetPropertyValue(L"Changed")), L"19000101060000.000000+060");

    const _variant_t interval = MakeObject({{L"Changed", _variant_t(L"00000008120000.000000:000")}});
    CMgmtObjectBase ofInterval(&interval, false);
    EXPECT_EQ(ofInterval.GetPropertyValue(L"Changed")->vt, VT_BSTR) << "an interval is no date";
}

TEST_F(ObjectBaseTest, PopulatingLeavesSystemPropertiesOutAndTheObjectReusable) {
    const _variant_t object = MakeObject();
    for (int i = 0; i < 2; ++i) {
        CMgmtObjectBase bag(&object, true);
        EXPECT_EQ(bag.GetProperties()->GetTotalItemCount(), 5U);
        EXPECT_EQ(TextOf(bag.GetPropertyValue(L"Name")), L"n");
        EXPECT_EQ(TextOf(bag.GetPropertyValue(L"__CLASS")), L"Cls") << "read on demand all the same";
    }
}

TEST_F(ObjectBaseTest, ServiceFailingWhilePopulatingLeavesTheBagBound) {
    for (int n = 1; n <= 8; ++n) {
        const _variant_t object = MakeObject();
        service.FailAt(n, WBEM_E_FAILED);
        CMgmtObjectBase bag(&object, true);
        EXPECT_TRUE(service.HasFailed());
        EXPECT_EQ(bag.GetProperties()->GetTotalItemCount(), n == 1 ? 0U : std::min(n - 2U, 5U));
        EXPECT_EQ(TextOf(bag.GetPropertyValue(L"Name")), L"n");
    }
}

TEST_F(ObjectBaseTest, WritesReachTheHeldObjectConvertedAndTheBagAsTheyAre) {
    const _variant_t object = MakeObject({{L"Enabled", _variant_t(true)}});
    CMgmtObjectBase bag(&object, false);
    bag.SetPropertyValue(L"Count", 7);
    bag.SetPropertyValue(L"Changed", DateValue(2.25));
    bag.SetPropertyValue(L"Ratio", 0.5F);
    bag.SetPropertyValue(L"Enabled", NullValue());
    bag.SetPropertyValue(L"Enabled", _variant_t());
    bag.SetPropertyValue(L"Enabled", _variant_t(1L, VT_ERROR));
    bag.SetPropertyValue(L"Name", 8L);  // refused: no text
    EXPECT_THAT(Requests(), ElementsAre(L"Put Count 3", L"Put Changed 8", L"Put Ratio 4", L"Put Name 3"));

    EXPECT_EQ(bag.GetPropertyValue(L"Count")->vt, VT_INT);
    EXPECT_EQ(bag.GetPropertyValue(L"Changed")->vt, VT_DATE);
    EXPECT_EQ(bag.GetPropertyValue(L"Name")->lVal, 8);
    EXPECT_EQ(Held(object, L"Count").lVal, 7);
    EXPECT_EQ(TextOf(Held(object, L"Changed")), L"19000101060000.000000+000");
    EXPECT_EQ(Held(object, L"Enabled").boolVal, VARIANT_TRUE);
    EXPECT_EQ(TextOf(Held(object, L"Name")), L"n");

    bag.SetPropertyValue(L"Changed", DateValue(1e9));
    EXPECT_EQ(Requests().back(), L"Put Changed 7") << "a date without a text goes as it is";
}

TEST_F(ObjectBaseTest, ConversionWritesTheBagAndHandsOutTheHeldObject) {
    const _variant_t object = MakeObject();
    CMgmtObjectBase bag(&object, false);
    bag.SetPropertyValue(L"Refused", 1);
    bag.SetPropertyValue(L"Changed", DateValue(2.25));
    bag.SetPropertyValue(L"Count", 7);
    bag.SetPropertyValue(L"Name", NullValue());
    // Changed behind the bag's back, so that only the conversion can bring the bag's value back.
    _variant_t other(1L);
    static_cast<IWbemClassObject*>(object.punkVal)->Put(L"Count", 0, &other, 0);
    Requests();

    const _variant_t converted = bag;
    EXPECT_THAT(Requests(), ElementsAre(L"Put Changed 8", L"Put Count 3", L"Put Refused 3"));
    EXPECT_EQ(converted.vt, VT_UNKNOWN);
    EXPECT_EQ(converted.punkVal, object.punkVal);
    EXPECT_EQ(Held(object, L"Count").lVal, 7);
    EXPECT_EQ(bag.GetPropertyValue(L"Count")->vt, VT_INT);
}

TEST_F(ObjectBaseTest, VariantWithoutAClassObjectIsHeldButNeverUsed) {
    std::atomic<long> live{0};
    class Stranger final : public doubles::ComObject<IClassFactory> {
     public:
        explicit Stranger(std::atomic<long>& count) : ComObject(count) {}
        HRESULT CreateInstance(IUnknown*, REFIID, void**) override { return E_NOTIMPL; }
        HRESULT LockServer(BOOL) override { return E_NOTIMPL; }
    };
    const _variant_t stranger(new Stranger(live));
    const _variant_t text(L"text");
    const _variant_t nothing(static_cast<IUnknown*>(nullptr));
    for (const _variant_t* held : {&stranger, &text, &nothing}) {
        CMgmtObjectBase bag(held, false);
        EXPECT_EQ(bag.GetPropertyValue(L"Name"), nullptr);
        bag.SetPropertyValue(L"Name", 5);
        EXPECT_EQ(bag.GetPropertyValue(L"Name")->intVal, 5);
        EXPECT_EQ(static_cast<const _variant_t>(bag).vt, held->vt);

        CMgmtObjectBase populated(held, true);
        EXPECT_EQ(static_cast<const _variant_t>(populated).vt, held == &text ? VT_BSTR : VT_EMPTY);
    }
    EXPECT_EQ(static_cast<const _variant_t>(CMgmtObjectBase(nullptr, true)).vt, VT_EMPTY);
    EXPECT_THAT(Requests(), IsEmpty());
    EXPECT_EQ(live, 1);
}

TEST_F(ObjectBaseTest, CopiesShareTheBagUntilTheLastIsGone) {
    const _variant_t object = MakeObject();
    std::optional<CMgmtObjectBase> first(std::in_place, &object, false);
    CMgmtObjectBase second(*first);
    EXPECT_EQ(first->GetProperties(), second.GetProperties());
    first->SetPropertyValue(L"mine", 1);
    second.SetPropertyValue(L"yours", 2);
    EXPECT_EQ(first->GetPropertyValue(L"yours")->intVal, 2);
    first.reset();
    EXPECT_EQ(second.GetPropertyValue(L"mine")->intVal, 1);
    EXPECT_EQ(TextOf(second.GetPropertyValue(L"Name")), L"n") << "with a reference of its own";
    EXPECT_EQ(second.GetProperties()->GetTotalItemCount(), 3U);
}

TEST_F(ObjectBaseTest, CopiesAreMadeAndDestroyedOnManyThreads) {
    const _variant_t object = MakeObject();
    std::optional<CMgmtObjectBase> original(std::in_place, &object, true);
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([copy = *original] {
            for (int n = 0; n < 5000; ++n) {
                CMgmtObjectBase another(copy);
                CMgmtObjectBase third(another);
                EXPECT_EQ(another.GetProperties(), third.GetProperties());
            }
        });
    original.reset();
    for (std::thread& thread : threads)
        thread.join();
}

}  // namespace
