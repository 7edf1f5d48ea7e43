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

TEST_F(EventArgsTest, TheEventObjectIsBuiltOnceAndHasAllProperties) {
    CMgmtEventArrivedArgs args(Instance(L"one"));
    EXPECT_TRUE(service.TakeRequests().empty()) << "nothing is read before it is asked for";
    CMgmtObjectBase* const first = args.GetNewEvent();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->GetProperties()->GetTotalItemCount(), 2U);
    EXPECT_EQ(NameIn(args), L"one");
    service.Forget();
    EXPECT_EQ(args.GetNewEvent(), first);
    EXPECT_TRUE(service.TakeRequests().empty());
}

TEST_F(EventArgsTest, WithoutAnInstanceTheEventObjectHasNoProperties) {
    for (const _variant_t& target :
         {_variant_t(), NullValue(), _variant_t(L"text"), _variant_t(static_cast<IUnknown*>(nullptr))}) {
        SCOPED_TRACE(target.vt);
        CMgmtEventArrivedArgs args(target);
        ASSERT_NE(args.GetNewEvent(), nullptr);
        EXPECT_EQ(args.GetNewEvent()->GetProperties()->GetTotalItemCount(), 0U);
        EXPECT_EQ(args.GetNewEvent()->GetPropertyValue(L"DisplayName"), nullptr);
    }
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
    const CMgmtEventArrivedArgs other(Instance(L"two"));
    EXPECT_EQ(NameIn(args), L"one");
    args = other;
    EXPECT_EQ(service.LiveObjects(), before + 1) << "nothing holds the first instance any more";
    EXPECT_EQ(NameIn(args), L"two");

    args.GetNewEvent()->SetPropertyValue(L"Remark", L"kept");
    const CMgmtEventArrivedArgs& itself = args;
    args = itself;
    EXPECT_EQ(args.GetNewEvent()->GetProperties()->GetTotalItemCount(), 3U) << "the same one still";
    EXPECT_EQ(NameIn(args), L"two");

    args = CMgmtEventArrivedArgs(_variant_t());
    EXPECT_EQ(args.GetNewEvent()->GetPropertyValue(L"DisplayName"), nullptr);
    EXPECT_EQ(service.LiveObjects(), before + 1);
}

TEST_F(EventArgsTest, AHandlersCopyOfTheEventObjectOutlivesTheArguments) {
    std::optional<CMgmtObjectBase> kept;
    {
        CMgmtEventArrivedArgs args(Instance(L"one"));
        kept.emplace(*args.GetNewEvent());
    }
    EXPECT_EQ(TextOf(kept->GetPropertyValue(L"DisplayName")), L"one");
    kept.reset();
}

class Completion final : public CMgmtCompletedEventHandler {
 public:
    int OnCompleted(CMgmtCompletedEventArgs& args) override {
        last = &args;
        return ++calls;
    }

    CMgmtCompletedEventArgs* last = nullptr;
    int calls = 0;
};

TEST(EventInterfaceTest, ClassesWithoutStateAreRelatedAsNamed) {
    static_assert(!std::is_base_of_v<CMgmtEventArgs, CMgmtEventArrivedArgs>);
    static_assert(!std::is_default_constructible_v<CMgmtEventArrivedArgs>);
    static_assert(std::is_abstract_v<CMgmtEventArrivedHandler>);
    static_assert(std::has_virtual_destructor_v<CMgmtObjectSearcher>);
    static_assert(std::has_virtual_destructor_v<CMgmtOperationObserver>);
    static_assert(sizeof(CMgmtEventArrivedHandler) == sizeof(void*), "an interface and nothing else");

    const std::unique_ptr<CMgmtQuery> queries[] = {std::make_unique<CMgmtObjectQuery>(),
                                                   std::make_unique<CMgmtEventQuery>()};
    EXPECT_EQ(dynamic_cast<CMgmtEventQuery*>(queries[0].get()), nullptr);
    EXPECT_NE(dynamic_cast<CMgmtEventQuery*>(queries[1].get()), nullptr);
    const std::unique_ptr<CMgmtEventArgs> base = std::make_unique<CMgmtCompletedEventArgs>();
    EXPECT_NE(dynamic_cast<CMgmtCompletedEventArgs*>(base.get()), nullptr);

    CMgmtObjectSearcher searcher;
    CMgmtOperationObserver observer;
    EXPECT_EQ(&(searcher = CMgmtObjectSearcher(searcher)), &searcher);
    EXPECT_EQ(&(observer = CMgmtOperationObserver(observer)), &observer);
    CMgmtCompletedEventArgs args;
    Completion completion;
    Completion copy(completion);
    CMgmtCompletedEventHandler& handler = copy;
    EXPECT_EQ(&(handler = completion), &handler);
    EXPECT_EQ(handler.OnCompleted(args), 1);
    EXPECT_EQ(copy.last, &args);
}

}  // namespace
