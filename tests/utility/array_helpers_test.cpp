#include <climits>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tests/platform/automation_values.h"
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

_variant_t IntegerArray(const std::vector<LONG>& elements, LONG lower = 0) {
    SAFEARRAY* const array = SafeArrayCreateVector(VT_I4, lower, static_cast<ULONG>(elements.size()));
    for (std::size_t i = 0; i < elements.size(); ++i)
        static_cast<LONG*>(array->pvData)[i] = elements[i];
    return Holding(array, VT_I4);
}

// The array owns the strings.
_variant_t StringArray(const std::vector<BSTR>& elements, LONG lower = 0) {
    SAFEARRAY* const array = SafeArrayCreateVector(VT_BSTR, lower, static_cast<ULONG>(elements.size()));
    for (std::size_t i = 0; i < elements.size(); ++i)
        static_cast<BSTR*>(array->pvData)[i] = elements[i];
    return Holding(array, VT_BSTR);
}

// The list, "(null)" for a null entry.
std::vector<std::wstring> ListOf(Strings& strings) {
    std::vector<std::wstring> list;
    for (std::size_t i = 0; i < strings.GetElementsCount(); ++i) {
        const wchar_t* const text = strings.GetElement(i);
        list.emplace_back(text != nullptr ? text : L"(null)");
    }
    return list;
}

std::vector<long> ListOf(Integers& integers) {
    std::vector<long> list;
    for (std::size_t i = 0; i < integers.GetElementsCount(); ++i)
        list.push_back(integers.GetElement(i));
    return list;
}

using Texts = std::vector<std::wstring>;
using Numbers = std::vector<long>;

TEST(StringArray, IsReadWhateverItsLowerBound) {
    for (const LONG lower : {0, 1, -5, INT_MAX - 1, INT_MIN}) {
        SCOPED_TRACE(lower);
        const _variant_t source = StringArray({SysAllocString(L"first"), SysAllocString(L"second")}, lower);
        Strings strings;
        EXPECT_EQ(strings.GetElementsFromArray(&source), 2);
        EXPECT_EQ(ListOf(strings), (Texts{L"first", L"second"}));
        EXPECT_EQ(strings.GetElement(2), nullptr);
        EXPECT_EQ(strings.GetElement(SIZE_MAX), nullptr);
        EXPECT_EQ(source.parray->cLocks, 0u);
    }
    const _variant_t last = IntegerArray({42}, INT_MAX);
    EXPECT_EQ(Integers(&last).GetElement(0), 42);
}

TEST(StringArray, EntriesMayBeNullOrHoldNulls) {
    const _variant_t source = StringArray({nullptr, MakeText(WITH_NULL), SysAllocString(L"")});
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
    const auto keepsTheList = [&](const _variant_t* source) {
        EXPECT_EQ(helper.GetElementsFromArray(&good), count);
        EXPECT_EQ(helper.GetElementsFromArray(source), 0);
        EXPECT_EQ(helper.GetElementsCount(), static_cast<std::size_t>(count));
    };
    const auto emptiesTheList = [&](const _variant_t& source) {
        EXPECT_EQ(helper.GetElementsFromArray(&good), count);
        EXPECT_EQ(helper.GetElementsFromArray(&source), 0);
        EXPECT_EQ(helper.GetElementsCount(), 0u);
    };
    keepsTheList(nullptr);
    const _variant_t scalar(L"scalar");
    keepsTheList(&scalar);
    const _variant_t other = Holding(SafeArrayCreateVector(otherType, 0, 2), otherType);
    keepsTheList(&other);
    SAFEARRAY* referenced = good.parray;
    _variant_t reference;
    reference.vt = static_cast<VARTYPE>(VT_BYREF | VT_ARRAY | type);
    reference.pparray = &referenced;
    keepsTheList(&reference);

    emptiesTheList(Holding(nullptr, type));
    emptiesTheList(Holding(SafeArrayCreateVector(type, 1, 0), type));
    // The variant says one thing, the array is another: of the same element size, and of another one.
    emptiesTheList(Holding(SafeArrayCreateVector(otherType, 0, 2), type));
    emptiesTheList(Holding(SafeArrayCreateVector(VT_VARIANT, 0, 2), type));
    emptiesTheList(Holding(SafeArrayCreateVector(VT_UI1, 0, 2), type));

    _variant_t locked = Holding(SafeArrayCreateVector(type, 0, 2), type);
    locked.parray->cLocks = 65535;
    emptiesTheList(locked);
    locked.parray->cLocks = 0;

    // Bounds that nobody would make: more elements than an int counts, and an upper bound that wraps around.
    for (const SAFEARRAYBOUND hostile :
         {SAFEARRAYBOUND{UINT_MAX, INT_MIN}, {0x80000000, -1}, {0x80000001, 0}}) {
        const SAFEARRAYBOUND own = std::exchange(locked.parray->rgsabound[0], hostile);
        emptiesTheList(locked);
        locked.parray->rgsabound[0] = own;
    }
    void* const data = std::exchange(locked.parray->pvData, nullptr);
    emptiesTheList(locked);
    locked.parray->pvData = data;
}

