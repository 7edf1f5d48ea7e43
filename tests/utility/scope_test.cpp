#include "utility/management/util_MgmtScope.h"

#include <atomic>
#include <optional>
#include <thread>

#include "tests/utility/service_fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr wchar_t BUILT_IN[] = L"\\\\.\\root\\Vantrel\\Halvenor";

using ScopeTest = ServiceTest;

// Asks the scope's connection for something, as the library's objects do.
bool HasServices(CMgmtScope& scope) {
    CMgmtObject object(L"Cls", nullptr, nullptr);
    object.SetScope(scope, false);
    return object.Get();
}

doubles::Blanket BlanketFor(doubles::FakeService& service, const wchar_t* user, const wchar_t* password) {
    CMgmtScope scope;
    scope.SetUserName(user);
    scope.SetPassword(password);
    scope.Connect();
    return service.Blankets().back();
}

TEST_F(ScopeTest, PathIsCopiedAndSharedByCopies) {
    CMgmtScope scope;
    EXPECT_EQ(scope.GetPath(), BUILT_IN);
    EXPECT_FALSE(CMgmtScope(nullptr).GetPath());

    CMgmtScope copy(scope);
    _bstr_t path(L"\\\\.\\root\\Other");
    copy.SetPath(path);
    EXPECT_EQ(scope.GetPath(), L"\\\\.\\root\\Other");

    CMgmtScope assigned(L"x");
    assigned = scope;
    assigned = *&assigned;
    path = L"y";
    assigned.SetPath(path);
    EXPECT_EQ(copy.GetPath(), L"y");
}

TEST_F(ScopeTest, ConnectsOnceForAllCopiesAndStaysConnected) {
    CMgmtScope scope(L"\\\\.\\root\\Test");
    CMgmtScope copy(scope);
    EXPECT_FALSE(copy.IsConnected());
    scope.Connect();
    EXPECT_TRUE(copy.IsConnected());
    _bstr_t elsewhere(L"\\\\.\\root\\Elsewhere");
    copy.SetPath(elsewhere);
    copy.Connect();
    EXPECT_THAT(Requests(), ElementsAre(L"CreateLocator", L"ConnectServer \\\\.\\root\\Test", L"SetBlanket"));
}

TEST_F(ScopeTest, LastHandleReleasesTheConnection) {
    std::optional<CMgmtScope> scope(std::in_place);
    std::optional<CMgmtScope> copy(*scope);
    scope->Connect();
    const long connected = service.LiveObjects();
    scope.reset();
    EXPECT_EQ(service.LiveObjects(), connected);
    copy.reset();
    EXPECT_EQ(service.LiveObjects(), connected - 1);
}

TEST_F(ScopeTest, ConnectionHasThreeOutcomes) {
    CMgmtScope noLocator;
    service.locatorResult = E_FAIL;
    noLocator.Connect();
    EXPECT_FALSE(noLocator.IsConnected());
    EXPECT_FALSE(HasServices(noLocator));

    CMgmtScope refused;
    service.locatorResult = S_OK;
    service.connectResult = WBEM_E_ACCESS_DENIED;
    refused.Connect();
    EXPECT_FALSE(refused.IsConnected());
    EXPECT_FALSE(HasServices(refused));

    CMgmtScope unsecured;
    service.connectResult = S_OK;
    service.blanketResult = E_ACCESSDENIED;
    unsecured.Connect();
    EXPECT_FALSE(unsecured.IsConnected());
    EXPECT_TRUE(HasServices(unsecured)) << "a connection without its security settings is used";
    EXPECT_EQ(service.LiveObjects(), 2) << "the first connection is replaced, not leaked";

    service.blanketResult = S_FALSE;
    unsecured.Connect();
    EXPECT_TRUE(unsecured.IsConnected()) << "any result that is no failure secures the connection";
}

TEST_F(ScopeTest, ThreadWithoutComIsNotConnected) {
    CMgmtScope scope;
    std::thread([&] { scope.Connect(); }).join();
    EXPECT_FALSE(scope.IsConnected());
    EXPECT_THAT(Requests(), IsEmpty());
}

