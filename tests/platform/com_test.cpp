#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <utility>

#include <atlbase.h>
#include <errorinfo.h>
#include <objbase.h>

#include "tests/platform/automation_values.h"
#include "tests/platform/threads.h"

namespace {

using testing::HasSubstr;
using testing::Return;

constexpr CLSID CLSID_Thing = {0xaaaaaaaa, 0x1111, 0x2222, {1, 2, 3, 4, 5, 6, 7, 8}};
constexpr CLSID CLSID_Other = {0xaaaaaaab, 0x1111, 0x2222, {1, 2, 3, 4, 5, 6, 7, 8}};
// The test module's class.
constexpr CLSID CLSID_Only = {0x12345678, 0x1234, 0x1234, {1, 2, 3, 4, 5, 6, 7, 8}};

// A class object on the stack of a test, which creates itself, or fails with `result`.
class Factory final : public IClassFactory {
 public:
    explicit Factory(HRESULT result = S_OK) : result_(result) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** out) override {
        CallOnce(on_query);
        if (riid != IID_IUnknown && riid != IID_IClassFactory) return E_NOINTERFACE;
        *out = this;
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --references;
        if (left == 0) CallOnce(on_last_release);
        return left;
    }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** out) override {
        if (outer != nullptr) return CLASS_E_NOAGGREGATION;
        // A failing server need not keep its out argument clean.
        *out = this;
        if (FAILED(result_)) return result_;
        return QueryInterface(riid, out);
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }

    std::atomic<ULONG> references = 0;
    // Each is called once and then forgotten.
    std::function<void()> on_query;
    std::function<void()> on_last_release;

 private:
    static void CallOnce(std::function<void()>& callback) {
        if (const auto taken = std::exchange(callback, nullptr)) taken();
    }

    HRESULT result_;
};

class ComTest : public testing::Test {
 protected:
    void SetUp() override { ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK); }
    void TearDown() override { CoUninitialize(); }

    static DWORD Register(Factory& factory, REFCLSID clsid = CLSID_Thing) {
        DWORD cookie = 0;
        EXPECT_EQ(CoRegisterClassObject(clsid, &factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie),
                  S_OK);
        return cookie;
    }
    // The class object that answers for the class, null where creation fails.
    static CComPtr<IUnknown> Create(REFCLSID clsid = CLSID_Thing) {
        CComPtr<IUnknown> made;
        CoCreateInstance(clsid, nullptr, CLSCTX_SERVER, IID_PPV_ARGS(&made));
        return made;
    }
};

TEST_F(ComTest, EveryThreadInitialisesForItself) {
    std::jthread([] {
        Factory factory;
        IUnknown* made = &factory;
        DWORD cookie = 0;
        EXPECT_EQ(CoCreateInstance(CLSID_Thing, nullptr, CLSCTX_SERVER, IID_PPV_ARGS(&made)),
                  CO_E_NOTINITIALIZED);
        EXPECT_EQ(made, nullptr);
        EXPECT_EQ(CoGetClassObject(CLSID_Thing, CLSCTX_SERVER, nullptr, IID_PPV_ARGS(&made)),
                  CO_E_NOTINITIALIZED);
        EXPECT_EQ(CoRegisterClassObject(CLSID_Thing, &factory, CLSCTX_INPROC_SERVER, 0, &cookie),
                  CO_E_NOTINITIALIZED);
        EXPECT_EQ(factory.references, 0U);
    }).join();
}

TEST(ComThreadTest, InitialisationsAreCountedAndKeepTheirModel) {
    std::jthread([] {
        int reserved = 0;
        EXPECT_EQ(CoInitializeEx(&reserved, COINIT_MULTITHREADED), E_INVALIDARG);
        EXPECT_EQ(CoInitializeEx(nullptr, 0x100), E_INVALIDARG);
        CoUninitialize();

        EXPECT_EQ(CoInitialize(nullptr), S_OK);
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE), S_FALSE);
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), RPC_E_CHANGED_MODE);
        CoUninitialize();
        EXPECT_EQ(CoRevokeClassObject(0), E_INVALIDARG) << "still initialised once";
        CoUninitialize();
        EXPECT_EQ(CoRevokeClassObject(0), CO_E_NOTINITIALIZED);
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK) << "the model may change now";
        CoUninitialize();
    }).join();
}