TEST(ArrayHelpers, RefuseWhatIsNoArrayOfTheirs) {
    ExpectRefusals<Strings>(StringArray({nullptr, nullptr}), VT_BSTR, VT_UNKNOWN, 2);
    ExpectRefusals<Integers>(IntegerArray({1, 2, 3}), VT_I4, VT_UI4, 3);
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
    for (const VARTYPE type : {VT_I4, VT_BSTR}) {
        const SAFEARRAYBOUND empty[] = {{5, 0}, {3, 0}, {0, 0}};
        source = Holding(SafeArrayCreate(type, 3, empty), type);
        EXPECT_EQ(integers.GetElementsFromArray(&source), 0);
        EXPECT_EQ(Strings(&source).GetElementsCount(), 0u);
    }
}

TEST(ArrayHelpers, WriteWhatTheyReadOfAnySize) {
    for (const int count : {0, 1, 1'000'000}) {
        SCOPED_TRACE(count);
        Strings strings;
        Integers integers;
        for (int i = 0; i < count; ++i) {
            integers.Add(i);
            if (i % 3 != 0) {
                strings.Add(L"text");
            } else {
                strings.Add(static_cast<const wchar_t*>(nullptr));
            }
        }
        _variant_t target;
        ASSERT_TRUE(integers.PutElementsIntoArray(target));
        EXPECT_EQ(target.vt, VT_ARRAY | VT_I4);
        LONG lower = 1;
        EXPECT_EQ(SafeArrayGetLBound(target.parray, 1, &lower), S_OK);
        EXPECT_EQ(lower, 0);
        EXPECT_EQ(Integers(&target).GetElementsCount(), static_cast<std::size_t>(count));
        Integers again;
        EXPECT_EQ(again.GetElementsFromArray(&target), count);
        EXPECT_EQ(again.GetElement(static_cast<std::size_t>(count / 2)), count / 2);

        ASSERT_TRUE(strings.PutElementsIntoArray(target)) << "what the target held is freed";
        EXPECT_EQ(target.vt, VT_ARRAY | VT_BSTR);
        ASSERT_TRUE(strings.PutElementsIntoArray(target)) << "the list is still there";
        Strings readAgain(&target);
        EXPECT_EQ(ListOf(readAgain), ListOf(strings));
    }
}

TEST(ArrayHelpers, TargetIsUntouchedByAFailure) {
    Integers integers;
    integers.Add(1);
    integers.Add(INT_MIN);
    integers.Add(INT_MAX);
    _variant_t target(L"kept");
    for (std::size_t place = 0; place < 3; ++place) {
        for (const long wide : {long{INT_MAX} + 1, long{INT_MIN} - 1, LONG_MIN, 1L << 32}) {
            Integers tooWide;
            for (std::size_t i = 0; i < 3; ++i)
                tooWide.Add(i == place ? wide : 5);
            EXPECT_EQ(tooWide.GetElement(place), wide);
            EXPECT_FALSE(tooWide.PutElementsIntoArray(target)) << "never cut";
        }
    }
    EXPECT_EQ(TextOf(target), L"kept");

    _variant_t locked = IntegerArray({7});
    SafeArrayLock(locked.parray);
    EXPECT_FALSE(integers.PutElementsIntoArray(locked));
    EXPECT_EQ(static_cast<LONG*>(locked.parray->pvData)[0], 7);
    SafeArrayUnlock(locked.parray);
    EXPECT_TRUE(integers.PutElementsIntoArray(locked));
    EXPECT_EQ(ListOf(integers), (Numbers{1, INT_MIN, INT_MAX}));
    EXPECT_EQ(integers.GetElement(3), 0);
}

