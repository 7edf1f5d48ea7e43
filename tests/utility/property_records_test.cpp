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
    CMgmtPropertyData assigned(L"Other", _variant_t(5L));
    std::optional<CMgmtPropertyData> source(std::in_place, L"Name",
                                            _variant_t(_bstr_t(SysAllocStringLen(L"a\0b", 3), false)));
    const CMgmtPropertyData copy(*source);
    assigned = *source;
    const CMgmtPropertyData& itself = assigned;
    assigned = itself;
    source.reset();
    for (const CMgmtPropertyData* record : {&copy, &static_cast<const CMgmtPropertyData&>(assigned)}) {
        EXPECT_EQ(*record->GetName(), L"Name");
        ASSERT_EQ(record->GetValue()->vt, VT_BSTR);
        EXPECT_EQ(SysStringLen(record->GetValue()->bstrVal), 3U);
    }
}

TEST(PropertyDataCollection, WalksNamesInUnitOrder) {
    std::map<std::wstring, CMgmtPropertyData*> map;
    CMgmtPropertyDataCollection view(&map), copy(nullptr);
    for (const CMgmtPropertyDataCollection& empty : {view, copy}) {
        EXPECT_EQ(empty.GetTotalItemCount(), 0U);
        EXPECT_EQ(empty.GetItem(0), nullptr);
    }
    std::vector<std::unique_ptr<CMgmtPropertyData>> records;
    for (const wchar_t* name : {L"b", L"A", L"a", L"ab", L"\u00e4", L""}) {
        records.push_back(std::make_unique<CMgmtPropertyData>(name, _variant_t()));
        map[name] = records.back().get();
    }
    copy = view;
    std::wstring order;
    for (size_t i = 0; i < copy.GetTotalItemCount(); ++i)
        order += *copy.GetItem(i)->GetName() + L",";
    EXPECT_EQ(order, L",A,a,ab,b,\u00e4,");
    EXPECT_EQ(view.GetItem(6), nullptr);
    EXPECT_EQ(view.GetItem(static_cast<size_t>(-1)), nullptr);
}

TEST(ObjectCollection, ShowsItsOwnersListInInsertionOrder) {
    CMgmtObject first, second;
    std::vector<CMgmtObject*> list = {&second};
    const CMgmtObjectCollection view(&list);
    CMgmtObjectCollection copy(nullptr);
    EXPECT_EQ(copy.GetTotalItemCount(), 0U);
    EXPECT_EQ(copy.GetItem(0), nullptr);
    copy = view;
    list.push_back(&first);
    EXPECT_EQ(copy.GetTotalItemCount(), 2U);
    EXPECT_EQ(copy.GetItem(0), &second);
    EXPECT_EQ(copy.GetItem(1), &first);
    EXPECT_EQ(copy.GetItem(2), nullptr);
}

}  // namespace
