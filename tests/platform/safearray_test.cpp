#include <climits>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>
#include <oleauto.h>

#include "tests/platform/automation_values.h"

namespace {

LONG Sum(SAFEARRAY* array, LONG first, LONG last) {
    LONG sum = 0;
    for (std::int64_t i = first; i <= last; ++i) {
        const LONG index = static_cast<LONG>(i);
        LONG element = 0;
        EXPECT_EQ(SafeArrayGetElement(array, &index, &element), S_OK);
        sum += element;
    }
    return sum;
}

HRESULT Put(SAFEARRAY* array, LONG index, const std::wstring& units) {
    BSTR text = MakeText(units);
    const HRESULT status = SafeArrayPutElement(array, &index, text);
    SysFreeString(text);
    return status;
}

std::wstring Get(SAFEARRAY* array, LONG index) {
    BSTR text = nullptr;
    EXPECT_EQ(SafeArrayGetElement(array, &index, &text), S_OK);
    const std::wstring units = Units(text);
    SysFreeString(text);
    return units;
}

TEST(SafeArray, AnyLowerBound) {
    for (const LONG lower : {-5, 0, 1, INT_MAX - 2, INT_MIN}) {
        SCOPED_TRACE(lower);
        SAFEARRAY* array = SafeArrayCreateVector(VT_I4, lower, 3);
        ASSERT_NE(array, nullptr);
        LONG bound = 0;
        EXPECT_EQ(SafeArrayGetLBound(array, 1, &bound), S_OK);
        EXPECT_EQ(bound, lower);
        EXPECT_EQ(SafeArrayGetUBound(array, 1, &bound), S_OK);
        EXPECT_EQ(bound, lower + 2);
        for (LONG i = 0; i < 3; ++i) {
            const LONG index = lower + i;
            LONG element = i + 1;
            EXPECT_EQ(SafeArrayPutElement(array, &index, &element), S_OK);
        }
        EXPECT_EQ(Sum(array, lower, lower + 2), 6);

        LONG element = 7;
        const LONG outside = lower == INT_MIN ? lower + 3 : lower - 1;
        EXPECT_EQ(SafeArrayPutElement(array, &outside, &element), DISP_E_BADINDEX);
        EXPECT_EQ(SafeArrayGetElement(array, &outside, &element), DISP_E_BADINDEX);
        EXPECT_EQ(element, 7);
        EXPECT_EQ(SafeArrayDestroy(array), S_OK);
    }
}

TEST(SafeArray, OneElementAtTheEndsOfTheRange) {
    for (const LONG only : {INT_MAX, INT_MIN}) {
        SCOPED_TRACE(only);
        const SAFEARRAYBOUND bounds[] = {{1, only}, {2, only == INT_MAX ? INT_MAX - 1 : only}};
        SAFEARRAY* array = SafeArrayCreate(VT_I4, 2, bounds);
        ASSERT_NE(array, nullptr);
        LONG upper = 0;
        EXPECT_EQ(SafeArrayGetUBound(array, 1, &upper), S_OK);
        EXPECT_EQ(upper, only);
        LONG indices[] = {only, bounds[1].lLbound + 1};
        LONG element = 5;
        EXPECT_EQ(SafeArrayPutElement(array, indices, &element), S_OK);
        for (const LONG outside : {only == INT_MAX ? only - 1 : only + 1, 0}) {
            indices[0] = outside;
            EXPECT_EQ(SafeArrayPutElement(array, indices, &element), DISP_E_BADINDEX);
        }
        EXPECT_EQ(static_cast<LONG*>(array->pvData)[1], 5);
        EXPECT_EQ(SafeArrayDestroy(array), S_OK);
    }
}

TEST(SafeArray, ThreeDimensionsWithTheirOwnBounds) {
    const SAFEARRAYBOUND bounds[] = {{2, -5}, {3, INT_MAX - 2}, {4, INT_MIN}};
    SAFEARRAY* array = SafeArrayCreate(VT_I4, 3, bounds);
    ASSERT_NE(array, nullptr);
    LONG count = 0;
    for (LONG third = 0; third < 4; ++third) {
        for (LONG second = 0; second < 3; ++second) {
            for (LONG first = 0; first < 2; ++first, ++count) {
                const LONG indices[] = {-5 + first, INT_MAX - 2 + second, INT_MIN + third};
                EXPECT_EQ(SafeArrayPutElement(array, indices, &count), S_OK);
            }
        }
    }
    const LONG* const elements = static_cast<LONG*>(array->pvData);
    for (LONG i = 0; i < count; ++i)
        EXPECT_EQ(elements[i], i);
    const LONG outside[] = {-5, INT_MIN, INT_MIN};
    EXPECT_EQ(SafeArrayPutElement(array, outside, &count), DISP_E_BADINDEX);
    EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

TEST(SafeArray, EmptyArrayEndsBelowItsStart) {
    SAFEARRAY* array = SafeArrayCreateVector(VT_BSTR, 1, 0);
    LONG upper = 5;
    EXPECT_EQ(SafeArrayGetUBound(array, 1, &upper), S_OK);
    EXPECT_EQ(upper, 0);
    SAFEARRAY* copy = nullptr;
    EXPECT_EQ(SafeArrayCopy(array, &copy), S_OK);
    const LONG index = 1;
    EXPECT_EQ(SafeArrayPutElement(copy, &index, nullptr), DISP_E_BADINDEX);
    EXPECT_EQ(SafeArrayDestroy(copy), S_OK);
    EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

TEST(SafeArray, RefusesWhatCannotBeMade) {
    EXPECT_EQ(SafeArrayCreateVector(VT_I4, INT_MAX, 2), nullptr);
    EXPECT_EQ(SafeArrayCreateVector(VT_I4, INT_MIN, 0), nullptr);
    EXPECT_EQ(SafeArrayCreateVector(VT_I4, 0, UINT32_MAX), nullptr);
    EXPECT_EQ(SafeArrayCreateVector(VT_EMPTY, 0, 1), nullptr);
    EXPECT_EQ(SafeArrayCreateVector(VT_ARRAY | VT_I4, 0, 1), nullptr);
    const SAFEARRAYBOUND one[] = {{1, 0}};
    EXPECT_EQ(SafeArrayCreate(VT_I4, 0, one), nullptr);
    EXPECT_EQ(SafeArrayCreate(VT_I4, 1, nullptr), nullptr);

    // 2^16 * 2^16 * 2^32 elements: the product of the first two would already wrap around 32 bits, all of
    // them 64.
    const SAFEARRAYBOUND huge[] = {{0x10000, 0}, {0x10000, 0}, {0x80000000, INT_MIN}, {2, 0}};
    EXPECT_EQ(SafeArrayCreate(VT_UI1, 2, huge), nullptr);
    EXPECT_EQ(SafeArrayCreate(VT_UI1, 4, huge), nullptr);
}

TEST(SafeArray, TwoDimensionsRunLeftmostFastest) {
    const SAFEARRAYBOUND bounds[] = {{2, 1}, {3, -1}};
    SAFEARRAY* array = SafeArrayCreate(VT_I4, 2, bounds);
    ASSERT_NE(array, nullptr);
    EXPECT_EQ(SafeArrayGetDim(array), 2u);
    EXPECT_EQ(SafeArrayGetElemsize(array), 4u);
    EXPECT_EQ(array->rgsabound[0].cElements, 3u);

    LONG lower = 0;
    LONG upper = 0;
    EXPECT_EQ(SafeArrayGetLBound(array, 2, &lower), S_OK);
    EXPECT_EQ(SafeArrayGetUBound(array, 2, &upper), S_OK);
    EXPECT_EQ(lower, -1);
    EXPECT_EQ(upper, 1);
    EXPECT_EQ(SafeArrayGetLBound(array, 0, &lower), DISP_E_BADINDEX);
    EXPECT_EQ(SafeArrayGetUBound(array, 3, &upper), DISP_E_BADINDEX);

    for (LONG column = -1; column <= 1; ++column) {
        for (LONG row = 1; row <= 2; ++row) {
            const LONG indices[] = {row, column};
            LONG element = 10 * row + column;
            EXPECT_EQ(SafeArrayPutElement(array, indices, &element), S_OK);
        }
    }
    const LONG outside[] = {1, 2};
    LONG element = 0;
    EXPECT_EQ(SafeArrayGetElement(array, outside, &element), DISP_E_BADINDEX);

    SAFEARRAY* copy = nullptr;
    ASSERT_EQ(SafeArrayCopy(array, &copy), S_OK);
    EXPECT_EQ(SafeArrayDestroy(array), S_OK);
    void* data = nullptr;
    ASSERT_EQ(SafeArrayAccessData(copy, &data), S_OK);
    const LONG* const elements = static_cast<LONG*>(data);
    EXPECT_EQ(std::vector<LONG>(elements, elements + 6), (std::vector<LONG>{9, 19, 10, 20, 11, 21}));
    EXPECT_EQ(SafeArrayUnaccessData(copy), S_OK);
    EXPECT_EQ(SafeArrayDestroy(copy), S_OK);
}

TEST(SafeArray, StringsAreCopiedOverTheirFullLength) {
    SAFEARRAY* array = SafeArrayCreateVector(VT_BSTR, 0, 2);
    EXPECT_EQ(Put(array, 0, WITH_NULL), S_OK);
    EXPECT_EQ(Put(array, 0, WITH_NULL + L"c"), S_OK);
    SAFEARRAY* copy = nullptr;
    ASSERT_EQ(SafeArrayCopy(array, &copy), S_OK);
    EXPECT_EQ(Put(array, 0, L"changed"), S_OK);
    EXPECT_EQ(Get(copy, 0), WITH_NULL + L"c");

    // A string that was never set stays null, which an empty one is not.
    const LONG index = 1;
    BSTR text = SysAllocString(L"old");
    BSTR const old = text;
    EXPECT_EQ(SafeArrayGetElement(copy, &index, &text), S_OK);
    EXPECT_EQ(text, nullptr);
    SysFreeString(old);
    EXPECT_EQ(SafeArrayDestroy(copy), S_OK);
    EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

TEST(SafeArray, InterfacesAndVariantsAreOwnedByTheArray) {
    std::atomic<long> live{0};
    auto* const object = new CountedObject(live);
    object->AddRef();
    const LONG index = 0;

    SAFEARRAY* objects = SafeArrayCreateVector(VT_UNKNOWN, 0, 2);
    EXPECT_EQ(SafeArrayPutElement(objects, &index, static_cast<IUnknown*>(object)), S_OK);
    // Put over itself: the new reference comes before the old one goes.
    EXPECT_EQ(SafeArrayPutElement(objects, &index, static_cast<IUnknown*>(object)), S_OK);

    VARIANT value{};
    value.vt = VT_ARRAY | VT_UNKNOWN;
    value.parray = objects;
    SAFEARRAY* values = SafeArrayCreateVector(VT_VARIANT, 0, 1);
    EXPECT_EQ(SafeArrayPutElement(values, &index, &value), S_OK);
    EXPECT_EQ(SafeArrayDestroy(objects), S_OK);

    VARIANT got{};
    EXPECT_EQ(SafeArrayGetElement(values, &index, &got), S_OK);
    EXPECT_EQ(got.vt, VT_ARRAY | VT_UNKNOWN);
    EXPECT_EQ(object->Release(), 2u);
    EXPECT_EQ(SafeArrayDestroy(values), S_OK);
    EXPECT_EQ(live, 1);
    EXPECT_EQ(VariantClear(&got), S_OK);
    EXPECT_EQ(live, 0);
}

TEST(SafeArray, ALockedArrayIsNotDestroyed) {
    SAFEARRAY* array = SafeArrayCreateVector(VT_I4, 0, 1);
    void* data = nullptr;
    EXPECT_EQ(SafeArrayUnlock(array), E_UNEXPECTED);
    EXPECT_EQ(SafeArrayAccessData(array, &data), S_OK);
    EXPECT_EQ(SafeArrayLock(array), S_OK);
    EXPECT_EQ(SafeArrayUnaccessData(array), S_OK);
    EXPECT_EQ(SafeArrayDestroy(array), DISP_E_ARRAYISLOCKED);

    SAFEARRAY* copy = nullptr;
    EXPECT_EQ(SafeArrayCopy(array, &copy), S_OK);
    EXPECT_EQ(SafeArrayDestroy(copy), S_OK);
    EXPECT_EQ(SafeArrayUnlock(array), S_OK);
    EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

TEST(SafeArray, LocksAreCountedUpToTheirLimit) {
    SAFEARRAY* array = SafeArrayCreateVector(VT_I4, 0, 1);
    for (int i = 0; i < 65535; ++i)
        ASSERT_EQ(SafeArrayLock(array), S_OK);
    void* data = array;
    EXPECT_EQ(SafeArrayAccessData(array, &data), E_UNEXPECTED);
    EXPECT_EQ(data, nullptr);
    for (int i = 0; i < 65535; ++i)
        ASSERT_EQ(SafeArrayUnlock(array), S_OK);
    EXPECT_EQ(SafeArrayUnlock(array), E_UNEXPECTED);
    EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

TEST(SafeArray, AnElementThatCannotBeReplacedStays) {
    VARIANT locked{};
    locked.vt = VT_ARRAY | VT_I4;
    locked.parray = SafeArrayCreateVector(VT_I4, 0, 1);
    SAFEARRAY* array = SafeArrayCreateVector(VT_VARIANT, 0, 1);
    const LONG index = 0;
    ASSERT_EQ(SafeArrayPutElement(array, &index, &locked), S_OK);
    EXPECT_EQ(VariantClear(&locked), S_OK);

    void* data = nullptr;
    ASSERT_EQ(SafeArrayAccessData(array, &data), S_OK);
    SAFEARRAY* const inner = static_cast<VARIANT*>(data)->parray;
    ASSERT_EQ(SafeArrayLock(inner), S_OK);
    VARIANT text{};
    text.vt = VT_BSTR;
    text.bstrVal = SysAllocString(L"new");
    EXPECT_EQ(SafeArrayPutElement(array, &index, &text), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(static_cast<VARIANT*>(data)->parray, inner);
    EXPECT_EQ(SafeArrayUnlock(inner), S_OK);
    EXPECT_EQ(SafeArrayPutElement(array, &index, &text), S_OK);
    EXPECT_EQ(VariantClear(&text), S_OK);
    EXPECT_EQ(SafeArrayUnaccessData(array), S_OK);
    EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

TEST(SafeArray, ExhaustedMemoryLeavesNothingBehind) {
    SAFEARRAY* source = SafeArrayCreateVector(VT_BSTR, 0, 3);
    for (LONG i = 0; i < 3; ++i)
        ASSERT_EQ(Put(source, i, L"text"), S_OK);
    FailEachAllocation([&] {
        SAFEARRAY* copy = nullptr;
        const HRESULT status = SafeArrayCopy(source, &copy);
        EXPECT_EQ(status, copy != nullptr ? S_OK : E_OUTOFMEMORY);
        SafeArrayDestroy(copy);
    });
    FailEachAllocation([] {
        const SAFEARRAYBOUND bounds[] = {{2, 0}, {2, 0}};
        SafeArrayDestroy(SafeArrayCreate(VT_I4, 2, bounds));
    });
    BSTR text = SysAllocString(L"new");
    const LONG index = 1;
    {
        const doubles::FailingAllocation failing(1);
        EXPECT_EQ(SafeArrayPutElement(source, &index, text), E_OUTOFMEMORY);
    }
    EXPECT_EQ(Get(source, 1), L"text");
    SysFreeString(text);
    EXPECT_EQ(SafeArrayDestroy(source), S_OK);
}

}  // namespace
