#include <algorithm>
#include <climits>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tests/utility/exhausted_memory.h"
#include "tests/utility/service_fixture.h"

namespace {

using Strings = CMgmtBSTRArrayAccessHelper;
using Integers = CMgmtSINT32ArrayAccessHelper;
using Objects = CMgmtObjectArrayAccessHelper;

_variant_t Holding(SAFEARRAY* array, VARTYPE type) {
    _variant_t value;
    value.vt = static_cast<VARTYPE>(VT_ARRAY | type);
    value.parray = array;
    return value;
}

// The array takes the elements over.
template <typename Element>
_variant_t ArrayOf(VARTYPE type, const std::vector<Element>& elements, LONG lower = 0) {
    SAFEARRAY* const array = SafeArrayCreateVector(type, lower, static_cast<ULONG>(elements.size()));
    std::copy(elements.begin(), elements.end(), static_cast<Element*>(array->pvData));
    return Holding(array, type);
}

using Texts = std::vector<std::wstring>;
using Numbers = std::vector<long>;

// The list, "(null)" for a null entry.
Texts ListOf(Strings& strings) {
    Texts list;
    for (std::size_t i = 0; i < strings.GetElementsCount(); ++i) {
        const wchar_t* const text = strings.GetElement(i);
        list.emplace_back(text != nullptr ? text : L"(null)");
    }
    return list;
}

Numbers ListOf(Integers& integers) {
    Numbers list;
    for (std::size_t i = 0; i < integers.GetElementsCount(); ++i)
        list.push_back(integers.GetElement(i));
    return list;
}

TEST(StringArray, IsReadWhateverItsLowerBound) {
    for (const LONG lower : {0, 1, -5, INT_MAX - 1, INT_MIN}) {
        SCOPED_TRACE(lower);
        const _variant_t source =
            ArrayOf<BSTR>(VT_BSTR, {SysAllocString(L"first"), SysAllocString(L"second")}, lower);
        Strings strings;
        EXPECT_EQ(strings.GetElementsFromArray(&source), 2);
        EXPECT_EQ(ListOf(strings), (Texts{L"first", L"second"}));
        EXPECT_EQ(strings.GetElement(2), nullptr);
        EXPECT_EQ(strings.GetElement(SIZE_MAX), nullptr);
        EXPECT_EQ(source.parray->cLocks, 0u);
    }
    const _variant_t last = ArrayOf<LONG>(VT_I4, {42}, INT_MAX);
    EXPECT_EQ(Integers(&last).GetElement(0), 42);
}

TEST(StringArray, EntriesMayBeNullOrHoldNulls) {
    const _variant_t source = ArrayOf<BSTR>(VT_BSTR, {nullptr, MakeText(WITH_NULL), SysAllocString(L"")});
    Strings strings(&source);
    EXPECT_EQ(ListOf(strings), (Texts{L"(null)", L"a", L""}));

    _variant_t target;
    ASSERT_TRUE(strings.PutElementsIntoArray(target));
    const BSTR* const written = static_cast<BSTR*>(target.parray->pvData);
    EXPECT_EQ(written[0], nullptr);
    EXPECT_EQ(Units(written[1]), L"a");
    ASSERT_NE(written[2], nullptr);
    EXPECT_NE(written[1], strings.GetElement(1)) << "the array has copies";
}

// What a helper does with values that it must not read. `good` fills it with `count` elements.
template <typename Helper>
void ExpectRefusals(const _variant_t& good, VARTYPE type, VARTYPE otherType, int count) {
    Helper helper;
    const auto countAfterRefusing = [&](const _variant_t* source) {
        EXPECT_EQ(helper.GetElementsFromArray(&good), count);
        EXPECT_EQ(helper.GetElementsFromArray(source), 0);
        return static_cast<int>(helper.GetElementsCount());
    };
    SAFEARRAY* referenced = good.parray;
    _variant_t reference;
    reference.vt = static_cast<VARTYPE>(VT_BYREF | VT_ARRAY | type);
    reference.pparray = &referenced;
    const _variant_t scalar(L"scalar");
    const _variant_t other = Holding(SafeArrayCreateVector(otherType, 0, 2), otherType);
    for (const _variant_t* const source :
         std::initializer_list<const _variant_t*>{nullptr, &scalar, &other, &reference})
        EXPECT_EQ(countAfterRefusing(source), count) << "the list stays";

    const auto emptiesTheList = [&](const _variant_t& source) { EXPECT_EQ(countAfterRefusing(&source), 0); };
    emptiesTheList(Holding(nullptr, type));
    emptiesTheList(Holding(SafeArrayCreateVector(type, 1, 0), type));
    // The variant says one thing, the array is another: of the same element size, and of another one.
    for (const VARTYPE actual : {otherType, VARTYPE{VT_VARIANT}, VARTYPE{VT_UI1}})
        emptiesTheList(Holding(SafeArrayCreateVector(actual, 0, 2), type));

    const _variant_t hostile = Holding(SafeArrayCreateVector(type, 0, 2), type);
    const SAFEARRAY own = *hostile.parray;
    hostile.parray->cLocks = 65535;
    emptiesTheList(hostile);
    *hostile.parray = own;
    // More elements than an int counts, and upper bounds that wrap around.
    for (const SAFEARRAYBOUND bounds :
         {SAFEARRAYBOUND{UINT_MAX, INT_MIN}, {0x80000000, -1}, {0x80000001, 0}}) {
        hostile.parray->rgsabound[0] = bounds;
        emptiesTheList(hostile);
    }
    *hostile.parray = own;
    hostile.parray->pvData = nullptr;
    emptiesTheList(hostile);
    *hostile.parray = own;
}

TEST(ArrayHelpers, RefuseWhatIsNoArrayOfTheirs) {
    ExpectRefusals<Strings>(ArrayOf<BSTR>(VT_BSTR, {nullptr, nullptr}), VT_BSTR, VT_UNKNOWN, 2);
    ExpectRefusals<Integers>(ArrayOf<LONG>(VT_I4, {1, 2, 3}), VT_I4, VT_UI4, 3);
    ExpectRefusals<Objects>(Holding(SafeArrayCreateVector(VT_UNKNOWN, 0, 2), VT_UNKNOWN), VT_UNKNOWN,
                            VT_DISPATCH, 2);
}

TEST(ArrayHelpers, ReadTheFirstDimensionOfSeveral) {
    const SAFEARRAYBOUND bounds[] = {{2, 1}, {3, -1}};
    _variant_t source = Holding(SafeArrayCreate(VT_I4, 2, bounds), VT_I4);
    for (LONG i = 0; i < 6; ++i)
        static_cast<LONG*>(source.parray->pvData)[i] = 10 + i;
    Integers integers(&source);
    EXPECT_EQ(ListOf(integers), (Numbers{10, 11}));
    // Without elements, although the first dimension counts five.
    const SAFEARRAYBOUND empty[] = {{5, 0}, {3, 0}, {0, 0}};
    source = Holding(SafeArrayCreate(VT_I4, 3, empty), VT_I4);
    EXPECT_EQ(integers.GetElementsFromArray(&source), 0);
}

TEST(ArrayHelpers, WriteWhatTheyReadOfAnySize) {
    for (const int count : {0, 1, 100'000}) {
        SCOPED_TRACE(count);
        Strings strings;
        Integers integers;
        for (int i = 0; i < count; ++i) {
            integers.Add(i);
            strings.Add(i % 3 != 0 ? L"text" : nullptr);
        }
        _variant_t target;
        ASSERT_TRUE(integers.PutElementsIntoArray(target));
        EXPECT_EQ(target.vt, VT_ARRAY | VT_I4);
        EXPECT_EQ(target.parray->rgsabound[0].lLbound, 0);
        Integers integersAgain(&target);
        EXPECT_EQ(ListOf(integersAgain), ListOf(integers));

        ASSERT_TRUE(strings.PutElementsIntoArray(target)) << "what the target held is freed";
        EXPECT_EQ(target.vt, VT_ARRAY | VT_BSTR);
        ASSERT_TRUE(strings.PutElementsIntoArray(target)) << "the list is still there";
        Strings stringsAgain(&target);
        EXPECT_EQ(ListOf(stringsAgain), ListOf(strings));
    }
}

TEST(ArrayHelpers, TargetIsUntouchedByAFailure) {
    Integers integers;
    integers.Add(INT_MIN);
    integers.Add(INT_MAX);
    EXPECT_EQ(integers.GetElement(2), 0);
    _variant_t target = ArrayOf<LONG>(VT_I4, {7});
    for (const long wide : {long{INT_MAX} + 1, long{INT_MIN} - 1, LONG_MIN, 1L << 32}) {
        Integers tooWide(integers);
        tooWide.Add(wide);
        EXPECT_EQ(tooWide.GetElement(2), wide);
        EXPECT_FALSE(tooWide.PutElementsIntoArray(target)) << "never cut";
    }
    SafeArrayLock(target.parray);
    EXPECT_FALSE(integers.PutElementsIntoArray(target));
    EXPECT_EQ(static_cast<LONG*>(target.parray->pvData)[0], 7);
    SafeArrayUnlock(target.parray);
    EXPECT_TRUE(integers.PutElementsIntoArray(target));
    EXPECT_EQ(static_cast<LONG*>(target.parray->pvData)[0], INT_MIN);
}

TEST(ArrayHelpers, CopiesAreIndependent) {
    Strings strings;
    strings.Add(L"a");
    const Strings copy(strings);
    strings.Add(L"b");
    Strings assigned;
    assigned.Add(L"old");
    assigned = strings;
    const Strings& itself = assigned;
    assigned = itself;
    strings = copy;
    EXPECT_EQ(ListOf(strings), Texts{L"a"});
    EXPECT_EQ(ListOf(assigned), (Texts{L"a", L"b"}));
}

TEST(StringArray, TakesNarrowTextInTheLocalEncoding) {
    Strings strings;
    strings.Add("Gr\xC3\xB6\xC3\x9F");
    strings.Add(static_cast<const char*>(nullptr));
    EXPECT_EQ(ComErrorOf([&] { strings.Add("\xC3"); }), HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION));
    EXPECT_EQ(ListOf(strings), (Texts{L"Gr\u00F6\u00DF", L"(null)"}));
}

TEST(StringArray, ExhaustedMemoryChangesNothing) {
    const _variant_t source = ArrayOf<BSTR>(VT_BSTR, {SysAllocString(L"a"), nullptr, SysAllocString(L"c")});
    int failures = 0;
    FailEachAllocation([&] {
        std::optional<Strings> strings;
        {
            const doubles::SparedAllocations spared;
            strings.emplace().Add(L"old");
        }
        const bool isRead = Succeeds([&] { strings->GetElementsFromArray(&source); });
        const bool isAdded = Succeeds([&] { strings->Add(L"more"); });
        const bool isNarrowAdded = Succeeds([&] { strings->Add("narrow"); });
        const std::size_t count = (isRead ? 3u : 1u) + (isAdded ? 1 : 0) + (isNarrowAdded ? 1 : 0);
        EXPECT_EQ(strings->GetElementsCount(), count);
        EXPECT_STREQ(strings->GetElement(0), isRead ? L"a" : L"old");
        Succeeds([&] { EXPECT_EQ(Strings(*strings).GetElementsCount(), count); });
        _variant_t target(5L);
        if (strings->PutElementsIntoArray(target)) {
            EXPECT_EQ(target.vt, VT_ARRAY | VT_BSTR);
        } else {
            EXPECT_TRUE(target == _variant_t(5L));
            ++failures;
        }
    });
    EXPECT_EQ(failures, 6) << "in the array itself, and at each of its elements";
}

class ObjectArrayTest : public ServiceTest {
 protected:
    _variant_t MakeObject(const wchar_t* name) {
        return {service.MakeObject({L"Cls",
                                    false,
                                    {{L"__CLASS", CIM_STRING, _variant_t(L"Cls")},
                                     {L"Count", CIM_SINT32},
                                     {L"Name", CIM_STRING, _variant_t(name)}}}),
                false};
    }