TEST(ArrayHelpers, CopiesAreIndependent) {
    Strings strings;
    strings.Add(L"a");
    Strings copy(strings);
    strings.Add(L"b");
    Strings assigned;
    assigned.Add(L"old");
    assigned = strings;
    const Strings& itself = assigned;
    assigned = itself;
    strings = copy;
    EXPECT_EQ(ListOf(copy), Texts{L"a"});
    EXPECT_EQ(ListOf(strings), Texts{L"a"});
    EXPECT_EQ(ListOf(assigned), (Texts{L"a", L"b"}));
}

TEST(StringArray, TakesNarrowTextInTheLocalEncoding) {
    Strings strings;
    strings.Add(
        "Gr\xC3\xB6\xC3\x9F"
        "e");
    strings.Add(static_cast<const char*>(nullptr));
    EXPECT_EQ(ComErrorOf([&] { strings.Add("\xC3"); }), HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION));
    EXPECT_EQ(ListOf(strings), (Texts{L"Gr\u00F6\u00DFe", L"(null)"}));
}

// Runs the action; false when it told that memory is exhausted.
template <typename Action>
bool Succeeds(const Action& action) {
    try {
        action();
        return true;
    } catch (const _com_error& failure) {
        EXPECT_EQ(failure.Error(), E_OUTOFMEMORY);
    } catch (const CAtlException& failure) {
        EXPECT_EQ(failure.m_hr, E_OUTOFMEMORY);
    } catch (const std::bad_alloc&) {
    }
    return false;
}

TEST(StringArray, ExhaustedMemoryChangesNothing) {
    const _variant_t source = StringArray({SysAllocString(L"a"), nullptr, SysAllocString(L"c")});
    FailEachAllocation([&] {
        std::optional<Strings> strings;
        {
            const doubles::SparedAllocations spared;
            strings.emplace().Add(L"old");
        }
        int count = 0;
        const bool isRead = Succeeds([&] { count = strings->GetElementsFromArray(&source); });
        const doubles::SparedAllocations spared;
        EXPECT_EQ(ListOf(*strings), isRead ? (Texts{L"a", L"(null)", L"c"}) : Texts{L"old"});
        EXPECT_EQ(count, isRead ? 3 : 0);
    });
    // Fails in the array itself and at the first, the middle and the last element.
    Strings strings;
    for (const wchar_t* const text : {L"first", L"middle", L"last"})
        strings.Add(text);
    int failures = 0;
    FailEachAllocation([&] {
        _variant_t target(5L);
        if (strings.PutElementsIntoArray(target)) {
            EXPECT_EQ(target.vt, VT_ARRAY | VT_BSTR);
        } else {
            EXPECT_TRUE(target == _variant_t(5L));
            ++failures;
        }
    });
    EXPECT_EQ(failures, 5);
    FailEachAllocation([&] {
        std::optional<Strings> copy;
        if (!Succeeds([&] { copy.emplace(strings); })) return;
        const bool isAdded = Succeeds([&] { copy->Add(L"more"); });
        const bool isNarrowAdded = Succeeds([&] { copy->Add("narrow"); });
        EXPECT_EQ(copy->GetElementsCount(), 3u + (isAdded ? 1 : 0) + (isNarrowAdded ? 1 : 0));
    });
}

class ObjectArrayTest : public ServiceTest {
 protected:
    _variant_t MakeObject(const wchar_t* name) {
        doubles::Content content{L"Cls",
                                 false,
                                 {{L"__CLASS", CIM_STRING, _variant_t(L"Cls")},
                                  {L"Count", CIM_SINT32},
                                  {L"Name", CIM_STRING, _variant_t(name)}}};
        return {service.MakeObject(content), false};
    }

    static _variant_t ObjectArray(const std::vector<_variant_t>& objects, LONG lower = 0) {
        SAFEARRAY* const array = SafeArrayCreateVector(VT_UNKNOWN, lower, static_cast<ULONG>(objects.size()));
        for (std::size_t i = 0; i < objects.size(); ++i) {
            const LONG index = static_cast<LONG>(lower + static_cast<LONG>(i));
            SafeArrayPutElement(array, &index, objects[i].punkVal);
        }
        return Holding(array, VT_UNKNOWN);
    }

