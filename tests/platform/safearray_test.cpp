#include <climits>
#include <cstdint>
#include <memory>
#include <vector>

#include <gtest/gtest.h>
#include <oleauto.h>

#include "tests/platform/automation_values.h"

namespace {

struct Destroy {
    void operator()(SAFEARRAY* array) const { EXPECT_EQ(SafeArrayDestroy(array), S_OK); }
};
using Array = std::unique_ptr<SAFEARRAY, Destroy>;

Array Vector(VARTYPE type, LONG lower, ULONG count) {
    return Array(SafeArrayCreateVector(type, lower, count));
}

Array CopyOf(const Array& array) {
    SAFEARRAY* copy = nullptr;
    EXPECT_EQ(SafeArrayCopy(array.get(), &copy), S_OK);
    return Array(copy);
}

HRESULT Put(const Array& array, LONG index, const std::wstring& units) {
    const _bstr_t text(MakeText(units), false);
    return SafeArrayPutElement(array.get(), &index, text.GetBSTR());
}

std::wstring Get(const Array& array, LONG index) {
    CComBSTR text;
    EXPECT_EQ(SafeArrayGetElement(array.get(), &index, &text), S_OK);
    return Units(text);
}

TEST(SafeArray, AnyLowerBound) {
    for (const LONG lower : {-5, 0, 1, INT_MAX - 2, INT_MIN}) {
        SCOPED_TRACE(lower);
        const Array array = Vector(VT_I4, lower, 3);
        ASSERT_NE(array, nullptr);
        LONG bound = 0;
        EXPECT_EQ(SafeArrayGetLBound(array.get(), 1, &bound), S_OK);
        EXPECT_EQ(bound, lower);
        EXPECT_EQ(SafeArrayGetUBound(array.get(), 1, &bound), S_OK);
        EXPECT_EQ(bound, lower + 2);
        for (LONG i = 0; i < 3; ++i) {
            const LONG index = lower + i;
            LONG element = i + 1, read = 0;
            EXPECT_EQ(SafeArrayPutElement(array.get(), &index, &element), S_OK);
            EXPECT_EQ(SafeArrayGetElement(array.get(), &index, &read), S_OK);
            EXPECT_EQ(read, element);
        }
        LONG element = 7;
        const LONG outside = lower == INT_MIN ? lower + 3 : lower - 1;
        EXPECT_EQ(SafeArrayPutElement(array.get(), &outside, &element), DISP_E_BADINDEX);
        EXPECT_EQ(SafeArrayGetElement(array.get(), &outside, &element), DISP_E_BADINDEX);
        EXPECT_EQ(element, 7);
    }
}

TEST(SafeArray, DimensionsHaveTheirOwnBoundsAndRunLeftmostFastest) {
    const SAFEARRAYBOUND bounds[] = {{2, -5}, {3, INT_MAX - 2}, {4, INT_MIN}};
    Array array(SafeArrayCreate(VT_I4, 3, bounds));
    ASSERT_NE(array, nullptr);
    EXPECT_EQ(SafeArrayGetDim(array.get()), 3u);
    EXPECT_EQ(SafeArrayGetElemsize(array.get()), 4u);
    EXPECT_EQ(array->rgsabound[0].cElements, 4u) << "stored from the last dimension to the first";
    LONG bound = 0;
    EXPECT_EQ(SafeArrayGetLBound(array.get(), 2, &bound), S_OK);
    EXPECT_EQ(bound, INT_MAX - 2);
    EXPECT_EQ(SafeArrayGetUBound(array.get(), 3, &bound), S_OK);
    EXPECT_EQ(bound, INT_MIN + 3);
    EXPECT_EQ(SafeArrayGetLBound(array.get(), 0, &bound), DISP_E_BADINDEX);
    EXPECT_EQ(SafeArrayGetUBound(array.get(), 4, &bound), DISP_E_BADINDEX);

    LONG count = 0;
    for (LONG third = 0; third < 4; ++third)
        for (LONG second = 0; second < 3; ++second)
            for (LONG first = 0; first < 2; ++first, ++count) {
                const LONG indices[] = {-5 + first, INT_MAX - 2 + second, INT_MIN + third};
                EXPECT_EQ(SafeArrayPutElement(array.get(), indices, &count), S_OK);
            }
    const LONG outside[] = {-5, INT_MIN, INT_MIN};
    EXPECT_EQ(SafeArrayPutElement(array.get(), outside, &count), DISP_E_BADINDEX);
    EXPECT_EQ(SafeArrayGetElement(array.get(), outside, &count), DISP_E_BADINDEX);

    const Array copy = CopyOf(array);
    array.reset();
    for (LONG i = 0; i < count; ++i)
        EXPECT_EQ(static_cast<LONG*>(copy->pvData)[i], i);
}

TEST(SafeArray, EmptyArrayEndsBelowItsStart) {
    const Array copy = CopyOf(Vector(VT_BSTR, 1, 0));
    LONG upper = 5;
    EXPECT_EQ(SafeArrayGetUBound(copy.get(), 1, &upper), S_OK);
    EXPECT_EQ(upper, 0);
    EXPECT_EQ(Put(copy, 1, L""), DISP_E_BADINDEX);
}

TEST(SafeArray, RefusesWhatCannotBeMade) {
    EXPECT_EQ(SafeArrayCreateVector(VT_I4, INT_MAX, 2), nullptr);
    EXPECT_EQ(SafeArrayCreateVector(VT_I4, INT_MIN, 0), nullptr);
    EXPECT_EQ(SafeArrayCreateVector(VT_I4, 0, UINT32_MAX), nullptr);
    EXPECT_EQ(SafeArrayCreateVector(VT_EMPTY, 0, 1), nullptr);
    EXPECT_EQ(SafeArrayCreateVector(VT_ARRAY | VT_I4, 0, 1), nullptr);
    // 2^16 * 2^16 * 2^32 elements: the product of the first two would already
    // wrap around 32 bits, all of them 64.
    const SAFEARRAYBOUND huge[] = {{0x10000, 0}, {0x10000, 0}, {0x80000000, INT_MIN}, {2, 0}};
    EXPECT_EQ(SafeArrayCreate(VT_UI1, 0, huge), nullptr);
    EXPECT_EQ(SafeArrayCreate(VT_UI1, 1, nullptr), nullptr);
    EXPECT_EQ(SafeArrayCreate(VT_UI1, 2, huge), nullptr);
    EXPECT_EQ(SafeArrayCreate(VT_UI1, 4, huge), nullptr);
}

TEST(SafeArray, StringsAreCopiedOverTheirFullLength) {
    const Array array = Vector(VT_BSTR, 0, 2);
    EXPECT_EQ(Put(array, 0, WITH_NULL), S_OK);
    EXPECT_EQ(Put(array, 0, WITH_NULL + L"c"), S_OK);
    const Array copy = CopyOf(array);
    EXPECT_EQ(Put(array, 0, L"changed"), S_OK);
    EXPECT_EQ(Get(copy, 0), WITH_NULL + L"c");

    // A string that was never set stays null, which an empty one is not.
    const LONG index = 1;
    const CComBSTR old(L"old");
    BSTR text = old;
    EXPECT_EQ(SafeArrayGetElement(copy.get(), &index, &text), S_OK);
    EXPECT_EQ(text, nullptr);
}

TEST(SafeArray, InterfacesAndVariantsAreOwnedByTheArray) {
    std::atomic<long> live{0};
    IUnknown* const object = new CountedObject(live);
    object->AddRef();
    const LONG index = 0;
    VARIANT value{}, got{};
    value.vt = VT_ARRAY | VT_UNKNOWN;
    {
        const Array values = Vector(VT_VARIANT, 0, 1);
        {
            const Array objects = Vector(VT_UNKNOWN, 0, 2);
            EXPECT_EQ(SafeArrayPutElement(objects.get(), &index, object), S_OK);
            // Put over itself: the new reference comes before the old one goes.
            EXPECT_EQ(SafeArrayPutElement(objects.get(), &index, object), S_OK);
            value.parray = objects.get();
            EXPECT_EQ(SafeArrayPutElement(values.get(), &index, &value), S_OK);
        }
        EXPECT_EQ(SafeArrayGetElement(values.get(), &index, &got), S_OK);
        EXPECT_EQ(got.vt, VT_ARRAY | VT_UNKNOWN);
        EXPECT_EQ(object->Release(), 2u);
    }
    EXPECT_EQ(live, 1);
    EXPECT_EQ(VariantClear(&got), S_OK);
    EXPECT_EQ(live, 0);
}

TEST(SafeArray, LocksAreCountedAndKeepTheArray) {
    const Array array = Vector(VT_I4, 0, 1);
    void* data = nullptr;
    EXPECT_EQ(SafeArrayUnlock(array.get()), E_UNEXPECTED);
    EXPECT_EQ(SafeArrayAccessData(array.get(), &data), S_OK);
    for (int i = 1; i < 65535; ++i)
        ASSERT_EQ(SafeArrayLock(array.get()), S_OK);
    EXPECT_EQ(SafeArrayAccessData(array.get(), &data), E_UNEXPECTED);
    EXPECT_EQ(data, nullptr);
    for (int i = 1; i < 65535; ++i)
        ASSERT_EQ(SafeArrayUnaccessData(array.get()), S_OK);
    EXPECT_EQ(SafeArrayDestroy(array.get()), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(CopyOf(array)->cLocks, 0u) << "a copy has no locks";
    EXPECT_EQ(SafeArrayUnlock(array.get()), S_OK);
}

TEST(SafeArray, AnElementThatCannotBeReplacedStays) {
    const Array array = Vector(VT_VARIANT, 0, 1);
    VARIANT& element = *static_cast<VARIANT*>(array->pvData);
    element.vt = VT_ARRAY | VT_I4;
    SAFEARRAY* const inner = element.parray = SafeArrayCreateVector(VT_I4, 0, 1);
    ASSERT_EQ(SafeArrayLock(inner), S_OK);
    const LONG index = 0;
    _variant_t text(L"new");
    EXPECT_EQ(SafeArrayPutElement(array.get(), &index, &text), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(element.parray, inner);
    EXPECT_EQ(SafeArrayUnlock(inner), S_OK);
    EXPECT_EQ(SafeArrayPutElement(array.get(), &index, &text), S_OK);
    EXPECT_EQ(Units(element.bstrVal), L"new");
}

TEST(SafeArray, ExhaustedMemoryLeavesNothingBehind) {
    const Array source = Vector(VT_BSTR, 0, 3);
    for (LONG i = 0; i < 3; ++i)
        ASSERT_EQ(Put(source, i, L"text"), S_OK);
    FailEachAllocation([&] {
        SAFEARRAY* copy = nullptr;
        const HRESULT status = SafeArrayCopy(source.get(), &copy);
        EXPECT_EQ(status, copy != nullptr ? S_OK : E_OUTOFMEMORY);
        SafeArrayDestroy(copy);
    });
    FailEachAllocation([] {
        const SAFEARRAYBOUND bounds[] = {{2, 0}, {2, 0}};
        SafeArrayDestroy(SafeArrayCreate(VT_I4, 2, bounds));
    });
    const CComBSTR text(L"new");
    const LONG index = 1;
    {
        const doubles::FailingAllocation failing(1);
        EXPECT_EQ(SafeArrayPutElement(source.get(), &index, text.m_str), E_OUTOFMEMORY);
    }
    EXPECT_EQ(Get(source, 1), L"text");
}

}  // namespace
