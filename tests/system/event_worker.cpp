// The other processes of the tests of events.
//
//   event_worker watch FILE             runs every query of event_queries.h; "finish COUNT..." ends each when
//                                       it has got so many, and writes what it got into FILE.0, FILE.1, ...
//   event_worker change SEED COUNT      makes so many changes to what others change, too
//   event_worker count ID LAST          counts an instance up until it is killed, and reports each number on
//                                       the standard output once it is stored; LAST was reported last
//   event_worker churn ROUNDS           starts and stops subscriptions; 1 when they leave anything behind
//   event_worker end HOW                ends with subscriptions running
//   event_worker reload                 waits for the reload event, and tells whether it came once
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <windows.h>

#include "tests/system/event_queries.h"
#include "tests/system/process_resources.h"

namespace {

void WriteEvents(const std::string& file, const std::vector<KeptEvent>& events) {
    std::ofstream out(file, std::ios::binary);
    out.write(reinterpret_cast<const char*>(events.data()),
              static_cast<std::streamsize>(events.size() * sizeof(KeptEvent)));
}

int Fail(const std::string& what) {
    std::fprintf(stderr, "event_worker: %s\n", what.c_str());
    return 1;
}

// A watcher with its handler.
struct Watching {
    explicit Watching(std::unique_ptr<CMgmtEventWatcher> made) : watcher(std::move(made)) {
        watcher->AddEventArrivedEventHandler(&recorder);
    }

    EventRecorder recorder;
    std::unique_ptr<CMgmtEventWatcher> watcher;
};

std::unique_ptr<Watching> WatchThings(int type) {
    return std::make_unique<Watching>(std::make_unique<CMgmtEventWatcher>(type, L"Thing", nullptr, 1));
}

int Watch(const std::string& file) {
    const ComThread com;
    std::vector<std::unique_ptr<Watching>> all;
    for (const WatchedQuery& query : kWatchedQueries) {
        all.push_back(std::make_unique<Watching>(query.MakeWatcher()));
        if (!all.back()->watcher->Start()) return Fail("a subscription was refused");
    }
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream words(line);
        std::string command;
        words >> command;
        if (command == "finish") {
            for (size_t i = 0; i < all.size(); ++i) {
                size_t count = 0;
                words >> count;
                all[i]->recorder.WaitFor(count);
                if (!all[i]->watcher->Stop()) return Fail("a subscription could not be stopped");
                WriteEvents(file + "." + std::to_string(i), all[i]->recorder.WaitFor(0));
            }
        }
        std::cout << "yes" << std::endl;
    }
    return 0;
}

// Each change has a number of its own.
int Change(unsigned seed, int count) {
    const ComThread com;
    std::mt19937 random(seed);
    const std::wstring classes[] = {L"Thing", L"SubThing", L"Other"};
    const wchar_t units[] = L"tso";
    for (int made = 0; made < count;) {
        const size_t of = random() % std::size(classes);
        const std::wstring id = units[of] + Digits(random() % 10);
        const long n = static_cast<long>(seed) * 10'000'000 + made;
        if (random() % 4 == 0) {
            CMgmtObject thing(classes[of].c_str(), id.c_str(), nullptr);
            if (thing.DeleteInstance()) ++made;
        } else {
            if (!PutThing(id, n, classes[of].c_str(), static_cast<long>(random() % 100)))
                return Fail("a change was refused");
            ++made;
        }
    }
    return 0;
}

int Count(const std::wstring& id, long reported) {
    const ComThread com;
    CMgmtObject counter(L"Thing", id.c_str(), nullptr);
    const long stored = counter.Get() ? NumberOf(counter, L"N") : 0;
    if (stored != reported && stored != reported + 1) return Fail("what was reported is not stored");
    for (long n = stored;; ++n) {
        if (n > stored && !PutThing(id, n)) return Fail("a counter was refused");
        if (write(STDOUT_FILENO, &n, sizeof n) != sizeof n) return 1;
    }
}

