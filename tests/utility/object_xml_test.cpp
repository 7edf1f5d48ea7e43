// CMgmtObjectBase::GetXML against a context and a text source that record what they are given.
#include <atomic>
#include <memory>
#include <thread>

#include <atlbase.h>

#include "tests/doubles/com_object.h"
#include "tests/utility/service_fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// What was asked, and how the facility is to answer.
struct Facility {
    std::vector<std::wstring> log;
    std::atomic<long> live{0};
    HRESULT contextResult = S_OK;
    HRESULT sourceResult = S_OK;
    HRESULT valueResult = S_OK;
    HRESULT textResult = S_OK;
    IUnknown* context = nullptr;
};

class Context final : public doubles::ComObject<IWbemContext> {
 public:
    explicit Context(Facility& facility) : ComObject(facility.live), m_Facility(facility) {
        facility.context = this;
    }

    HRESULT SetValue(LPCWSTR wszName, long lFlags, VARIANT* pValue) override {
        m_Facility.log.push_back(std::wstring(wszName) + L" " + std::to_wstring(lFlags) + L" " +
                                 std::to_wstring(pValue->vt) + L" " +
                                 std::to_wstring(pValue->vt == VT_BOOL ? pValue->boolVal : pValue->lVal));
        return m_Facility.valueResult;
    }

    HRESULT Clone(IWbemContext**) override { return E_NOTIMPL; }
    HRESULT GetNames(long, SAFEARRAY**) override { return E_NOTIMPL; }
    HRESULT BeginEnumeration(long) override { return E_NOTIMPL; }
    HRESULT Next(long, BSTR*, VARIANT*) override { return E_NOTIMPL; }
    HRESULT EndEnumeration() override { return E_NOTIMPL; }
    HRESULT GetValue(LPCWSTR, long, VARIANT*) override { return E_NOTIMPL; }
    HRESULT DeleteValue(LPCWSTR, long) override { return E_NOTIMPL; }
    HRESULT DeleteAll() override { return E_NOTIMPL; }

 private:
    Facility& m_Facility;
};

// Its text is the object's DisplayName, in brackets.
class TextSource final : public doubles::ComObject<IWbemObjectTextSrc> {
 public:
    explicit TextSource(Facility& facility) : ComObject(facility.live), m_Facility(facility) {}

    HRESULT GetText(long lFlags, IWbemClassObject* pObj, ULONG uObjTextFormat, IWbemContext* pCtx,
                    BSTR* strText) override {
        m_Facility.log.push_back(L"GetText " + std::to_wstring(lFlags) + L" " +
                                 std::to_wstring(uObjTextFormat) +
                                 (pCtx == m_Facility.context ? L"" : L" with another context"));
        if (FAILED(m_Facility.textResult)) return m_Facility.textResult;
        _variant_t value;
        pObj->Get(L"DisplayName", 0, &value, nullptr, nullptr);
        *strText = SysAllocString((L"<" + TextOf(value) + L">").c_str());
        return m_Facility.textResult;
    }

    HRESULT CreateFromText(long, BSTR, ULONG, IWbemContext*, IWbemClassObject**) override {
        return E_NOTIMPL;
    }

 private:
    Facility& m_Facility;
};

template <typename Object>
class Factory final : public doubles::ComObject<IClassFactory> {
 public:
    Factory(Facility& facility, const wchar_t* name, const HRESULT& result)
        : ComObject(facility.live), m_Facility(facility), m_Name(name), m_Result(result) {}

    HRESULT CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) override {
        m_Facility.log.emplace_back(m_Name);
        *ppvObject = nullptr;
        if (pUnkOuter != nullptr) return CLASS_E_NOAGGREGATION;
        if (m_Result != S_OK) return m_Result;
        const CComPtr<Object> object(new Object(m_Facility));
        return object->QueryInterface(riid, ppvObject);
    }
    HRESULT LockServer(BOOL) override { return S_OK; }

 private:
    Facility& m_Facility;
    const wchar_t* m_Name;
    const HRESULT& m_Result;
};

