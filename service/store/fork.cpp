#include "service/store/fork.h"

#include <pthread.h>

#include <atomic>

#include "service/model/no_destructor.h"

namespace service {
namespace {

std::atomic<unsigned> g_fork_count{0};

struct MutexList {
    std::mutex mutex;
    ForkSafeMutex* first = nullptr;
};

MutexList& TheList() {
    static NoDestructor<MutexList> list;
    return *list;
}

}  // namespace

struct ForkHandlers {
    static void BeforeFork() {
        TheList().mutex.lock();
        for (ForkSafeMutex* each = TheList().first; each; each = each->next_)
            each->mutex_.lock();
    }

    static void AfterForkInParent() {
        for (ForkSafeMutex* each = TheList().first; each; each = each->next_)
            each->mutex_.unlock();
        TheList().mutex.unlock();
    }

    static void AfterForkInChild() {
        g_fork_count.fetch_add(1, std::memory_order_relaxed);
        AfterForkInParent();
    }

    static void Register() {
        static const int registered = pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild);
        static_cast<void>(registered);
    }
};

unsigned ForkCount() noexcept {
    ForkHandlers::Register();
    return g_fork_count.load(std::memory_order_relaxed);
}

ForkSafeMutex::ForkSafeMutex() {
    ForkHandlers::Register();
    const std::lock_guard lock(TheList().mutex);
    next_ = TheList().first;
    if (next_) next_->previous_ = this;
    TheList().first = this;
}

ForkSafeMutex::~ForkSafeMutex() {
    const std::lock_guard lock(TheList().mutex);
    if (previous_) {
        previous_->next_ = next_;
    } else {
        TheList().first = next_;
    }
    if (next_) next_->previous_ = previous_;
}

}  // namespace service