// The handler of some of them stops its own: then the watcher is `kept`, as its last call may still run.
bool StartAndStop(std::vector<std::unique_ptr<Watching>>* kept) {
    auto watching = WatchThings(0);
    CMgmtEventWatcher& watcher = *watching->watcher;
    if (kept) {
        watching->recorder.during = [&watcher, is_first = true](const KeptEvent&) mutable {
            if (std::exchange(is_first, false)) watcher.Stop();
        };
    }
    if (!watcher.Start()) return false;
    if (!kept) return watcher.Stop();
    const bool has_stopped = !watching->recorder.WaitFor(1).empty() && !watcher.Stop();
    kept->push_back(std::move(watching));
    return has_stopped;
}

int Churn(int rounds) {
    constexpr int kThreads = 4;
    const ComThread com;
    const auto run = [](int times) {
        std::atomic<int> faults{0};
        std::vector<std::unique_ptr<Watching>> kept[kThreads];
        std::vector<std::jthread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([&faults, &kept, times, i] {
                const ComThread own;
                for (int round = 0; round < times && faults == 0; ++round) {
                    if (!StartAndStop(round % 4 == 0 ? &kept[i] : nullptr)) ++faults;
                }
            });
        }
        threads.clear();
        ProcessResources::WhenQuiet();
        return faults == 0;
    };
    if (!run(10)) return Fail("a subscription was refused");
    const ProcessResources before = ProcessResources::WhenQuiet();
    if (!run(rounds / kThreads)) return Fail("a subscription was refused");
    const ProcessResources after = ProcessResources::WhenQuiet();
    std::printf("%s -> %s\n", before.Shown().c_str(), after.Shown().c_str());
    return after.AreMoreThan(before) ? Fail("something was left") : 0;
}

// `how`: "return" from main, "exit" from within a handler, return while a handler is "blocked" for ever, or
// while every one does "throw". The subscriptions are never stopped, and what they call stays alive.
int End(const char* how) {
    const ComThread com;
    static const std::string asked = how;
    static auto* const all = new std::vector<std::unique_ptr<Watching>>;
    static std::atomic<int> told{0};
    // Nobody may be within the library when the process's static objects go.
    static std::atomic<bool> are_all_started{false};
    for (int i = 0; i < 10; ++i) {
        all->push_back(WatchThings(0));
        all->back()->recorder.during = [i](const KeptEvent&) {
            while (asked == "blocked" && i == 0)
                pause();
            if (++told >= 40 && asked == "exit" && are_all_started) std::exit(0);
            CMgmtObject thing(L"Thing", L"a", nullptr);
            thing.Get();
            if (asked == "throw") throw std::runtime_error("every time");
        };
        if (!all->back()->watcher->Start()) return Fail("a subscription was refused");
    }
    are_all_started = true;
    for (int i = 0; i < 60'000; ++i) {
        if (told >= 40 && asked != "exit") return 0;
        usleep(1'000);
    }
    return Fail("events did not flow");
}

int WaitForReload() {
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, L"_KESTO_POLICY_RELOAD_SETTING_EVENT_");
    if (!event) return Fail("the event could not be made");
    for (std::string line; std::getline(std::cin, line);) {
        const DWORD patience = line == "once" ? 60'000 : 0;
        std::cout << (WaitForSingleObject(event, patience) == WAIT_OBJECT_0 ? "signalled" : "no")
                  << std::endl;
    }
    CloseHandle(event);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    const std::string mode = words.empty() ? "" : words[0];
    if (mode == "watch" && argc == 3) return Watch(words[1]);
    if (mode == "change" && argc == 4)
        return Change(static_cast<unsigned>(std::stoi(words[1])), std::stoi(words[2]));
    if (mode == "count" && argc == 4) return Count(Widen(words[1]), std::stol(words[2]));
    if (mode == "churn" && argc == 3) return Churn(std::stoi(words[1]));
    if (mode == "end" && argc == 3) return End(argv[2]);
    if (mode == "reload" && argc == 2) return WaitForReload();
    return Fail("see the top of event_worker.cpp");
}