    static _variant_t ObjectArray(std::vector<_variant_t> objects, LONG lower = 0) {
        std::vector<IUnknown*> elements;
        for (_variant_t& object : objects)
            elements.push_back(object.Detach().punkVal);
        return ArrayOf(VT_UNKNOWN, elements, lower);
    }

    // The names of the objects, "(null)" for one without properties.
    static Texts NamesOf(Objects& objects) {
        Texts names;
        for (std::size_t i = 0; i < objects.GetElementsCount(); ++i)
            names.push_back(TextOf(objects.GetElement(i)->GetPropertyValue(L"Name")));
        return names;
    }
};

TEST_F(ObjectArrayTest, IsReadIntoBagsThatTheHelperOwns) {
    const _variant_t source = ObjectArray({MakeObject(L"a"), _variant_t(), MakeObject(L"c")}, 1);
    Objects objects(&source);
    EXPECT_EQ(NamesOf(objects), (Texts{L"a", L"(null)", L"c"}));
    EXPECT_EQ(objects.GetElement(0)->GetProperties()->GetTotalItemCount(), 2u) << "filled at once";
    EXPECT_EQ(objects.GetElement(3), nullptr);
    const _variant_t other = ObjectArray({MakeObject(L"d")});
    EXPECT_EQ(objects.GetElementsFromArray(&other), 1);
    EXPECT_EQ(NamesOf(objects), Texts{L"d"});
}

TEST_F(ObjectArrayTest, IsWrittenWithWhatTheBagsHold) {
    const _variant_t source = ObjectArray({MakeObject(L"a"), _variant_t()});
    _variant_t target(L"old");
    {
        Objects objects(&source);
        objects.GetElement(0)->SetPropertyValue(L"Count", 5);
        ASSERT_TRUE(objects.PutElementsIntoArray(target));
    }
    EXPECT_EQ(target.vt, VT_ARRAY | VT_UNKNOWN);
    IUnknown* const* const written = static_cast<IUnknown**>(target.parray->pvData);
    EXPECT_EQ(written[0], *static_cast<IUnknown**>(source.parray->pvData)) << "the same class object";
    EXPECT_EQ(written[1], nullptr);
    EXPECT_EQ(Objects(&target).GetElement(0)->GetPropertyValue(L"Count")->lVal, 5);
    ASSERT_TRUE(Objects().PutElementsIntoArray(target));
    EXPECT_EQ(Objects(&target).GetElementsCount(), 0u);
}

TEST_F(ObjectArrayTest, AddTakesTheHeldObjectAndLeavesTheCallersOwn) {
    Objects objects;
    const _variant_t text(L"text");
    const CMgmtObjectBase unbound, holdingText(&text, false);
    for (const CMgmtObjectBase* const nothing :
         {static_cast<const CMgmtObjectBase*>(nullptr), &unbound, &holdingText})
        objects.Add(nothing);
    EXPECT_EQ(objects.GetElementsCount(), 0u);
    {
        const _variant_t object = MakeObject(L"mine");
        CMgmtObjectBase mine(&object, false);
        mine.SetPropertyValue(L"Count", 7);
        objects.Add(&mine);
        mine.SetPropertyValue(L"Count", 8);
    }
    EXPECT_EQ(NamesOf(objects), Texts{L"mine"});
    EXPECT_EQ(objects.GetElement(0)->GetPropertyValue(L"Count")->lVal, 7) << "a bag of its own";
}

TEST_F(ObjectArrayTest, CopiesOwnObjectsOfTheirOwn) {
    const _variant_t source = ObjectArray({MakeObject(L"a"), MakeObject(L"b")});
    std::optional<Objects> objects(&source);
    Objects copy(*objects);
    const _variant_t old = ObjectArray({MakeObject(L"old")});
    Objects assigned(&old);
    assigned = *objects;
    const Objects& itself = assigned;
    assigned = itself;
    EXPECT_NE(copy.GetElement(0), objects->GetElement(0));
    objects.reset();
    EXPECT_EQ(NamesOf(copy), (Texts{L"a", L"b"}));
    EXPECT_EQ(NamesOf(assigned), (Texts{L"a", L"b"}));
}

TEST_F(ObjectArrayTest, SourceMayLieInTheListThatItReplaces) {
    const _variant_t outer = ObjectArray({MakeObject(L"outer")});
    Objects objects(&outer);
    objects.GetElement(0)->SetPropertyValue(L"Nested", ObjectArray({MakeObject(L"inner")}));
    EXPECT_EQ(objects.GetElementsFromArray(objects.GetElement(0)->GetPropertyValue(L"Nested")), 1);
    EXPECT_EQ(NamesOf(objects), Texts{L"inner"});
}

TEST_F(ObjectArrayTest, ExhaustedMemoryChangesNothing) {
    const _variant_t source = ObjectArray({MakeObject(L"a"), MakeObject(L"b")});
    const _variant_t bound = MakeObject(L"old");
    const CMgmtObjectBase old(&bound, true);
    Objects filled(&source);
    service.Forget();
    // Each on a list of one object, which must stay when the attempt fails.
    const std::pair<std::size_t, std::function<void(Objects&)>> attempts[] = {
        {2, [&](Objects& objects) { objects.GetElementsFromArray(&source); }},
        {2, [&](Objects& objects) { objects.Add(&old); }},
        {2, [&](Objects& objects) { objects = filled; }},
        {1, [&](Objects&) { EXPECT_EQ(Objects(filled).GetElementsCount(), 2u); }},
        {1, [&](Objects&) {
             _variant_t target(5L);
             const bool isWritten = filled.PutElementsIntoArray(target);
             EXPECT_NE(isWritten, target == _variant_t(5L));
         }}};
    for (const auto& [countAfter, attempt] : attempts)
        FailEachAllocation([&, &count = countAfter, &action = attempt] {
            std::optional<Objects> objects;
            {
                const doubles::SparedAllocations spared;
                objects.emplace().Add(&old);
            }
            CMgmtObjectBase* const first = objects->GetElement(0);
            const bool isDone = Succeeds([&] { action(*objects); });
            EXPECT_EQ(objects->GetElementsCount(), isDone ? count : 1);
            EXPECT_TRUE(isDone || objects->GetElement(0) == first);
            objects.reset();
            service.Forget();
        });
}

}  // namespace