    // The names of the objects, "(unbound)" for one without properties.
    static Texts NamesOf(Objects& objects) {
        Texts names;
        for (std::size_t i = 0; i < objects.GetElementsCount(); ++i) {
            const _variant_t* const name = objects.GetElement(i)->GetPropertyValue(L"Name");
            names.push_back(name != nullptr ? TextOf(name) : L"(unbound)");
        }
        return names;
    }
};

TEST_F(ObjectArrayTest, IsReadIntoBagsThatTheHelperOwns) {
    {
        const _variant_t source = ObjectArray({MakeObject(L"a"), _variant_t(), MakeObject(L"c")}, 1);
        Objects objects(&source);
        EXPECT_EQ(NamesOf(objects), (Texts{L"a", L"(unbound)", L"c"}));
        EXPECT_EQ(objects.GetElement(0)->GetProperties()->GetTotalItemCount(), 2u) << "filled at once";
        EXPECT_EQ(objects.GetElement(3), nullptr);

        const _variant_t other = ObjectArray({MakeObject(L"d")});
        EXPECT_EQ(objects.GetElementsFromArray(&other), 1);
        EXPECT_EQ(NamesOf(objects), Texts{L"d"});
    }
    EXPECT_EQ(service.LiveObjects(), 1);
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
    Objects again(&target);
    EXPECT_EQ(again.GetElement(0)->GetPropertyValue(L"Count")->lVal, 5);

    ASSERT_TRUE(Objects().PutElementsIntoArray(target));
    EXPECT_EQ(target.vt, VT_ARRAY | VT_UNKNOWN);
    EXPECT_EQ(Objects(&target).GetElementsCount(), 0u);
}

TEST_F(ObjectArrayTest, AddTakesTheHeldObjectAndLeavesTheCallersOwn) {
    Objects objects;
    objects.Add(nullptr);
    const CMgmtObjectBase unbound;
    objects.Add(&unbound);
    const _variant_t text(L"text");
    const CMgmtObjectBase holdingText(&text, false);
    objects.Add(&holdingText);
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
    std::optional<Objects> objects(std::in_place);
    const _variant_t source = ObjectArray({MakeObject(L"a"), MakeObject(L"b")});
    objects->GetElementsFromArray(&source);
    Objects copy(*objects);
    Objects assigned;
    const _variant_t bound = MakeObject(L"old");
    const CMgmtObjectBase old(&bound, true);
    assigned.Add(&old);
    assigned = *objects;
    const Objects& itself = assigned;
    CMgmtObjectBase* const first = assigned.GetElement(0);
    assigned = itself;
    EXPECT_EQ(assigned.GetElement(0), first);
    EXPECT_NE(copy.GetElement(0), objects->GetElement(0));
    objects.reset();
    EXPECT_EQ(NamesOf(copy), (Texts{L"a", L"b"}));
    EXPECT_EQ(NamesOf(assigned), (Texts{L"a", L"b"}));
}

TEST_F(ObjectArrayTest, SourceMayLieInTheListThatItReplaces) {
    const _variant_t outer = MakeObject(L"outer");
    CMgmtObjectBase bag(&outer, true);
    Objects objects;
    objects.Add(&bag);
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

    // Runs the attempt on a list of one object, which must stay when the attempt fails.
    const auto sweep = [&](std::size_t countAfter, const std::function<void(Objects&)>& attempt) {
        FailEachAllocation([&] {
            std::optional<Objects> objects;
            {
                const doubles::SparedAllocations spared;
                objects.emplace().Add(&old);
            }
            CMgmtObjectBase* const first = objects->GetElement(0);
            const bool isDone = Succeeds([&] { attempt(*objects); });
            EXPECT_EQ(objects->GetElementsCount(), isDone ? countAfter : 1);
            if (!isDone) {
                EXPECT_EQ(objects->GetElement(0), first);
            }
            objects.reset();
            service.Forget();
        });
    };
    sweep(2, [&](Objects& objects) { objects.GetElementsFromArray(&source); });
    sweep(2, [&](Objects& objects) { objects.Add(&old); });
    sweep(2, [&](Objects& objects) { objects = filled; });
    sweep(1, [&](Objects&) { EXPECT_EQ(Objects(filled).GetElementsCount(), 2u); });
    sweep(1, [&](Objects&) { Objects made(&source); });
    sweep(1, [&](Objects&) {
        _variant_t target(5L);
        if (!filled.PutElementsIntoArray(target)) {
            EXPECT_TRUE(target == _variant_t(5L));
        }
    });
}

}  // namespace
