#include "utility/management/util_MgmtLocalPropertyDataCollection.h"

#include <climits>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/platform/threads.h"
#include "tests/utility/exhausted_memory.h"

namespace {

using Data = CMgmtLocalPropertyData;
using Collection = CMgmtLocalPropertyDataCollection;

void Add(Collection& collection, int index, _variant_t value, const wchar_t* name = L"name") {
    collection.AddPropertyData(index, name, value);
}

Data MakeData(const wchar_t* name, _variant_t value) {
    return {name, value};
}

_variant_t Typed(VARTYPE type, ULONG bits) {
    _variant_t value;
    value.vt = type;
    value.ulVal = bits;
    return value;
}

// The library's code that the action throws, which names its source; 0 for none.
int CodeOf(const std::function<void()>& action) {
    try {
        action();
    } catch (CManagementException& failure) {
        EXPECT_NE(failure.GetErrorMsgEx().find(L"util_MgmtLocalPropertyDataCollection.cpp"),
                  std::wstring::npos);
        return failure.GetErrorCode();
    }
    return 0;
}

TEST(LocalPropertyData, CopiesShareOneRecord) {
    Data data = MakeData(L"Name", _variant_t(L"text"));
    Data copy(data);
    Data assigned = MakeData(nullptr, _variant_t());
    EXPECT_EQ(assigned.GetName(), nullptr);
    assigned = copy;
    const Data& itself = assigned;
    assigned = itself;
    assigned.SetName(L"Other");
    assigned.SetValue(_variant_t(7L));
    EXPECT_STREQ(data.GetName(), L"Other");
    EXPECT_EQ(copy.GetValue().lVal, 7);
    copy.GetValue() = 8L;
    EXPECT_EQ(data.GetValue().lVal, 8);
    data.SetName(nullptr);
    EXPECT_EQ(copy.GetName(), nullptr);
}

TEST(LocalPropertyData, ValueThatCannotBeReplacedStays) {
    Data data = MakeData(L"old", _variant_t());
    data.GetValue().vt = VT_ARRAY | VT_I4;
    SAFEARRAY* const array = data.GetValue().parray = SafeArrayCreateVector(VT_I4, 0, 1);
    SafeArrayLock(array);
    Collection collection;
    collection.AddPropertyData(1, data);
    EXPECT_EQ(ComErrorOf([&] { data.SetValue(_variant_t(5L)); }), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(ComErrorOf([&] { Add(collection, 1, _variant_t(5L), L"new"); }), DISP_E_ARRAYISLOCKED);
    EXPECT_STREQ(data.GetName(), L"old");
    EXPECT_EQ(data.GetValue().parray, array);
    SafeArrayUnlock(array);
    Add(collection, 1, _variant_t(5L), L"new");
    EXPECT_EQ(data.GetValue().lVal, 5);
}

TEST(LocalCollection, AnswersForIndicesThatWereNeverAdded) {
    Collection collection;
    EXPECT_EQ(collection.GetPropertyDataCount(), 0);
    Add(collection, 4, _variant_t(1L));
    for (const int missing : {5, -4, INT_MIN, INT_MAX}) {
        EXPECT_EQ(collection.GetIntValue(missing), 0);
        EXPECT_STREQ(collection.GetStrValue(missing), L"");
        EXPECT_FALSE(collection.GetBoolValue(missing));
        EXPECT_EQ(collection.GetValue(missing).vt, VT_EMPTY);
    }
    collection.GetValue(5) = L"not meant to be written";
    EXPECT_STREQ(collection.GetStrValue(6), L"") << "what was written is not another index's value";
}

TEST(LocalCollection, FindsEachOfManyWhateverTheOrder) {
    Collection collection;
    std::vector<int> added = {INT_MAX, INT_MIN};
    for (int i = 0; i < 500; ++i)
        added.push_back((i * 7919) % 1009 - 500);
    for (std::size_t i = 0; i < added.size(); ++i) {
        Add(collection, added[i], _variant_t(static_cast<long>(added[i])));
        // Looked up in between, so that sorted and unsorted lists alternate.
        if (i % 50 == 0) {
            EXPECT_EQ(collection.GetIntValue(added[i / 2]), added[i / 2]);
        }
    }
    for (const int index : added)
        EXPECT_EQ(collection.GetIntValue(index), index);
    EXPECT_EQ(collection.GetPropertyDataCount(), static_cast<int>(added.size()));
}

TEST(LocalCollection, UpdatesGoToTheRecordOrReplaceIt) {
    Collection collection;
    Data data = MakeData(L"mine", _variant_t(1L));
    collection.AddPropertyData(3, data);
    Add(collection, 3, _variant_t(3L), L"new name");
    EXPECT_STREQ(data.GetName(), L"new name") << "updated in place";
    EXPECT_EQ(data.GetValue().lVal, 3);
    // What the entry itself handed out may be given back.
    collection.AddPropertyData(3, data.GetName() + 4, collection.GetValue(3));
    EXPECT_STREQ(data.GetName(), L"name");
    EXPECT_EQ(collection.GetIntValue(3), 3);

    Data other = MakeData(nullptr, _variant_t(4L));
    for (int i = 0; i < 2; ++i) {
        collection.AddPropertyData(3, other);
        data.SetValue(_variant_t(5L));
        EXPECT_EQ(collection.GetIntValue(3), 4) << "the entry has another record now";
    }
    EXPECT_EQ(collection.GetPropertyDataCount(), 1);
}

TEST(LocalCollection, CopiesShareTheEntries) {
    std::optional<Collection> collection(std::in_place);
    Collection copy(*collection);
    Collection assigned;
    Add(assigned, 1, _variant_t(5L));
    assigned = copy;
    const Collection& itself = assigned;
    assigned = itself;
    Add(assigned, 2, _variant_t(L"text"));
    EXPECT_EQ(collection->GetIntValue(1), 0);
    const wchar_t* const text = copy.GetStrValue(2);
    EXPECT_STREQ(text, L"text");
    collection.reset();
    for (int i = 3; i < 100; ++i)
        Add(copy, i, _variant_t(1L));
    EXPECT_EQ(assigned.GetStrValue(2), text) << "later additions do not move a record";
}

TEST(LocalCollection, ValuesAreFreedWithTheLastHandle) {
    std::atomic<long> live{0};
    {
        Collection collection;
        Data data = MakeData(L"object", _variant_t(new CountedObject(live)));
        {
            Collection copy(collection);
            copy.AddPropertyData(1, data);
            Add(copy, 2, _variant_t(new CountedObject(live)));
        }
        EXPECT_EQ(live, 2);
        Add(collection, 2, _variant_t());
        EXPECT_EQ(live, 1);
        Data other = MakeData(L"other", _variant_t());
        collection.AddPropertyData(1, other);
        EXPECT_EQ(live, 1) << "the caller's handle keeps the record";
    }
    EXPECT_EQ(live, 0);
}

TEST(LocalCollection, TypedGettersTakeTheirTypesAndNoOthers) {
    Collection collection;
    for (const VARTYPE type : {VT_INT, VT_I4, VT_UINT, VT_UI4}) {
        Add(collection, 1, Typed(type, 0xFFFFFFFF));
        EXPECT_EQ(collection.GetIntValue(1), -1);
    }
    Add(collection, 1, _variant_t(L"text"));
    EXPECT_EQ(collection.GetStrValue(1), collection.GetValue(1).bstrVal);
    Add(collection, 1, _variant_t(static_cast<const wchar_t*>(nullptr)));
    EXPECT_EQ(collection.GetStrValue(1), nullptr);
    Add(collection, 1, Typed(VT_BOOL, 1));
    EXPECT_TRUE(collection.GetBoolValue(1)) << "any number but 0 is true";
    Add(collection, 1, _variant_t(false));
    EXPECT_FALSE(collection.GetBoolValue(1));
    Add(collection, 1, Typed(VT_NULL, 7));
    EXPECT_EQ(collection.GetIntValue(1), 0);
    EXPECT_STREQ(collection.GetStrValue(1), L"");
    EXPECT_FALSE(collection.GetBoolValue(1));

    for (const VARTYPE type : {VT_I4, VT_BSTR, VT_BOOL, VT_I2, VT_UI1, VT_I8, VT_ERROR, VT_R4, VT_DATE}) {
        SCOPED_TRACE(type);
        Add(collection, 1, Typed(type, 0));
        const auto expected = [&](VARTYPE taken) { return type == taken ? 0 : MGMT_ERR_VALUE_TYPE; };
        EXPECT_EQ(CodeOf([&] { collection.GetIntValue(1); }), expected(VT_I4));
        EXPECT_EQ(CodeOf([&] { collection.GetStrValue(1); }), expected(VT_BSTR));
        EXPECT_EQ(CodeOf([&] { collection.GetBoolValue(1); }), expected(VT_BOOL));
    }
    // The lock that a refused getter held is free again.
    std::jthread([&] { EXPECT_EQ(collection.GetPropertyDataCount(), 1); }).join();
}

// Threads add and update entries of their own and one that they all share, and read them.
TEST(LocalCollection, ThreadsAddUpdateAndRead) {
    constexpr int THREADS = 8;
    constexpr int ROUNDS = 200;
    constexpr int SHARED = -1;
    Collection collection;
    Add(collection, SHARED, _variant_t(0L));
    std::atomic<int> threads = 0;
    RunInThreads(THREADS, [&] {
        const int thread = threads++;
        Collection own(collection);
        for (int round = 0; round < ROUNDS; ++round) {
            const int index = round * THREADS + thread;
            Data data = MakeData(L"n", _variant_t(long{index}));
            own.AddPropertyData(index, data);
            EXPECT_EQ(own.GetIntValue(index), index);
            Add(own, index, _variant_t(std::to_wstring(index).c_str()));
            EXPECT_EQ(own.GetStrValue(index), std::to_wstring(index));

            Data replacing = MakeData(nullptr, _variant_t(long{index}));
            own.AddPropertyData(SHARED, replacing);
            Add(own, SHARED, _variant_t(long{index}));
            EXPECT_GE(own.GetIntValue(SHARED), 0);
            EXPECT_EQ(own.GetValue(INT_MAX).vt, VT_EMPTY);
        }
    });
    EXPECT_EQ(collection.GetPropertyDataCount(), THREADS * ROUNDS + 1);
    for (int index = 0; index < THREADS * ROUNDS; ++index)
        ASSERT_EQ(collection.GetStrValue(index), std::to_wstring(index));
}

TEST(LocalRecords, ExhaustedMemoryChangesNothing) {
    _variant_t value(L"a text that is not short");
    int sharedDataFailures = 0;
    const auto attempt = [&](const auto& action) { return Succeeds(action, &sharedDataFailures); };
    FailEachAllocation([&] { attempt([] { Collection collection; }); });
    EXPECT_EQ(sharedDataFailures, 1);
    FailEachAllocation([&] { attempt([&] { Data data(L"name", value); }); });
    EXPECT_EQ(sharedDataFailures, 2);

    // As many entries as fill the list, so that the next one must make it grow.
    FailEachAllocation([&] {
        std::optional<Collection> collection;
        {
            const doubles::SparedAllocations spared;
            collection.emplace();
            for (int i = 0; i < 4; ++i)
                Add(*collection, i, _variant_t(1L));
        }
        const bool isAdded = attempt([&] { collection->AddPropertyData(4, L"name", value); });
        const doubles::SparedAllocations spared;
        EXPECT_EQ(collection->GetPropertyDataCount(), isAdded ? 5 : 4);
        EXPECT_EQ(collection->GetValue(4).vt, isAdded ? VT_BSTR : VT_EMPTY);
    });
    FailEachAllocation([&] {
        std::optional<Data> data;
        std::optional<Collection> collection;
        {
            const doubles::SparedAllocations spared;
            data.emplace(L"old", value);
            collection.emplace().AddPropertyData(1, *data);
        }
        _variant_t number(5L);
        const bool isUpdated = attempt([&] { collection->AddPropertyData(1, L"new", number); });
        EXPECT_STREQ(data->GetName(), isUpdated ? L"new" : L"old");
        EXPECT_EQ(data->GetValue().vt, isUpdated ? VT_I4 : VT_BSTR);
        const bool isSet = attempt([&] { data->SetValue(value); });
        EXPECT_EQ(data->GetValue().vt, isSet || !isUpdated ? VT_BSTR : VT_I4);
    });
}

}  // namespace
