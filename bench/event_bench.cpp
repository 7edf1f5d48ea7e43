// What events cost, between processes: the library's watcher, and what it is held against.
//
//   event_bench latency CHANGES PERIOD      one line a change: nanoseconds from the return of the sending
//   call
//                                           to the receiver, in another process, for the library, for a bare
//                                           LMDB commit with a futex, and for a signal over D-Bus
//   event_bench follow PROCESSES CHANGES    Puts as fast as they go, watched by PROCESSES: seconds of the
//                                           writer, its processor seconds, seconds until the last event
//   event_bench drain PROCESSES CHANGES     so many changes in one commit: seconds from its return until the
//                                           first and the last of the processes had every event
//   event_bench idle SUBSCRIPTIONS SECONDS  processor seconds of a process with so many of WITHIN 1
//
// PERIOD is in microseconds. The store is made below TMPDIR. events.py runs it and compares.
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <systemd/sd-bus.h>

#include "bench/lmdb_by_hand.h"
#include "utility/management/mgmt.h"

namespace {

constexpr int kMostChanges = 200'000;
constexpr int kMostProcesses = 64;
constexpr const char* kBusPath = "/bench";
constexpr const char* kBusInterface = "bench.Changes";
constexpr const char* kBusSignal = "Changed";

enum Channel { kLibrary, kFloor, kBus, kChannels };

// What the processes share. A receiver notes when it got the change of each number.
struct Shared {
    std::atomic<int> ready;
    std::atomic<int> finished;
    std::atomic<uint32_t> word;
    std::atomic<int64_t> last_arrival[kMostProcesses];
    int64_t sent[kChannels][kMostChanges];
    std::atomic<int64_t> arrived[kChannels][kMostChanges];
};

[[noreturn]] void Fail(const char* what) {
    std::perror(what);
    std::exit(1);
}

int64_t Now() {
    return std::chrono::steady_clock::now().time_since_epoch().count();
}

double ProcessorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

std::unique_ptr<Shared, void (*)(Shared*)> MakeShared() {
    void* const bytes =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (bytes == MAP_FAILED) Fail("mmap");
    return {static_cast<Shared*>(bytes), [](Shared* shared) { munmap(shared, sizeof(Shared)); }};
}

void AwaitCount(const std::atomic<int>& counter, int count) {
    while (counter < count)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

// A process that does `work` and ends with its parent.
class Process {
 public:
    explicit Process(const std::function<void()>& work) : id_(fork()) {
        if (id_ < 0) Fail("fork");
        if (id_ > 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        work();
        _exit(0);
    }
    ~Process() {
        kill(id_, SIGKILL);
        waitpid(id_, nullptr, 0);
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

 private:
    const pid_t id_;
};

// Watches for modifications, whose KeepDays is the change's number, or for creations.
class Receiver final : public CMgmtEventArrivedHandler {
 public:
    Receiver(Shared& shared, int process, int changes)
        : shared_(shared), process_(process), changes_(changes) {}

    int OnEventArrived(CMgmtEventArrivedArgs& args) override {
        const int64_t now = Now();
        const _variant_t* number = args.GetNewEvent()->GetPropertyValue(L"KeepDays");
        if (number && number->vt == VT_I4 && number->lVal >= 0 && number->lVal < kMostChanges &&
            process_ == 0)
            shared_.arrived[kLibrary][number->lVal] = now;
        if (++seen_ != changes_) return 0;
        shared_.last_arrival[process_] = now;
        ++shared_.finished;
        return 0;
    }
    void Release() override {}

 private:
    Shared& shared_;
    const int process_;
    const int changes_;
    int seen_ = 0;
};

void Watch(Shared& shared, int process, int changes, int event_type) {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    MgmtInitialize(bench::kNamespace);
    Receiver receiver(shared, process, changes);
    CMgmtEventWatcher watcher(event_type, bench::kClass, nullptr, 1);
    watcher.AddEventArrivedEventHandler(&receiver);
    if (!watcher.Start()) Fail("the watcher did not start");
    ++shared.ready;
    pause();
}

void AwaitFutex(Shared& shared) {
    ++shared.ready;
    for (uint32_t seen = 0;;) {
        syscall(SYS_futex, &shared.word, FUTEX_WAIT, seen, nullptr, nullptr, 0);
        const int64_t now = Now();
        const uint32_t word = shared.word;
        if (word != seen) shared.arrived[kFloor][word - 1] = now;
        seen = word;
    }
}

class Bus {
 public:
    Bus() {
        if (sd_bus_open_user(&bus_) < 0) Fail("the session bus");
    }
    ~Bus() { sd_bus_flush_close_unref(bus_); }
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    void Send(const std::string& id, int number) {
        if (sd_bus_emit_signal(bus_, kBusPath, kBusInterface, kBusSignal, "si", id.c_str(), number) < 0 ||
            sd_bus_flush(bus_) < 0) {
            Fail("sd_bus_emit_signal");
        }
    }

    void Receive(Shared& shared) {
        if (sd_bus_match_signal(bus_, nullptr, nullptr, kBusPath, kBusInterface, kBusSignal, &OnSignal,
                                &shared) < 0) {
            Fail("sd_bus_match_signal");
        }
        ++shared.ready;
        while (true) {
            const int processed = sd_bus_process(bus_, nullptr);
            if (processed < 0 || (processed == 0 && sd_bus_wait(bus_, UINT64_MAX) < 0))
                Fail("sd_bus_process");
        }
    }

 private:
    static int OnSignal(sd_bus_message* message, void* shared, sd_bus_error*) {
        const int64_t now = Now();
        const char* id = nullptr;
        int number = 0;
        if (sd_bus_message_read(message, "si", &id, &number) > 0)
            static_cast<Shared*>(shared)->arrived[kBus][number] = now;
        return 0;
    }

    sd_bus* bus_ = nullptr;
};

// The value of KeepDays differs from the stored one, or nothing would be modified.
void Put(int instance, int number) {
    CMgmtObject policy(bench::kClass, bench::IdOf(instance).c_str(), nullptr);
    policy.SetPropertyValue(L"KeepDays", static_cast<long>(number));
    if (!policy.Put(false)) Fail("Put");
}

void Latency(int changes, int period) {
    const auto shared = MakeShared();
    const bench::TemporaryDirectory store;
    const bench::TemporaryDirectory bare;
    const Process preparer([&] {
        bench::PrepareStore(store.path(), 100);
        ++shared->ready;
        pause();
    });
    AwaitCount(shared->ready, 1);
    setenv("MGMT_STORE", store.path().c_str(), 1);
    const Process watching([&] { Watch(*shared, 0, 0, 0); });
    const Process waiting([&] { AwaitFutex(*shared); });
    const Process listening([&] { Bus().Receive(*shared); });
    AwaitCount(shared->ready, 4);

    bench::UseStore(store.path());
    MgmtInitialize(bench::kNamespace);
    bench::LmdbByHand by_hand(bare.path(), 100);
    Bus bus;
    // A third of the period apart, so that none is in another's way.
    const auto rest = [&] { std::this_thread::sleep_for(std::chrono::microseconds(period / 3)); };
    Put(0, kMostChanges);
    for (int i = 0; i < changes; ++i) {
        Put(i % 100, i);
        shared->sent[kLibrary][i] = Now();
        rest();
        by_hand.Write(bench::MakePolicy(i % 100));
        shared->sent[kFloor][i] = Now();
        ++shared->word;
        syscall(SYS_futex, &shared->word, FUTEX_WAKE, INT32_MAX, nullptr, nullptr, 0);
        rest();
        bus.Send("policy", i);
        shared->sent[kBus][i] = Now();
        rest();
    }
    std::this_thread::sleep_for(std::chrono::seconds(2));
    for (int i = 0; i < changes; ++i) {
        for (int channel = 0; channel < kChannels; ++channel) {
            const int64_t arrived = shared->arrived[channel][i];
            if (arrived == 0) Fail("a change did not arrive");
            std::printf("%lld ", static_cast<long long>(arrived - shared->sent[channel][i]));
        }
        std::printf("\n");
    }
}

using Processes = std::vector<std::unique_ptr<Process>>;

Processes StartWatching(Shared& shared, int processes, int changes, int event_type) {
    Processes started;
    for (int i = 0; i < processes; ++i)
        started.push_back(std::make_unique<Process>([&, i] { Watch(shared, i, changes, event_type); }));
    AwaitCount(shared.ready, processes);
    return started;
}

double Seconds(int64_t nanoseconds) {
    return static_cast<double>(nanoseconds) / 1e9;
}

void Follow(int processes, int changes) {
    const auto shared = MakeShared();
    const bench::TemporaryDirectory store;
    bench::PrepareStore(store.path(), 100);
    MgmtInitialize(bench::kNamespace);
    Put(0, kMostChanges);
    const Processes watching = StartWatching(*shared, processes, changes, 0);
    const double processor = ProcessorSeconds();
    const int64_t begin = Now();
    for (int i = 0; i < changes; ++i)
        Put(i % 100, i);
    const int64_t end = Now();
    const double used = ProcessorSeconds() - processor;
    AwaitCount(shared->finished, processes);
    int64_t last = end;
    for (int i = 0; i < processes; ++i)
        last = std::max<int64_t>(last, shared->last_arrival[i]);
    std::printf("%.6f %.6f %.6f\n", Seconds(end - begin), used, Seconds(last - begin));
}

void Drain(int processes, int changes) {
    const auto shared = MakeShared();
    const bench::TemporaryDirectory store;
    bench::PrepareStore(store.path(), 1);
    const Processes watching = StartWatching(*shared, processes, changes, 1);
    std::string text = bench::MofInstances(1, changes + 1);
    CComPtr<IMofCompiler> compiler;
    std::wstring space(bench::kNamespace);
    WBEM_COMPILE_STATUS_INFO info{};
    if (FAILED(compiler.CoCreateInstance(CLSID_MofCompiler)) ||
        FAILED(compiler->CompileBuffer(static_cast<long>(text.size()), reinterpret_cast<BYTE*>(text.data()),
                                       space.data(), nullptr, nullptr, nullptr, 0, 0, 0, &info))) {
        Fail("the import");
    }
    const int64_t begin = Now();
    AwaitCount(shared->finished, processes);
    int64_t first = INT64_MAX;
    int64_t last = 0;
    for (int i = 0; i < processes; ++i) {
        first = std::min<int64_t>(first, shared->last_arrival[i]);
        last = std::max<int64_t>(last, shared->last_arrival[i]);
    }
    std::printf("%.6f %.6f\n", Seconds(first - begin), Seconds(last - begin));
}

void Idle(int subscriptions, int seconds) {
    const auto shared = MakeShared();
    const bench::TemporaryDirectory store;
    bench::PrepareStore(store.path(), 100);
    MgmtInitialize(bench::kNamespace);
    Receiver receiver(*shared, 0, 0);
    std::vector<std::unique_ptr<CMgmtEventWatcher>> watchers;
    for (int i = 0; i < subscriptions; ++i) {
        watchers.push_back(std::make_unique<CMgmtEventWatcher>(0, bench::kClass, bench::IdOf(i).c_str(), 1));
        watchers.back()->AddEventArrivedEventHandler(&receiver);
        if (!watchers.back()->Start()) Fail("the watcher did not start");
    }
    const double before = ProcessorSeconds();
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    std::printf("%.6f\n", ProcessorSeconds() - before);
    for (const auto& watcher : watchers)
        watcher->Stop();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) return 2;
    const std::string what = argv[1];
    const int first = std::atoi(argv[2]);
    const int second = std::atoi(argv[3]);
    if (what == "latency") {
        if (first > kMostChanges) return 2;
        Latency(first, second);
    } else if (what == "follow" || what == "drain") {
        if (first > kMostProcesses || second > kMostChanges) return 2;
        (what == "follow" ? Follow : Drain)(first, second);
    } else if (what == "idle") {
        Idle(first, second);
    } else {
        return 2;
    }
}
