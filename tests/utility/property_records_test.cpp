#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <comdef.h>

#include "utility/management/mgmt.h"

namespace {

TEST(PropertyData, OwnsCopiesOfNameAndValue) {
    const BSTR text = SysAllocStringLen(L"a\0b", 3);
    _variant_t value;
    value.vt = VT_BSTR;
    value.bstrVal = text;

    std::optional<CMgmtPropertyData> source(std::in_place, L"Name", value);
    CMgmtPropertyData copy(*source);
    CMgmtPropertyData assigned(L"Other", _variant_t(5L));
    assigned = *source;
    const CMgmtPropertyData& itself = assigned;
    assigned = itself;
    source.reset();
    value.Clear();

    for (const CMgmtPropertyData* record : {&copy, &assigned}) {
        EXPECT_EQ(*record->GetName(), L"Name");
        ASSERT_EQ(record->GetValue()->vt, VT_BSTR);
        EXPECT_EQ(SysStringLen(record->GetValue()->bstrVal), 3U);
    }
}

TEST(PropertyData, ValueThatCannotBeCopiedLeavesTheRecordAsItWas) {
    _variant_t bad;
    bad.vt = 0x0FFE;  // no type that a variant can have
    CMgmtPropertyData record(L"Name", _variant_t(5L));
    EXPECT_THROW(CMgmtPropertyData(L"Name", bad), _com_error);
    EXPECT_EQ(record.GetValue()->lVal, 5);
    bad.vt = VT_EMPTY;
}

TEST(PropertyDataCollection, WalksNamesInUnitOrder) {
    std::map<std::wstring, CMgmtPropertyData*> map;
    CMgmtPropertyDataCollection view(&map);
    EXPECT_EQ(view.GetTotalItemCount(), 0U);
    EXPECT_EQ(view.GetItem(0), nullptr);

    std::vector<std::unique_ptr<CMgmtPropertyData>> records;
    for (const wchar_t* name : {L"b", L"A", L"a", L"ab", L"\u00e4", L""}) {
        records.push_back(std::make_unique<CMgmtPropertyData>(name, _variant_t()));
        map[name] = records.back().get();
    }
    CMgmtPropertyDataCollection copy(nullptr);
    copy = view;
    std::wstring order;
    for (size_t i = 0; i < copy.GetTotalItemCount(); ++i)
        order += *copy.GetItem(i)->GetName() + L",";
    EXPECT_EQ(order, L",A,a,ab,b,\u00e4,");
    EXPECT_EQ(view.GetItem(6), nullptr);
    EXPECT_EQ(view.GetItem(static_cast<size_t>(-1)), nullptr);
}

TEST(Collections, OverNothingAreEmpty) {
    const CMgmtPropertyDataCollection properties(nullptr);
    EXPECT_EQ(properties.GetTotalItemCount(), 0U);
    EXPECT_EQ(properties.GetItem(0), nullptr);
    const CMgmtObjectCollection objects(nullptr);
    EXPECT_EQ(objects.GetTotalItemCount(), 0U);
    EXPECT_EQ(objects.GetItem(0), nullptr);
}

TEST(ObjectCollection, ShowsItsOwnersListInInsertionOrder) {
    CMgmtObject first;
    CMgmtObject second;
    std::vector<CMgmtObject*> list = {&second};
    {
        const CMgmtObjectCollection view(&list);
        CMgmtObjectCollection copy(nullptr);
        copy = view;
        list.push_back(&first);
        EXPECT_EQ(copy.GetTotalItemCount(), 2U);
        EXPECT_EQ(copy.GetItem(0), &second);
        EXPECT_EQ(copy.GetItem(1), &first);
        EXPECT_EQ(copy.GetItem(2), nullptr);
    }
    EXPECT_EQ(list.size(), 2U);
}

}  // namespace
