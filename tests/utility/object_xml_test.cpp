// CMgmtObjectBase::GetXML.
#include <atomic>
#include <thread>

#include <gmock/gmock.h>

#include "tests/doubles/com_object.h"
#include "tests/utility/real_service_fixture.h"

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr char kSchema[] =
    "class Inner { string Text; };"
    "class Cls { [key, Description(\"told\")] string INSTANCE_ID; string DisplayName; uint32 Days = 7;"
    "  Inner Part; };"
    "instance of Cls { INSTANCE_ID = \"42\"; DisplayName = \"answer\";"
    "  Part = instance of Inner { Text = \"within\"; }; };";

// Makes nothing.
class BrokenFactory final : public doubles::ComObject<IClassFactory> {
 public:
    explicit BrokenFactory(std::atomic<long>& live) : ComObject(live) {}
    HRESULT CreateInstance(IUnknown*, REFIID, void** object) override {
        *object = nullptr;
        return E_FAIL;
    }
    HRESULT LockServer(BOOL) override { return S_OK; }
};

class ObjectXmlTest : public RealServiceTest {
 protected:
    ObjectXmlTest() : RealServiceTest(kSchema) {}

    static std::wstring Text(const _bstr_t& text) { return !text ? L"(null)" : std::wstring(text); }
};

TEST_F(ObjectXmlTest, ShowsTheHeldObjectsOwnPropertiesAndNotTheBag) {
    CMgmtObject object(L"Cls", L"42", nullptr);
    ASSERT_TRUE(object.Get());
    EXPECT_THAT(Text(object.GetXML()),
                AllOf(HasSubstr(L"answer"), HasSubstr(L"within"), Not(HasSubstr(L"Days")),
                      Not(HasSubstr(L"\"__")), Not(HasSubstr(L"QUALIFIER")), Not(HasSubstr(L"PATH"))));
    object.SetPropertyValue(L"DisplayName", L"changed");
    EXPECT_THAT(Text(object.GetXML()), HasSubstr(L"changed"));
    _variant_t null;
    null.vt = VT_NULL;
    object.SetPropertyValue(L"DisplayName", null);
    object.SetPropertyValue(L"Other", L"only in the bag");
    EXPECT_THAT(Text(object.GetXML()), AllOf(HasSubstr(L"changed"), Not(HasSubstr(L"Other"))));
}

TEST_F(ObjectXmlTest, WithoutAnObjectOrTheFacilityThereIsNoText) {
    CMgmtObjectBase unbound;
    unbound.SetPropertyValue(L"DisplayName", L"only here");
    EXPECT_FALSE(unbound.GetXML());
    std::atomic<long> live{0};
    const CComPtr<IClassFactory> broken(new BrokenFactory(live));
    for (const _variant_t& held : {_variant_t(static_cast<IUnknown*>(broken)), _variant_t(L"text")})
        EXPECT_FALSE(CMgmtObjectBase(&held, false).GetXML());

    CMgmtObject object(L"Cls", L"42", nullptr);
    ASSERT_TRUE(object.Get());
    for (const CLSID& part : {CLSID_WbemContext, CLSID_WbemObjectTextSrc}) {
        DWORD cookie = 0;
        ASSERT_EQ(CoRegisterClassObject(part, broken, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie),
                  S_OK);
        EXPECT_FALSE(object.GetXML());
        CoRevokeClassObject(cookie);
    }
    std::jthread([&] { EXPECT_FALSE(object.GetXML()) << "on a thread without COM"; }).join();
}

}  // namespace
