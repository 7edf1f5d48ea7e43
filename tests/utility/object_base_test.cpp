#include "utility/management/util_MgmtObjectBase.h"

#include <climits>
#include <optional>

#include <atlbase.h>

#include "tests/doubles/refusing_interfaces.h"
#include "tests/platform/threads.h"
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
    const auto set = [&](const auto& value) -> const VARIANT& {
        bag.SetPropertyValue(L"value", value);
        return *bag.GetPropertyValue(L"value");
    };
    EXPECT_TRUE(set(5).vt == VT_INT && set(5).intVal == 5);
    EXPECT_TRUE(set(LONG_MAX).vt == VT_I8 && set(LONG_MAX).llVal == LONG_MAX);
    EXPECT_TRUE(set(long{INT_MIN}).vt == VT_I4 && set(long{INT_MIN}).lVal == INT_MIN);
    EXPECT_TRUE(set(long{INT_MIN} - 1).vt == VT_I8 && set(long{INT_MIN} - 1).llVal == long{INT_MIN} - 1);
    EXPECT_TRUE(set(0.5F).vt == VT_R4 && set(0.5F).fltVal == 0.5F);
    EXPECT_TRUE(set(true).vt == VT_BOOL && set(true).boolVal == VARIANT_TRUE);
    EXPECT_TRUE(set(false).vt == VT_BOOL && set(false).boolVal == VARIANT_FALSE);
    EXPECT_EQ(TextOf(set(L"t\U0001F600")), L"t\U0001F600");
    const wchar_t* const noText = nullptr;
    EXPECT_TRUE(set(noText).vt == VT_BSTR && set(noText).bstrVal == nullptr);
    EXPECT_EQ(set(NullValue()).vt, VT_NULL);
    bag.SetPropertyValue(std::wstring(L"a\0b", 3), _variant_t(1.5));
    EXPECT_EQ(bag.GetPropertyValue(std::wstring(L"a\0b", 3))->vt, VT_R8);
    EXPECT_EQ(bag.GetPropertyValue(L"a"), nullptr) << "a name counts whole";
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
    const auto textOf = [&](auto time) {
        bag.SetPropertyValue(L"time", &time);
        return TextOf(bag.GetPropertyValue(L"time"));
    };
    EXPECT_EQ(textOf(SYSTEMTIME{2024, 1, 3, 31, 23, 59, 58, 750}), L"20240131235958.000000+000");
    EXPECT_EQ(textOf(SYSTEMTIME{65535, 300, 0, 7, 8, 9, 65535, 0}), L"6553530007080965535.000000+000");
    EXPECT_EQ(textOf(FILETIME{10000000, 0}), L"16010101000001.000000+000");
    bag.SetPropertyValue(L"time", static_cast<SYSTEMTIME*>(nullptr));
    EXPECT_EQ(textOf(FILETIME{0, 0x80000000}), L"16010101000001.000000+000") << "no wrong date is stored";
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
    EXPECT_EQ(unknown->vt, VT_EMPTY);
    EXPECT_EQ(bag.GetPropertyValue(L"Unknown"), unknown);
    EXPECT_EQ(bag.GetPropertyValue(L"Enabled")->vt, VT_NULL);
    EXPECT_THAT(Requests(), ElementsAre(L"Get Count", L"Get count", L"Get Unknown", L"Get Enabled"));
}

TEST_F(ObjectBaseTest, DateTimeIsADateOnDemandAndTextWhenPopulated) {
    const _variant_t object = MakeObject({{L"Changed", _variant_t(L"19000101060000.000000+060")}});
    EXPECT_TRUE(*CMgmtObjectBase(&object, false).GetPropertyValue(L"Changed") == DateValue(2.25));
    EXPECT_EQ(TextOf(CMgmtObjectBase(&object, true).GetPropertyValue(L"Changed")),
              L"19000101060000.000000+060");
    const _variant_t interval = MakeObject({{L"Changed", _variant_t(L"00000008120000.000000:000")}});
    EXPECT_EQ(CMgmtObjectBase(&interval, false).GetPropertyValue(L"Changed")->vt, VT_BSTR) << "it is no date";
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
    for (const _variant_t& nothing : {NullValue(), _variant_t(), _variant_t(1L, VT_ERROR)})
        bag.SetPropertyValue(L"Enabled", nothing);
    bag.SetPropertyValue(L"Name", 8L);  // refused: no text
    EXPECT_THAT(Requests(), ElementsAre(L"Put Count 3", L"Put Changed 8", L"Put Ratio 4", L"Put Name 3"));

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
    Requests();
    const _variant_t converted = bag;
    EXPECT_THAT(Requests(), ElementsAre(L"Put Changed 8", L"Put Count 3", L"Put Refused 3"));
    EXPECT_EQ(converted.vt, VT_UNKNOWN);
    EXPECT_EQ(converted.punkVal, object.punkVal);
    EXPECT_EQ(bag.GetPropertyValue(L"Count")->vt, VT_INT);
}

TEST_F(ObjectBaseTest, VariantWithoutAClassObjectIsHeldButNeverUsed) {
    std::atomic<long> live{0};
    const _variant_t stranger(static_cast<IUnknown*>(new doubles::RefusingEnumerator(live)));
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
    first->SetPropertyValue(L"mine", 1);
    second.SetPropertyValue(L"yours", 2);
    EXPECT_EQ(first->GetPropertyValue(L"yours")->intVal, 2);
    first.reset();
    EXPECT_EQ(second.GetPropertyValue(L"mine")->intVal, 1);
    EXPECT_EQ(TextOf(second.GetPropertyValue(L"Name")), L"n") << "with a reference of its own";
}

TEST_F(ObjectBaseTest, CopiesAreMadeAndDestroyedOnManyThreads) {
    const _variant_t object = MakeObject();
    RunInThreads(4, [copy = CMgmtObjectBase(&object, true)] {
        for (int n = 0; n < 5000; ++n) {
            CMgmtObjectBase another(copy);
            CMgmtObjectBase third(another);
            EXPECT_EQ(another.GetProperties(), third.GetProperties());
        }
    });
}

}  // namespace
