#include "service/notify/delivery.h"

#include <atomic>
#include <cstdint>
#include <thread>

#include "service/store/fork.h"

namespace service {
namespace {

// How many deliveries run: the fork count of the process that they run in, and below it their number.
constexpr unsigned kNumberBits = 32;
std::atomic<uint64_t> g_running{0};
std::atomic<bool> g_is_ending{false};

thread_local uint64_t t_running = 0;

uint64_t NoneIn(unsigned fork_count) noexcept {
    return uint64_t{fork_count} << kNumberBits;
}

// What an earlier process has left in the number counts for nothing.
void Change(unsigned fork_count, int difference) noexcept {
    uint64_t before = g_running.load();
    uint64_t after = 0;
    do {
        const uint64_t here = before >> kNumberBits == fork_count ? before : NoneIn(fork_count);
        after = here + static_cast<uint64_t>(difference);
    } while (!g_running.compare_exchange_weak(before, after));
    t_running += static_cast<uint64_t>(difference);
}

struct AtExit {
    ~AtExit() {
        g_is_ending = true;
        const uint64_t none_but_own = NoneIn(ForkCount()) + t_running;
        const auto end = std::chrono::steady_clock::now() + kPatienceAtExit;
        while (g_running > none_but_own && g_running >> kNumberBits == ForkCount() &&
               std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
};

}  // namespace

Delivery::Delivery() noexcept : fork_count_(ForkCount()), is_begun_(true) {
    static const AtExit at_exit;
    Change(fork_count_, 1);
    if (!g_is_ending) return;
    Change(fork_count_, -1);
    is_begun_ = false;
}

// A child that was forked by a receiver has nothing to end.
Delivery::~Delivery() {
    if (is_begun_ && fork_count_ == ForkCount()) Change(fork_count_, -1);
}

}  // namespace service