TEST_F(ScopeTest, IdentityComesFromUserNameAndPassword) {
    const doubles::Blanket domain = BlanketFor(service, L"LAB\\operator", L"secret");
    EXPECT_EQ(domain.domain, L"LAB");
    EXPECT_EQ(domain.user, L"operator");
    EXPECT_EQ(domain.password, L"secret");
    EXPECT_EQ(domain.flags, 2U);
    EXPECT_EQ(domain.authentication, 10U);
    EXPECT_EQ(domain.authorisation, 0U);
    EXPECT_EQ(domain.level, 3U);
    EXPECT_EQ(domain.impersonation, 3U);
    EXPECT_EQ(domain.capabilities, 0U);
    EXPECT_FALSE(domain.hasPrincipal);

    EXPECT_EQ(BlanketFor(service, L"LAB\\a\\b", L"").user, L"a\\b");
    for (const wchar_t* whole : {L"operator", L"LAB\\operator@lab.example", L""}) {
        const doubles::Blanket blanket = BlanketFor(service, whole, L"secret");
        EXPECT_TRUE(blanket.hasUser);
        EXPECT_EQ(blanket.user, whole);
        EXPECT_FALSE(blanket.hasDomain);
    }

    const doubles::Blanket noPassword = BlanketFor(service, L"operator", nullptr);
    EXPECT_FALSE(noPassword.hasUser || noPassword.hasDomain || noPassword.hasPassword);
    const doubles::Blanket noUser = BlanketFor(service, nullptr, L"secret");
    EXPECT_FALSE(noUser.hasUser || noUser.hasDomain);
    EXPECT_EQ(noUser.password, L"secret");
}

TEST_F(ScopeTest, LongUserNameIsExaminedUpTo259Units) {
    const std::wstring user(300, L'u');
    EXPECT_EQ(BlanketFor(service, (L"D\\" + user).c_str(), L"").user, user.substr(0, 257));
    EXPECT_EQ(BlanketFor(service, user.c_str(), L"").user, user);
    EXPECT_EQ(BlanketFor(service, (user + L"\\u").c_str(), L"").user, user + L"\\u")
        << "a separator behind the 259th unit is not seen";
    EXPECT_EQ(BlanketFor(service, (L"D\\" + user + L"@x").c_str(), L"").domain, L"D");
}

TEST_F(ScopeTest, DefaultIsReplacedWholeAndOldHandlesKeepTheirs) {
    CMgmtObject early(L"Cls", nullptr, nullptr);
    CMgmtScope before = CMgmtScope::GetDefaultMgmtScope();
    EXPECT_EQ(before.GetPath(), L"\\\\.\\root\\Test");
    EXPECT_TRUE(MgmtInitialize(L"\\\\.\\root\\New"));
    EXPECT_EQ(CMgmtScope::GetDefaultMgmtScope().GetPath(), L"\\\\.\\root\\New");
    EXPECT_TRUE(early.Get());
    EXPECT_TRUE(before.IsConnected()) << "the early object works on the scope of its construction";
    EXPECT_FALSE(CMgmtScope::GetDefaultMgmtScope().IsConnected());

    MgmtUninitialize();
    EXPECT_EQ(CMgmtScope::GetDefaultMgmtScope().GetPath(), BUILT_IN);
    CMgmtScope::GetDefaultMgmtScope().Connect();
    MgmtUninitialize();
    EXPECT_FALSE(CMgmtScope::GetDefaultMgmtScope().IsConnected()) << "equal, but fresh";

    CMgmtScope mine(L"mine");
    CMgmtScope::SetDefaultMgmtScope(mine);
    _bstr_t changed(L"changed");
    mine.SetPath(changed);
    EXPECT_EQ(CMgmtScope::GetDefaultMgmtScope().GetPath(), L"changed");
    EXPECT_TRUE(MgmtInitialize(nullptr));
    EXPECT_FALSE(CMgmtScope::GetDefaultMgmtScope().GetPath());
}

TEST_F(ScopeTest, ThreadsConnectOneRecordOnce) {
    service.connectTime = std::chrono::milliseconds(50);  // so that the others come meanwhile
    CMgmtScope scope;
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([scope]() mutable {
            const doubles::ComThread com;
            scope.Connect();
            EXPECT_TRUE(HasServices(scope));
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_THAT(service.Blankets(), SizeIs(1));
}

TEST_F(ScopeTest, ThreadsShareAConnectionThatCannotBeSecured) {
    service.blanketResult = E_ACCESSDENIED;
    CMgmtScope scope;
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([scope]() mutable {
            const doubles::ComThread com;
            for (int n = 0; n < 100; ++n)
                EXPECT_TRUE(HasServices(scope));
        });
    for (std::thread& thread : threads)
        thread.join();
}

TEST_F(ScopeTest, ObjectsMadeWhileTheDefaultIsReplacedGetOneOrTheOther) {
    std::atomic<bool> stop{false};
    std::thread replacing([&] {
        while (!stop) {
            MgmtInitialize(L"one");
            MgmtUninitialize();
        }
    });
    for (int n = 0; n < 20000; ++n) {
        const CMgmtObject object;
        const _bstr_t path = CMgmtScope::GetDefaultMgmtScope().GetPath();
        ASSERT_TRUE(path == L"one" || path == BUILT_IN || path == L"\\\\.\\root\\Test");
    }
    stop = true;
    replacing.join();
}

}  // namespace
