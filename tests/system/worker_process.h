// WorkerProcess: one run of system_worker, with its standard input and output in the test's hands.
//
//   WorkerProcess worker({"serve"});
//   EXPECT_EQ(worker.Ask("get Policy a Days"), "7");
//   EXPECT_EQ(worker.Wait(), 0);
#pragma once

#include <csignal>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

// Less of everything under a sanitizer, where a process takes long to start and to run.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kIsSanitized = true;
#else
inline constexpr bool kIsSanitized = false;
#endif

class WorkerProcess {
 public:
    explicit WorkerProcess(std::vector<std::string> arguments, const char* program = SYSTEM_WORKER) {
        int input[2], output[2];
        if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0)
            throw std::runtime_error("pipe failed");
        arguments.insert(arguments.begin(), program);
        std::vector<char*> argv;
        for (std::string& argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        pid_ = fork();
        if (pid_ < 0) throw std::runtime_error("fork failed");
        if (pid_ == 0) {
            dup2(input[0], STDIN_FILENO);
            dup2(output[1], STDOUT_FILENO);
            execv(argv[0], argv.data());
            _exit(127);
        }
        close(input[0]);
        close(output[1]);
        input_ = input[1];
        output_ = output[0];
    }
    ~WorkerProcess() {
        Kill();
        if (pid_ > 0) Wait();
        CloseInput();
        close(output_);
    }
    WorkerProcess(const WorkerProcess&) = delete;
    WorkerProcess& operator=(const WorkerProcess&) = delete;

    void Kill() const noexcept {
        if (pid_ > 0) kill(pid_, SIGKILL);
    }

    // The exit code; 1000 and the signal's number for a death. A worker that serves ends with its input.
    int Wait() {
        CloseInput();
        int status = 0;
        const pid_t pid = std::exchange(pid_, -1);
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    }

    // The next number that a writer reports; none when it has ended. A number is written in one piece.
    std::optional<long> NextNumber() const {
        long number = 0;
        return read(output_, &number, sizeof number) == sizeof number ? std::optional<long>(number)
                                                                      : std::nullopt;
    }

    // A line for the worker, and its answer.
    std::string Ask(const std::string& line) const {
        const std::string command = line + "\n";
        if (write(input_, command.data(), command.size()) != static_cast<ssize_t>(command.size()))
            return "(ended)";
        std::string answer;
        for (char unit = 0; read(output_, &unit, 1) == 1;) {
            if (unit == '\n') return answer;
            answer.push_back(unit);
        }
        return "(ended)";
    }

 private:
    void CloseInput() {
        if (const int input = std::exchange(input_, -1); input >= 0) close(input);
    }

    pid_t pid_ = -1;
    int input_ = -1;
    int output_ = -1;
};
