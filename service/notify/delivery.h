// Delivery: a call of a receiver. None begins any more once the process has begun to end, because what a
// receiver uses is destroyed then.
//
//   const Delivery delivery;
//   if (!delivery) return AwaitCancel();
//   receiver.Deliver(events);
//
// The end of the process (exit, or a return from main) waits for the deliveries that are running on other
// threads, but no longer than kPatienceAtExit: a receiver may never return. A forked child waits for its own
// alone.
//
// Each belongs to the thread that made it.
#pragma once

#include <chrono>

namespace service {

inline constexpr std::chrono::milliseconds kPatienceAtExit{1'000};

class Delivery {
 public:
    Delivery() noexcept;
    ~Delivery();
    Delivery(const Delivery&) = delete;
    Delivery& operator=(const Delivery&) = delete;

    // Whether it may begin.
    explicit operator bool() const noexcept { return is_begun_; }

 private:
    unsigned fork_count_;
    bool is_begun_;
};

}  // namespace service