TEST_F(ComTest, LatestRegistrationWinsUntilRevoked) {
    Factory first, second, other;
    const DWORD first_cookie = Register(first);
    const DWORD other_cookie = Register(other, CLSID_Other);
    const DWORD second_cookie = Register(second);
    EXPECT_EQ(Create(), static_cast<IUnknown*>(&second));
    EXPECT_EQ(Create(CLSID_Other), static_cast<IUnknown*>(&other));

    EXPECT_EQ(CoRevokeClassObject(second_cookie), S_OK);
    EXPECT_EQ(CoRevokeClassObject(second_cookie), E_INVALIDARG);
    EXPECT_EQ(Create(), static_cast<IUnknown*>(&first));
    EXPECT_EQ(CoRevokeClassObject(first_cookie), S_OK);
    EXPECT_EQ(CoRevokeClassObject(other_cookie), S_OK);
    EXPECT_EQ(first.references + second.references + other.references, 0U);
}

TEST_F(ComTest, FailuresLeaveNullAndTheirOwnResult) {
    Factory failing(E_ACCESSDENIED);
    const DWORD cookie = Register(failing);
    Factory outer;
    for (IUnknown* const aggregate : {static_cast<IUnknown*>(nullptr), static_cast<IUnknown*>(&outer)}) {
        IUnknown* made = &outer;
        EXPECT_EQ(CoCreateInstance(CLSID_Thing, aggregate, CLSCTX_SERVER, IID_PPV_ARGS(&made)),
                  aggregate == nullptr ? E_ACCESSDENIED : CLASS_E_NOAGGREGATION);
        EXPECT_EQ(made, nullptr);
    }
    IErrorInfo* wrong = nullptr;
    EXPECT_EQ(CoGetClassObject(CLSID_Thing, CLSCTX_SERVER, nullptr, IID_PPV_ARGS(&wrong)), E_NOINTERFACE);
    EXPECT_EQ(CoGetClassObject(CLSID_Thing, 0, nullptr, IID_PPV_ARGS(&wrong)), E_INVALIDARG);
    EXPECT_EQ(CoGetClassObject(CLSID_Thing, CLSCTX_SERVER, &outer, IID_PPV_ARGS(&wrong)), E_INVALIDARG);
    EXPECT_EQ(CoCreateInstance(CLSID_Thing, nullptr, CLSCTX_SERVER, IID_IUnknown, nullptr), E_POINTER);
    DWORD refused = 42;
    EXPECT_EQ(CoRegisterClassObject(CLSID_Thing, nullptr, CLSCTX_SERVER, 0, &refused), E_INVALIDARG);
    EXPECT_EQ(refused, 0U);
    EXPECT_EQ(CoRegisterClassObject(CLSID_Thing, &outer, CLSCTX_SERVER, 0, nullptr), E_INVALIDARG);
    EXPECT_EQ(CoRegisterClassObject(CLSID_Thing, &outer, 0, 0, &refused), E_INVALIDARG);
    EXPECT_EQ(CoRevokeClassObject(cookie), S_OK);
    EXPECT_EQ(failing.references, 0U);
}

// The table keeps its room when a class object leaves it, so there is no count of allocations to compare.
TEST_F(ComTest, ExhaustedMemoryRegistersNothing) {
    Factory factory;
    HRESULT hr = E_OUTOFMEMORY;
    for (long number = 1; hr == E_OUTOFMEMORY; ++number) {
        DWORD cookie = 42;
        {
            const doubles::FailingAllocation failing(number);
            hr = CoRegisterClassObject(CLSID_Thing, &factory, CLSCTX_SERVER, REGCLS_MULTIPLEUSE, &cookie);
        }
        EXPECT_EQ(CoRevokeClassObject(cookie), SUCCEEDED(hr) ? S_OK : E_INVALIDARG) << number;
        EXPECT_EQ(factory.references, 0U) << number;
    }
    EXPECT_EQ(hr, S_OK);
}

