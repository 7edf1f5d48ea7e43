// What the tests of events share.
//
//   const Handle event(CreateEventW(nullptr, FALSE, FALSE, TestName().c_str()));
//   std::jthread waiter(...);   AwaitSleeper(tid);   // the thread sleeps at an event now
//   EXPECT_THAT(FilesOf(name), testing::IsEmpty());
#pragma once

#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <sys/syscall.h>
#include <unistd.h>

#include <windows.h>

class Handle {
 public:
    explicit Handle(HANDLE handle) : handle_(handle) {}
    Handle(Handle&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    Handle& operator=(Handle&& other) noexcept {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~Handle() { Close(); }

    HANDLE get() const { return handle_; }
    explicit operator bool() const { return handle_ != nullptr; }
    void Close() {
        if (handle_ != nullptr) CloseHandle(std::exchange(handle_, nullptr));
    }

 private:
    HANDLE handle_;
};

// A name that no other test and no other run has.
inline std::wstring TestName() {
    static int names = 0;
    return L"test" + std::to_wstring(getpid()) + L"x" + std::to_wstring(++names);
}

inline Handle CreateAutomatic(const std::wstring& name) {
    return Handle(CreateEventW(nullptr, FALSE, FALSE, name.c_str()));
}
inline Handle CreateManual(const std::wstring& name) {
    return Handle(CreateEventW(nullptr, TRUE, FALSE, name.c_str()));
}
inline Handle Open(const std::wstring& name, DWORD access = EVENT_ALL_ACCESS) {
    return Handle(OpenEventW(access, FALSE, name.c_str()));
}

// The last error of an attempt to open; ERROR_SUCCESS when it opened.
inline DWORD OpenError(const std::wstring& name) {
    return Open(name) ? ERROR_SUCCESS : GetLastError();
}

inline bool IsLetThrough(const Handle& event, DWORD milliseconds = 0) {
    return WaitForSingleObject(event.get(), milliseconds) == WAIT_OBJECT_0;
}

// The files of a name of letters and digits.
inline std::vector<std::filesystem::path> FilesOf(const std::wstring& name) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator("/dev/shm")) {
        const std::wstring file = entry.path().filename().wstring();
        if (file.find(name + L"-") != std::wstring::npos) files.push_back(entry.path());
    }
    return files;
}

inline bool IsSleeperAtEvent(pid_t thread) {
    std::ifstream file("/proc/" + std::to_string(thread) + "/syscall");
    std::string call, address, operation;
    // A waiting on memory that processes share is not what any lock of the thread's own would do.
    return file >> call >> address >> operation && call == std::to_string(SYS_futex) && operation == "0x9";
}

// Returns when the thread, of this process or of a child, sleeps at an event.
inline void AwaitSleeper(const std::atomic<pid_t>& thread) {
    while (thread == 0 || !IsSleeperAtEvent(thread))
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}
