#include "utility/management/util_MgmtLocalPropertyDataCollection.h"

#include <climits>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/platform/automation_values.h"
#include "utility/management/util_ManagementException.h"

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

_variant_t LockedArray() {
    _variant_t value;
    value.vt = VT_ARRAY | VT_I4;
    value.parray = SafeArrayCreateVector(VT_I4, 0, 1);
    SafeArrayLock(value.parray);
    return value;
}

// The library's code that the action throws, 0 for none.
int CodeOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const CManagementException& failure) {
        return failure.GetErrorCode();
    }
    return 0;
}

TEST(LocalPropertyData, CopiesShareOneRecord) {
    _variant_t value(L"text");
    Data data(L"Name", value);
    Data copy(data);
    Data assigned = MakeData(nullptr, _variant_t());
    EXPECT_EQ(assigned.GetName(), nullptr);
    assigned = copy;
    const Data& itself = assigned;
    assigned = itself;
    value = 5L;
    EXPECT_EQ(Units(data.GetValue().bstrVal), L"text") << "the value is a copy";

    assigned.SetName(L"Other");
    assigned.SetValue(_variant_t(7L));
    EXPECT_STREQ(data.GetName(), L"Other");
    EXPECT_EQ(copy.GetValue().lVal, 7);
    copy.GetValue() = 8L;
    EXPECT_EQ(data.GetValue().lVal, 8);
    data.SetName(nullptr);
    EXPECT_EQ(copy.GetName(), nullptr);
}

TEST(LocalPropertyData, MayBeSetToWhatItHandedOut) {
    Data data = MakeData(L"a name that is not short", _variant_t(L"a text that is not short"));
    data.SetName(data.GetName() + 2);
    data.SetValue(data.GetValue());
    EXPECT_STREQ(data.GetName(), L"name that is not short");
    EXPECT_EQ(Units(data.GetValue().bstrVal), L"a text that is not short");
}

