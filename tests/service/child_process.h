// Child processes of a test, made by fork.
//
//   EXPECT_EQ(RunInChild([&] { return store->Read(...).ok() ? 0 : 1; }), 0);
//   ChildProcess writer([&] { ...; return 0; });   ...   EXPECT_EQ(writer.Wait(), 0);
//
// The child leaves with _exit: no destructor of the parent's runs in it. Use them where the test has no other
// threads, or where forking with threads is what is tested.
#pragma once

#include <csignal>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

#include <sys/wait.h>
#include <unistd.h>

// There in a build that measures what the tests cover: what a child did counts, too.
extern "C" void __gcov_dump() __attribute__((weak));

class ChildProcess {
 public:
    // `action` returns the exit code, 0 to 99.
    template <typename Action>
    explicit ChildProcess(Action action) : pid_(fork()) {
        if (pid_ < 0) throw std::runtime_error("fork failed");
        if (pid_ > 0) return;
        int code = kThrew;
        try {
            code = action();
        } catch (const std::exception& fault) {
            std::fprintf(stderr, "a child process threw: %s\n", fault.what());
        }
        std::fflush(nullptr);
        if (__gcov_dump) __gcov_dump();
        _exit(code);
    }
    ~ChildProcess() {
        if (pid_ <= 0) return;
        kill(pid_, SIGKILL);
        Wait();
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // The exit code; kThrew for an exception, and 1000 and the signal's number for a death.
    int Wait() {
        int status = 0;
        const pid_t pid = std::exchange(pid_, -1);
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    }
    void Kill() const noexcept { kill(pid_, SIGKILL); }
    pid_t pid() const noexcept { return pid_; }

    static constexpr int kThrew = 100;

 private:
    pid_t pid_;
};

template <typename Action>
int RunInChild(Action action) {
    return ChildProcess(std::move(action)).Wait();
}

// One byte in, one byte out: how processes wait for each other.
class Signal {
 public:
    Signal() {
        if (pipe(ends_) != 0) throw std::runtime_error("pipe failed");
    }
    ~Signal() {
        close(ends_[0]);
        close(ends_[1]);
    }
    Signal(const Signal&) = delete;
    Signal& operator=(const Signal&) = delete;

    void Give() const {
        const char byte = 1;
        if (write(ends_[1], &byte, 1) != 1) throw std::runtime_error("a signal could not be given");
    }
    void Take() const {
        char byte = 0;
        if (read(ends_[0], &byte, 1) != 1) throw std::runtime_error("a signal could not be taken");
    }

 private:
    int ends_[2] = {-1, -1};
};