class ObjectXmlTest : public ServiceTest {
 protected:
    void SetUp() override {
        ServiceTest::SetUp();
        Register(CLSID_WbemContext,
                 new Factory<Context>(m_Facility, L"CreateContext", m_Facility.contextResult));
        Register(CLSID_WbemObjectTextSrc,
                 new Factory<TextSource>(m_Facility, L"CreateSource", m_Facility.sourceResult));
        service.AddInstance(L"Cls", L"42", {{L"DisplayName", _variant_t(L"answer")}});
    }

    void TearDown() override {
        for (const DWORD cookie : m_Cookies)
            CoRevokeClassObject(cookie);
        EXPECT_EQ(m_Facility.live, 0) << "everything made was released";
        ServiceTest::TearDown();
    }

    void Register(REFCLSID classId, IUnknown* factory) {
        const CComPtr<IUnknown> held(factory);
        DWORD cookie = 0;
        ASSERT_EQ(CoRegisterClassObject(classId, held, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie),
                  S_OK);
        m_Cookies.push_back(cookie);
    }

    std::vector<std::wstring> Log() { return std::exchange(m_Facility.log, {}); }

    Facility m_Facility;
    std::vector<DWORD> m_Cookies;
};

TEST_F(ObjectXmlTest, AsksForTheHeldObjectsLocalProperties) {
    CMgmtObject object(L"Cls", L"42", nullptr);
    ASSERT_TRUE(object.Get());
    EXPECT_EQ(object.GetXML(), L"<answer>");
    EXPECT_THAT(Log(), ElementsAre(L"CreateContext", L"LocalOnly 0 11 -1", L"IncludeQualifiers 0 11 0",
                                   L"PathLevel 0 3 0", L"ExcludeSystemProperties 0 11 -1", L"CreateSource",
                                   L"GetText 0 2"));
}

TEST_F(ObjectXmlTest, ShowsTheHeldObjectAndNotTheBag) {
    CMgmtObject object(L"Cls", L"42", nullptr);
    ASSERT_TRUE(object.Get());
    object.SetPropertyValue(L"DisplayName", L"changed");
    EXPECT_EQ(object.GetXML(), L"<changed>");
    object.SetPropertyValue(L"DisplayName", NullValue());
    EXPECT_EQ(object.GetXML(), L"<changed>") << "a null is not written";
    object.SetPropertyValue(L"DisplayName", 5);
    EXPECT_EQ(object.GetXML(), L"<changed>") << "refused";
}

TEST_F(ObjectXmlTest, WithoutAClassObjectNothingIsAsked) {
    CMgmtObjectBase unbound;
    unbound.SetPropertyValue(L"DisplayName", L"only here");
    EXPECT_FALSE(unbound.GetXML());
    const _variant_t text(L"text");
    const _variant_t stranger(new Factory<Context>(m_Facility, L"stranger", m_Facility.contextResult));
    const _variant_t nothing(static_cast<IUnknown*>(nullptr));
    for (const _variant_t* held : {&text, &stranger, &nothing})
        EXPECT_FALSE(CMgmtObjectBase(held, false).GetXML());
    EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(ObjectXmlTest, FailingFacilityGivesNoText) {
    CMgmtObject object(L"Cls", L"42", nullptr);
    ASSERT_TRUE(object.Get());
    m_Facility.contextResult = E_FAIL;
    EXPECT_FALSE(object.GetXML());
    EXPECT_THAT(Log(), ElementsAre(L"CreateContext"));

    m_Facility.contextResult = S_OK;
    m_Facility.sourceResult = E_FAIL;
    EXPECT_FALSE(object.GetXML());
    EXPECT_EQ(Log().back(), L"CreateSource");

    m_Facility.sourceResult = S_OK;
    m_Facility.textResult = WBEM_E_FAILED;
    EXPECT_FALSE(object.GetXML());
    m_Facility.textResult = WBEM_S_FALSE;
    m_Facility.valueResult = WBEM_E_FAILED;
    EXPECT_EQ(object.GetXML(), L"<answer>") << "neither status is looked at";

    bool hasText = true;
    std::thread([&] { hasText = static_cast<bool>(object.GetXML()); }).join();
    EXPECT_FALSE(hasText) << "on a thread without COM";
}

}  // namespace
