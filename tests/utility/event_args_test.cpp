// What carries an event to its handlers, and the classes of the event interface that carry nothing.
#include <memory>
#include <optional>
#include <type_traits>

#include "tests/utility/service_fixture.h"

namespace {

class EventArgsTest : public ServiceTest {
 protected:
    _variant_t Instance(const wchar_t* name) {
        const doubles::Content content{
            L"Cls", false, {{L"DisplayName", CIM_STRING, _variant_t(name)}, {L"KeepDays", CIM_UINT32}}};
        return {service.MakeObject(content), false};
    }

    static std::wstring NameIn(CMgmtEventArrivedArgs& args) {
        return TextOf(args.GetNewEvent()->GetPropertyValue(L"DisplayName"));
    }
};

TEST_F(EventArgsTest, TheEventObjectIsBuiltOnceAndItsCopiesOutliveTheArguments) {
    std::optional<CMgmtObjectBase> kept;
    {
        CMgmtEventArrivedArgs args(Instance(L"one"));
        EXPECT_TRUE(service.TakeRequests().empty()) << "nothing is read before it is asked for";
        CMgmtObjectBase* const first = args.GetNewEvent();
        EXPECT_EQ(first->GetProperties()->GetTotalItemCount(), 2U);
        service.Forget();
        EXPECT_EQ(args.GetNewEvent(), first);
        EXPECT_TRUE(service.TakeRequests().empty());
        kept.emplace(*first);
    }
    EXPECT_EQ(TextOf(kept->GetPropertyValue(L"DisplayName")), L"one");
}

TEST_F(EventArgsTest, WithoutAnInstanceTheEventObjectHasNoProperties) {
    for (const _variant_t& target : {_variant_t(), NullValue(), _variant_t(L"text")})
        EXPECT_EQ(CMgmtEventArrivedArgs(target).GetNewEvent()->GetProperties()->GetTotalItemCount(), 0U);
}

TEST_F(EventArgsTest, ACopyBuildsAnEventObjectOfItsOwn) {
    std::optional<CMgmtEventArrivedArgs> original(Instance(L"one"));
    CMgmtObjectBase* const built = original->GetNewEvent();
    CMgmtEventArrivedArgs copy(*original);
    EXPECT_NE(copy.GetNewEvent(), built);
    copy.GetNewEvent()->SetPropertyValue(L"Remark", L"the copy's");
    EXPECT_EQ(built->GetProperties()->GetTotalItemCount(), 2U) << "another bag";
    original.reset();
    EXPECT_EQ(NameIn(copy), L"one");
}

TEST_F(EventArgsTest, AssignmentTakesTheInstanceAndDestroysTheOwnEventObject) {
    const long before = service.LiveObjects();
    CMgmtEventArrivedArgs args(Instance(L"one"));
    EXPECT_EQ(NameIn(args), L"one");
    args = CMgmtEventArrivedArgs(Instance(L"two"));
    EXPECT_EQ(service.LiveObjects(), before + 1) << "nothing holds the first instance any more";
    EXPECT_EQ(NameIn(args), L"two");

    CMgmtObjectBase* const built = args.GetNewEvent();
    const CMgmtEventArrivedArgs& itself = args;
    args = itself;
    EXPECT_EQ(args.GetNewEvent(), built);
    EXPECT_EQ(NameIn(args), L"two");
}

TEST(EventInterfaceTest, ClassesWithoutStateAreRelatedAsNamed) {
    static_assert(!std::is_base_of_v<CMgmtEventArgs, CMgmtEventArrivedArgs>);
    static_assert(!std::is_default_constructible_v<CMgmtEventArrivedArgs>);
    static_assert(std::is_base_of_v<CMgmtQuery, CMgmtObjectQuery>);
    static_assert(std::is_base_of_v<CMgmtEventArgs, CMgmtCompletedEventArgs>);
    static_assert(std::has_virtual_destructor_v<CMgmtObjectSearcher>);
    static_assert(std::has_virtual_destructor_v<CMgmtOperationObserver>);
    static_assert(sizeof(CMgmtEventArrivedHandler) == sizeof(void*), "an interface and nothing else");

    // Through the base's virtual destructor, whose parts the library exports.
    std::unique_ptr<CMgmtQuery> query = std::make_unique<CMgmtObjectQuery>();
    query = std::make_unique<CMgmtEventQuery>();
    EXPECT_NE(dynamic_cast<CMgmtEventQuery*>(query.get()), nullptr);
    const std::unique_ptr<CMgmtEventArgs> base = std::make_unique<CMgmtCompletedEventArgs>();
    EXPECT_NE(dynamic_cast<CMgmtCompletedEventArgs*>(base.get()), nullptr);

    CMgmtObjectSearcher searcher;
    searcher = CMgmtObjectSearcher(searcher);
    CMgmtOperationObserver observer;
    observer = CMgmtOperationObserver(observer);
    class Completion final : public CMgmtCompletedEventHandler {
     public:
        int OnCompleted(CMgmtCompletedEventArgs& args) override { return &args == expected ? 1 : 0; }
        CMgmtCompletedEventArgs* expected = nullptr;
    } completion;
    CMgmtCompletedEventArgs args;
    completion.expected = &args;
    Completion copy;
    copy = completion;
    EXPECT_EQ(static_cast<CMgmtCompletedEventHandler&>(copy).OnCompleted(args), 1);
}

}  // namespace