TEST(LocalPropertyData, ValueThatCannotBeReplacedStays) {
    Data data = MakeData(L"old", _variant_t());
    data.GetValue().Attach(LockedArray().GetVARIANT());
    Collection collection;
    collection.AddPropertyData(1, data);
    SAFEARRAY* const array = data.GetValue().parray;

    EXPECT_EQ(ComErrorOf([&] { data.SetValue(_variant_t(5L)); }), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(ComErrorOf([&] { Add(collection, 1, _variant_t(5L), L"new"); }), DISP_E_ARRAYISLOCKED);
    EXPECT_STREQ(data.GetName(), L"old");
    EXPECT_EQ(data.GetValue().parray, array);
    SafeArrayUnlock(array);
    Add(collection, 1, _variant_t(5L), L"new");
    EXPECT_EQ(data.GetValue().lVal, 5);

    _variant_t unknownType;
    unknownType.vt = 0x0FFE;
    EXPECT_EQ(ComErrorOf([&] { data.SetValue(unknownType); }), DISP_E_BADVARTYPE);
    EXPECT_EQ(data.GetValue().lVal, 5);
    unknownType.vt = VT_EMPTY;
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
    EXPECT_EQ(collection.GetPropertyDataCount(), 1);
}

TEST(LocalCollection, FindsEachOfManyWhateverTheOrder) {
    Collection collection;
    std::vector<int> added;
    added.reserve(502);
    for (int i = 0; i < 500; ++i)
        added.push_back((i * 7919) % 1009 - 500);
    added.insert(added.end(), {INT_MAX, INT_MIN});
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
    data.SetValue(_variant_t(2L));
    EXPECT_EQ(collection.GetIntValue(3), 2);

    Add(collection, 3, _variant_t(3L), L"new name");
    EXPECT_STREQ(data.GetName(), L"new name") << "updated in place";
    EXPECT_EQ(data.GetValue().lVal, 3);
    // What the entry itself handed out may be given back.
    collection.AddPropertyData(3, data.GetName() + 4, collection.GetValue(3));
    EXPECT_STREQ(data.GetName(), L"name");
    EXPECT_EQ(collection.GetIntValue(3), 3);

    Data other = MakeData(nullptr, _variant_t(4L));
    collection.AddPropertyData(3, other);
    data.SetValue(_variant_t(5L));
    EXPECT_EQ(collection.GetIntValue(3), 4) << "the entry has another record now";
    collection.AddPropertyData(3, other);
    EXPECT_EQ(collection.GetIntValue(3), 4);

    Add(collection, 9, _variant_t(6L));
    Add(collection, 9, _variant_t(7L));
    EXPECT_EQ(collection.GetIntValue(9), 7);
    EXPECT_EQ(collection.GetPropertyDataCount(), 2);
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
    EXPECT_STREQ(collection->GetStrValue(2), L"text");
    EXPECT_EQ(collection->GetIntValue(1), 0);
    const wchar_t* const text = copy.GetStrValue(2);
    collection.reset();
    for (int i = 3; i < 100; ++i)
        Add(copy, i, _variant_t(1L));
    EXPECT_EQ(copy.GetStrValue(2), text) << "later additions do not move a record";
    EXPECT_EQ(assigned.GetPropertyDataCount(), 98);
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
    Add(collection, 2, _variant_t(L"text"));
    EXPECT_EQ(collection.GetStrValue(2), collection.GetValue(2).bstrVal);
    Add(collection, 2, _variant_t(static_cast<const wchar_t*>(nullptr)));
    EXPECT_EQ(collection.GetStrValue(2), nullptr);
    Add(collection, 3, Typed(VT_BOOL, 1));
    EXPECT_TRUE(collection.GetBoolValue(3)) << "any number but 0 is true";
    Add(collection, 3, _variant_t(false));
    EXPECT_FALSE(collection.GetBoolValue(3));
    Add(collection, 4, Typed(VT_NULL, 7));
    EXPECT_EQ(collection.GetIntValue(4), 0);
    EXPECT_STREQ(collection.GetStrValue(4), L"");
    EXPECT_FALSE(collection.GetBoolValue(4));

    const auto refused = [&](const _variant_t& value, bool isInt, bool isText, bool isBool) {
        SCOPED_TRACE(value.vt);
        Add(collection, 5, value);
        EXPECT_EQ(CodeOf([&] { collection.GetIntValue(5); }), isInt ? 0 : MGMT_ERR_VALUE_TYPE);
        EXPECT_EQ(CodeOf([&] { collection.GetStrValue(5); }), isText ? 0 : MGMT_ERR_VALUE_TYPE);
        EXPECT_EQ(CodeOf([&] { collection.GetBoolValue(5); }), isBool ? 0 : MGMT_ERR_VALUE_TYPE);
    };
    refused(_variant_t(5L), true, false, false);
    refused(_variant_t(L"5"), false, true, false);
    refused(_variant_t(true), false, false, true);
    for (const VARTYPE type : {VT_I2, VT_UI1, VT_I8, VT_ERROR, VT_R4, VT_DATE})
        refused(Typed(type, 0), false, false, false);
}

TEST(LocalCollection, WrongTypeNamesItsSourceAndReleasesTheLock) {
    Collection collection;
    Add(collection, 1, _variant_t(1.5));
    try {
        collection.GetIntValue(1);
        FAIL();
    } catch (CManagementException& failure) {
        EXPECT_NE(failure.GetErrorMsgEx().find(L"util_MgmtLocalPropertyDataCollection.cpp"),
                  std::wstring::npos);
    }
    std::thread([&] { EXPECT_EQ(collection.GetPropertyDataCount(), 1); }).join();
}

// Eight threads add and update entries of their own and one that they all share, read them, and make and
// destroy handles.
TEST(LocalCollection, ThreadsAddUpdateAndRead) {
    constexpr int THREADS = 8;
    constexpr int ROUNDS = 200;
    constexpr int SHARED = -1;
    Collection collection;
    Add(collection, SHARED, _variant_t(0L));
    const auto work = [&](int thread) {
        Collection own(collection);
        for (int round = 0; round < ROUNDS; ++round) {
            const int index = round * THREADS + thread;
            const long number = index;
            Data data = MakeData(L"n", _variant_t(number));
            own.AddPropertyData(index, data);
            EXPECT_EQ(own.GetIntValue(index), index);
            Add(own, index, _variant_t(std::to_wstring(index).c_str()));
            EXPECT_EQ(own.GetStrValue(index), std::to_wstring(index));

            if (round % 2 == 0) {
                Add(own, SHARED, _variant_t(number));
            } else {
                Data replacing = MakeData(nullptr, _variant_t(number));
                own.AddPropertyData(SHARED, replacing);
            }
            EXPECT_NO_THROW(own.GetBoolValue(INT_MIN));
            EXPECT_EQ(own.GetValue(INT_MAX).vt, VT_EMPTY);
            EXPECT_GE(own.GetPropertyDataCount(), round + 2);
        }
    };
    {
        std::vector<std::jthread> threads;
        threads.reserve(THREADS);
        for (int thread = 0; thread < THREADS; ++thread)
            threads.emplace_back(work, thread);
    }
    EXPECT_EQ(collection.GetPropertyDataCount(), THREADS * ROUNDS + 1);
    for (int index = 0; index < THREADS * ROUNDS; ++index)
        ASSERT_EQ(collection.GetStrValue(index), std::to_wstring(index));
}

TEST(LocalCollection, NumbersAreReadWhileOthersUpdateThem) {
    Collection collection;
    Add(collection, 1, _variant_t(0L));
    std::jthread updating([collection](const std::stop_token& stop) mutable {
        for (long n = 0; !stop.stop_requested(); ++n) {
            Add(collection, 1, _variant_t(n % 2 == 0 ? 5L : 6L));
            Data data = MakeData(nullptr, _variant_t(7L));
            collection.AddPropertyData(1, data);
        }
    });
    for (int n = 0; n < 20'000; ++n) {
        const int number = collection.GetIntValue(1);
        ASSERT_TRUE(number == 0 || (number >= 5 && number <= 7)) << number;
    }
}

TEST(LocalRecords, ExhaustedMemoryChangesNothing) {
    const _variant_t longText(L"a text that is not short");
    int sharedDataFailures = 0;
    const auto attempt = [&](const auto& action) {
        bool done = false;
        try {
            action();
            done = true;
        } catch (const CManagementException& failure) {
            const doubles::SparedAllocations spared;
            EXPECT_EQ(failure.GetErrorCode(), MGMT_ERR_SHARED_DATA);
            ++sharedDataFailures;
        } catch (const _com_error& failure) {
            EXPECT_EQ(failure.Error(), E_OUTOFMEMORY);
        } catch (const std::bad_alloc&) {
        }
        return done;
    };
    FailEachAllocation([&] { attempt([] { Collection collection; }); });
    EXPECT_EQ(sharedDataFailures, 1);
    _variant_t value(longText);
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
        Collection* collection = nullptr;
        std::optional<Collection> owner;
        {
            const doubles::SparedAllocations spared;
            data.emplace(L"old", value);
            collection = &owner.emplace();
            collection->AddPropertyData(1, *data);
        }
        const bool isUpdated = attempt([&] {
            _variant_t number(5L);
            collection->AddPropertyData(1, L"new", number);
        });
        EXPECT_STREQ(data->GetName(), isUpdated ? L"new" : L"old");
        EXPECT_EQ(data->GetValue().vt, isUpdated ? VT_I4 : VT_BSTR);
        const bool isSet = attempt([&] { data->SetValue(longText); });
        EXPECT_EQ(data->GetValue().vt, isSet || !isUpdated ? VT_BSTR : VT_I4);
    });
}

}  // namespace
