#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <semaphore>
#include <string>
#include <thread>

#include <windows.h>

#include "tests/platform/test_module/trace.h"
#include "tests/platform/threads.h"
#include "tests/service/child_process.h"

namespace {

class CriticalSectionTest : public testing::Test {
 protected:
    CriticalSectionTest() { InitializeCriticalSection(&section_); }
    ~CriticalSectionTest() override { DeleteCriticalSection(&section_); }

    CRITICAL_SECTION section_;
};

TEST_F(CriticalSectionTest, AForkedChildFindsItFree) {
    std::binary_semaphore is_entered(0), is_done(0);
    std::jthread owner([&] {
        EnterCriticalSection(&section_);
        is_entered.release();
        is_done.acquire();
        LeaveCriticalSection(&section_);
    });
    is_entered.acquire();
    ChildProcess child([&] {
        alarm(30);
        EnterCriticalSection(&section_);
        LeaveCriticalSection(&section_);
        EnterCriticalSection(&section_);
        return 0;
    });
    EXPECT_EQ(child.Wait(), 0);
    is_done.release();
}

TEST_F(CriticalSectionTest, OwnerEntersAgainAndOthersWaitForTheLastLeave) {
    EnterCriticalSection(&section_);
    EnterCriticalSection(&section_);
    std::atomic<bool> released = false;
    std::jthread other([&] {
        EnterCriticalSection(&section_);
        EXPECT_TRUE(released);
        LeaveCriticalSection(&section_);
    });
    LeaveCriticalSection(&section_);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    released = true;
    LeaveCriticalSection(&section_);
}

TEST(LastErrorTest, BelongsToTheThread) {
    SetLastError(ERROR_FILE_NOT_FOUND);
    std::jthread([] {
        EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
        SetLastError(ERROR_ACCESS_DENIED);
    }).join();
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST(ResultTest, SystemErrorsBecomeResults) {
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_SUCCESS), S_OK);
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED), E_ACCESSDENIED);
    EXPECT_EQ(HRESULT_FROM_WIN32(static_cast<std::uint32_t>(E_FAIL)), E_FAIL);
    EXPECT_EQ(MAKE_HRESULT(SEVERITY_ERROR, FACILITY_ITF, 0x1002), static_cast<HRESULT>(0x80041002));
}

TEST(ModuleEntryTest, RunsAfterConstructionAndBeforeDestruction) {
    std::string unload;
    void* const image = dlopen(TEST_MODULE, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(image, nullptr) << dlerror();
    const auto get_life = reinterpret_cast<decltype(&GetModuleLife)>(dlsym(image, "GetModuleLife"));
    ASSERT_NE(get_life, nullptr);
    ModuleLife& life = *get_life();
    EXPECT_EQ(life.attached, 1);
    EXPECT_TRUE(life.static_object_was_ready);
    EXPECT_TRUE(life.thread_calls_disabled);
    const link_map* map = nullptr;
    ASSERT_EQ(dlinfo(image, RTLD_DI_LINKMAP, &map), 0);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(life.module), map->l_addr);

    life.unload = &unload;
    ASSERT_EQ(dlclose(image), 0);
    EXPECT_EQ(unload, "detach destroyed ");
}

TEST(ModuleEntryTest, OnlyTheBaseOfAnImageIsAModule) {
    int local = 0;
    SetLastError(ERROR_SUCCESS);
    EXPECT_FALSE(DisableThreadLibraryCalls(nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_FALSE(DisableThreadLibraryCalls(reinterpret_cast<HMODULE>(&local)));
}

}  // namespace