// A lock held over the call would stop the test here.
TEST_F(ComTest, ClassObjectsMayCallTheRuntimeBack) {
    Factory factory, from_within;
    DWORD cookie = Register(factory);
    factory.on_query = [&] {
        // On another thread, which a lock of this one's would not let in.
        std::jthread([inner = Register(from_within, CLSID_Other)] {
            CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            EXPECT_EQ(CoRevokeClassObject(inner), S_OK);
            CoUninitialize();
        }).join();
        EXPECT_EQ(CoRevokeClassObject(cookie), S_OK);
    };
    factory.on_last_release = [&] { cookie = Register(from_within); };
    EXPECT_EQ(Create(), static_cast<IUnknown*>(&factory)) << "revoked while it was in use";
    EXPECT_FALSE(factory.on_last_release) << "released";
    EXPECT_EQ(CoRevokeClassObject(cookie), S_OK);
    EXPECT_EQ(from_within.references, 0U);
}

TEST_F(ComTest, ThreadsRegisterCreateAndRevokeAtOnce) {
    Factory base;
    const DWORD base_cookie = Register(base);
    std::atomic<int> failures = 0;
    RunInThreads(4, [&failures] {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        for (int round = 0; round < 2'000; ++round) {
            Factory own;
            DWORD cookie = 0;
            if (FAILED(CoRegisterClassObject(CLSID_Other, &own, CLSCTX_SERVER, 0, &cookie)) ||
                Create() == nullptr || FAILED(CoRevokeClassObject(cookie)) || own.references != 0)
                ++failures;
        }
        CoUninitialize();
    });
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(CoRevokeClassObject(base_cookie), S_OK);
    EXPECT_EQ(base.references, 0U);
}

std::wstring TakeErrorText() {
    CComPtr<IErrorInfo> info;
    if (GetErrorInfo(0, &info) != S_OK) return {};
    CComBSTR text;
    info->GetDescription(&text);
    return Units(text);
}

HRESULT CreateFromModule(REFCLSID clsid, DWORD context = CLSCTX_SERVER) {
    CComPtr<IUnknown> made;
    const HRESULT hr = CoCreateInstance(clsid, nullptr, context, IID_PPV_ARGS(&made));
    EXPECT_EQ(SUCCEEDED(hr), made != nullptr);
    return hr;
}

// The module is loaded once in a process, so the whole story is told in one of its own.
[[noreturn]] void LiveThroughModuleLoading() {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    const struct {
        const char* path;
        HRESULT result;
        const wchar_t* named;
    } unusable[] = {{"/nonexistent/\xC3\xA4.so", REGDB_E_CLASSNOTREG, L"/nonexistent/\u00E4.so"},
                    {"/nonexistent/\xFF.so", REGDB_E_CLASSNOTREG, L"cannot be used"},
                    {"libm.so.6", CO_E_ERRORINDLL, L"DllGetClassObject"}};
    for (const auto& [path, result, named] : unusable) {
        setenv("MGMT_SERVICE_MODULE", path, 1);
        EXPECT_EQ(CreateFromModule(CLSID_Only), result);
        EXPECT_THAT(TakeErrorText(), HasSubstr(named));
    }
    FailEachAllocation([] {
        const HRESULT hr = CreateFromModule(CLSID_Only);
        EXPECT_TRUE(hr == CO_E_ERRORINDLL || hr == E_OUTOFMEMORY) << hr;
        SetErrorInfo(0, nullptr);
    });

    setenv("MGMT_SERVICE_MODULE", TEST_MODULE, 1);
    EXPECT_EQ(CreateFromModule(CLSID_Only, CLSCTX_LOCAL_SERVER), REGDB_E_CLASSNOTREG)
        << "not a process's own";
    EXPECT_EQ(CreateFromModule(CLSID_Only), S_OK) << "a failed load is tried again";
    EXPECT_EQ(CreateFromModule(CLSID_Thing), CLASS_E_CLASSNOTAVAILABLE);

    setenv("MGMT_SERVICE_MODULE", "/nonexistent/module.so", 1);
    EXPECT_EQ(CreateFromModule(CLSID_Only), S_OK) << "loaded once, it stays";

    Factory factory;
    DWORD cookie = 0;
    EXPECT_EQ(CoRegisterClassObject(CLSID_Only, &factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie),
              S_OK);
    factory.on_query = [] {};
    EXPECT_EQ(CreateFromModule(CLSID_Only), S_OK);
    EXPECT_FALSE(factory.on_query) << "what is registered comes before the module";
    EXPECT_EQ(CoRevokeClassObject(cookie), S_OK);
    CoUninitialize();
    std::exit(testing::Test::HasFailure() ? 1 : 0);
}

