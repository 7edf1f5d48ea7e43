#include "service/store/bus_error_notice.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>

#include "service/store/fork.h"

namespace service {
namespace {

constexpr size_t kMaxStores = 256;
constexpr std::string_view kBegin = "mgmt: the store's file ";
constexpr std::string_view kEnd =
    " was cut short or its disk failed while it was in use, so this process cannot go on. End the other "
    "processes that use the store, restore it from a backup (mgmtctl check tells what is damaged), and start "
    "again.\n";

// Directories as the system names them, with a slash behind; never freed, because the handler reads them.
std::array<std::atomic<const char*>, kMaxStores> g_directories{};
struct sigaction g_previous {};

// One line of /proc/self/maps: "begin-end permissions offset device inode   path".
struct MapLine {
    std::array<char, PATH_MAX + 256> bytes;
    size_t size = 0;

    bool Covers(uintptr_t address) const noexcept {
        uintptr_t bounds[2] = {0, 0};
        size_t which = 0;
        for (size_t i = 0; i < size && which < 2; ++i) {
            const char c = bytes[i];
            if (c >= '0' && c <= '9') {
                bounds[which] = bounds[which] << 4 | static_cast<uintptr_t>(c - '0');
            } else if (c >= 'a' && c <= 'f') {
                bounds[which] = bounds[which] << 4 | static_cast<uintptr_t>(c - 'a' + 10);
            } else {
                ++which;
            }
        }
        return bounds[0] <= address && address < bounds[1];
    }
    std::string_view path() const noexcept {
        const std::string_view line(bytes.data(), size);
        const size_t slash = line.find('/');
        return slash == std::string_view::npos ? std::string_view() : line.substr(slash);
    }
};

void Write(std::string_view text) noexcept {
    while (!text.empty()) {
        const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
        if (written <= 0) return;
        text.remove_prefix(static_cast<size_t>(written));
    }
}

bool IsOfStore(std::string_view path) noexcept {
    for (const std::atomic<const char*>& each : g_directories) {
        const char* const directory = each.load(std::memory_order_acquire);
        if (!directory) return false;
        if (path.starts_with(directory)) return true;
    }
    return false;
}

// Calls only what is safe in a signal handler.
void Explain(uintptr_t address) noexcept {
    const int fd = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
    if (fd < 0) return;
    static MapLine line;
    std::array<char, 4096> chunk;
    line.size = 0;
    for (ssize_t count = 0; (count = read(fd, chunk.data(), chunk.size())) > 0;) {
        for (ssize_t i = 0; i < count; ++i) {
            if (chunk[static_cast<size_t>(i)] != '\n') {
                if (line.size < line.bytes.size()) line.bytes[line.size++] = chunk[static_cast<size_t>(i)];
                continue;
            }
            if (line.Covers(address) && IsOfStore(line.path())) {
                Write(kBegin);
                Write(line.path());
                Write(kEnd);
            }
            line.size = 0;
        }
    }
    close(fd);
}

// Returning without a handler to call runs into the same access again, which then ends the process. The
// handler before may lead back here, when it was installed over this one and this one again over it.
void OnBusError(int signal, siginfo_t* info, void* context) noexcept {
    static std::atomic<bool> is_running{false};
    if (is_running.exchange(true)) {
        std::signal(signal, SIG_DFL);
        return;
    }
    const int error = errno;
    if (info && info->si_code > 0) Explain(reinterpret_cast<uintptr_t>(info->si_addr));
    const bool has_handler = (g_previous.sa_flags & SA_SIGINFO) != 0 ||
                             (g_previous.sa_handler != SIG_DFL && g_previous.sa_handler != SIG_IGN);
    if (!has_handler) {
        sigaction(signal, &g_previous, nullptr);
        if (!info || info->si_code <= 0) raise(signal);
    } else if (g_previous.sa_flags & SA_SIGINFO) {
        g_previous.sa_sigaction(signal, info, context);
    } else {
        g_previous.sa_handler(signal);
    }
    errno = error;
    is_running = false;
}

// Anew with each store, should the program have installed a handler of its own since.
void Install() noexcept {
    static ForkSafeMutex mutex;
    const std::lock_guard lock(mutex);
    struct sigaction current {};
    if (sigaction(SIGBUS, nullptr, &current) != 0) return;
    if ((current.sa_flags & SA_SIGINFO) != 0 && current.sa_sigaction == OnBusError) return;
    g_previous = current;
    struct sigaction action {};
    action.sa_sigaction = OnBusError;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    sigaction(SIGBUS, &action, nullptr);
}

}  // namespace

void BusErrorNotice::Add(const std::string& directory) noexcept {
    char* const resolved = realpath(directory.c_str(), nullptr);
    const size_t size = resolved ? std::strlen(resolved) : 0;
    char* const known = size ? static_cast<char*>(std::malloc(size + 2)) : nullptr;
    if (known) {
        std::memcpy(known, resolved, size);
        std::memcpy(known + size, "/", 2);
    }
    std::free(resolved);
    if (!known) return;
    Install();
    for (std::atomic<const char*>& each : g_directories) {
        const char* free = nullptr;
        if (each.compare_exchange_strong(free, known, std::memory_order_acq_rel)) return;
        if (std::strcmp(free, known) == 0) break;
    }
    std::free(known);
}

}  // namespace service
