#include "utility/management/util_MgmtScope.h"

#include <optional>
#include <thread>

#include "tests/platform/threads.h"
#include "tests/utility/service_fixture.h"

namespace {

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

// How a connection with these is secured, but for the settings that are always the same.
std::wstring IdentityFor(doubles::FakeService& service, const std::wstring& user, const wchar_t* password) {
    CMgmtScope scope;
    scope.SetUserName(user != L"(null)" ? user.c_str() : nullptr);
    scope.SetPassword(password);
    scope.Connect();
    const std::wstring blanket = service.Blankets().back();
    const std::wstring settings = L"10 0 3 3 0 2 (null) ";
    EXPECT_EQ(blanket.substr(0, settings.size()), settings);
    return blanket.substr(settings.size());
}

TEST_F(ScopeTest, PathIsCopiedAndSharedByCopies) {
    CMgmtScope scope;
    EXPECT_EQ(scope.GetPath(), BUILT_IN);
    EXPECT_FALSE(CMgmtScope(nullptr).GetPath());
    CMgmtScope copy(scope), assigned(L"x");
    assigned = scope;
    assigned = *&assigned;
    _bstr_t path(L"\\\\.\\root\\Other");
    copy.SetPath(path);
    path = L"y";
    EXPECT_EQ(scope.GetPath(), L"\\\\.\\root\\Other");
    EXPECT_EQ(assigned.GetPath(), L"\\\\.\\root\\Other");
}

TEST_F(ScopeTest, ConnectsOnceForAllCopiesUntilTheLastIsGone) {
    std::optional<CMgmtScope> scope(std::in_place, L"\\\\.\\root\\Test");
    std::optional<CMgmtScope> copy(*scope);
    EXPECT_FALSE(copy->IsConnected());
    scope->Connect();
    EXPECT_TRUE(copy->IsConnected());
    _bstr_t elsewhere(L"\\\\.\\root\\Elsewhere");
    copy->SetPath(elsewhere);
    copy->Connect();
    EXPECT_THAT(Requests(), AfterConnecting({}));
    const long connected = service.LiveObjects();
    scope.reset();
    EXPECT_EQ(service.LiveObjects(), connected);
    copy.reset();
    EXPECT_EQ(service.LiveObjects(), connected - 1);
}

TEST_F(ScopeTest, ConnectionHasThreeOutcomes) {
    CMgmtScope scope;
    service.locatorResult = E_FAIL;
    EXPECT_FALSE(HasServices(scope) || scope.IsConnected());
    service.locatorResult = S_OK;
    service.connectResult = WBEM_E_ACCESS_DENIED;
    EXPECT_FALSE(HasServices(scope) || scope.IsConnected());

    service.connectResult = S_OK;
    service.blanketResult = E_ACCESSDENIED;
    scope.Connect();
    EXPECT_FALSE(scope.IsConnected());
    EXPECT_TRUE(HasServices(scope)) << "a connection without its security settings is used";
    EXPECT_EQ(service.LiveObjects(), 2) << "the first connection is replaced, not leaked";
    service.blanketResult = S_FALSE;
    scope.Connect();
    EXPECT_TRUE(scope.IsConnected()) << "any result that is no failure secures the connection";
}

TEST_F(ScopeTest, ThreadWithoutComIsNotConnected) {
    CMgmtScope scope;
    std::thread([&] { scope.Connect(); }).join();
    EXPECT_FALSE(scope.IsConnected());
    EXPECT_THAT(Requests(), IsEmpty());
}

TEST_F(ScopeTest, IdentityComesFromUserNameAndPassword) {
    const struct {
        const wchar_t* user;
        const wchar_t* password;
        const wchar_t* identity;
    } cases[] = {{L"LAB\\operator", L"secret", L"LAB\\operator:secret"},
                 {L"LAB\\a\\b", L"", L"LAB\\a\\b:"},
                 {L"operator", L"secret", L"(null)\\operator:secret"},
                 {L"LAB\\operator@lab.example", L"secret", L"(null)\\LAB\\operator@lab.example:secret"},
                 {L"", L"secret", L"(null)\\:secret"},
                 {L"operator", nullptr, L"(null)\\(null):(null)"},
                 {L"(null)", L"secret", L"(null)\\(null):secret"}};
    for (const auto& [user, password, identity] : cases)
        EXPECT_EQ(IdentityFor(service, user, password), identity);
}

TEST_F(ScopeTest, LongUserNameIsExaminedUpTo259Units) {
    const std::wstring user(300, L'u');
    EXPECT_EQ(IdentityFor(service, L"D\\" + user, L""), L"D\\" + user.substr(0, 257) + L":");
    EXPECT_EQ(IdentityFor(service, L"D\\" + user + L"@x", L""), L"D\\" + user.substr(0, 257) + L":");
    EXPECT_EQ(IdentityFor(service, user + L"\\u", L""), L"(null)\\" + user + L"\\u:")
        << "a separator behind the 259th unit is not seen";
}

TEST_F(ScopeTest, DefaultIsReplacedWholeAndOldHandlesKeepTheirs) {
    CMgmtObject early(L"Cls", nullptr, nullptr);
    CMgmtScope before = CMgmtScope::GetDefaultMgmtScope();
    EXPECT_TRUE(MgmtInitialize(L"\\\\.\\root\\New"));
    EXPECT_EQ(CMgmtScope::GetDefaultMgmtScope().GetPath(), L"\\\\.\\root\\New");
    EXPECT_TRUE(early.Get());
    EXPECT_TRUE(before.IsConnected()) << "the early object works on the scope of its construction";
    EXPECT_FALSE(CMgmtScope::GetDefaultMgmtScope().IsConnected());

    CMgmtScope::GetDefaultMgmtScope().Connect();
    MgmtUninitialize();
    EXPECT_EQ(CMgmtScope::GetDefaultMgmtScope().GetPath(), BUILT_IN);
    EXPECT_FALSE(CMgmtScope::GetDefaultMgmtScope().IsConnected());

    CMgmtScope mine(L"mine");
    CMgmtScope::SetDefaultMgmtScope(mine);
    _bstr_t changed(L"changed");
    mine.SetPath(changed);
    EXPECT_EQ(CMgmtScope::GetDefaultMgmtScope().GetPath(), L"changed");
    EXPECT_TRUE(MgmtInitialize(nullptr));
    EXPECT_FALSE(CMgmtScope::GetDefaultMgmtScope().GetPath());
}

TEST_F(ScopeTest, ThreadsConnectOneRecordOnceAndShareOneThatCannotBeSecured) {
    service.connectTime = std::chrono::milliseconds(50);  // so that the others come meanwhile
    for (const HRESULT result : {S_OK, E_ACCESSDENIED}) {
        service.blanketResult = result;
        const CMgmtScope shared;
        RunInThreads(8, [&] {
            const doubles::ComThread com;
            CMgmtScope scope(shared);
            scope.Connect();
            for (int n = 0; n < 20; ++n)
                EXPECT_TRUE(HasServices(scope));
        });
        service.connectTime = std::chrono::milliseconds(0);
        if (result == S_OK) {
            EXPECT_THAT(service.Blankets(), SizeIs(1));
        }
    }
}

TEST_F(ScopeTest, ObjectsMadeWhileTheDefaultIsReplacedGetOneOrTheOther) {
    const std::jthread replacing([](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            MgmtInitialize(L"one");
            MgmtUninitialize();
        }
    });
    for (int n = 0; n < 20000; ++n) {
        const CMgmtObject object;
        const _bstr_t path = CMgmtScope::GetDefaultMgmtScope().GetPath();
        ASSERT_TRUE(path == L"one" || path == BUILT_IN || path == L"\\\\.\\root\\Test");
    }
}

}  // namespace