[[noreturn]] void LoadModuleFromManyThreads() {
    setenv("MGMT_SERVICE_MODULE", TEST_MODULE, 1);
    RunInThreads(8, [] {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        EXPECT_EQ(CreateFromModule(CLSID_Only), S_OK);
        CoUninitialize();
    });
    std::exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST(ServiceModuleDeathTest, IsFoundLoadedOnceAndKept) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(LiveThroughModuleLoading(), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(LoadModuleFromManyThreads(), testing::ExitedWithCode(0), "");
}

class Proxy final : public doubles::ComObject<IClientSecurity> {
 public:
    explicit Proxy(std::atomic<long>& live) noexcept : ComObject(live) {}

    MOCK_METHOD(HRESULT, QueryBlanket, (IUnknown*, DWORD*, DWORD*, OLECHAR**, DWORD*, DWORD*, void**, DWORD*),
                (override));
    MOCK_METHOD(HRESULT, SetBlanket, (IUnknown*, DWORD, DWORD, OLECHAR*, DWORD, DWORD, void*, DWORD),
                (override));
    MOCK_METHOD(HRESULT, CopyProxy, (IUnknown*, IUnknown**), (override));
};

TEST(ProxyBlanketTest, SettingsReachTheObjectAndItsAnswerTheCaller) {
    std::atomic<long> live{0};
    auto* const proxy = new Proxy(live);
    const CComPtr<IClientSecurity> held(proxy);
    COAUTHIDENTITY identity = {};
    wchar_t principal[] = L"principal";
    EXPECT_CALL(*proxy,
                SetBlanket(proxy, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NAME, principal, RPC_C_AUTHN_LEVEL_CALL,
                           RPC_C_IMP_LEVEL_DELEGATE, &identity, EOAC_MUTUAL_AUTH))
        .WillOnce(Return(E_ACCESSDENIED));
    EXPECT_EQ(CoSetProxyBlanket(proxy, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NAME, principal, RPC_C_AUTHN_LEVEL_CALL,
                                RPC_C_IMP_LEVEL_DELEGATE, &identity, EOAC_MUTUAL_AUTH),
              E_ACCESSDENIED);
    EXPECT_EQ(proxy->AddRef(), 2U);
    EXPECT_EQ(proxy->Release(), 1U) << "what was asked for its security is released";

    const CComPtr<IUnknown> plain(new CountedObject(live));
    EXPECT_EQ(CoSetProxyBlanket(plain, 0, 0, nullptr, 0, 0, nullptr, 0), E_NOINTERFACE);
    EXPECT_EQ(CoSetProxyBlanket(nullptr, 0, 0, nullptr, 0, 0, nullptr, 0), E_INVALIDARG);
}

}  // namespace
