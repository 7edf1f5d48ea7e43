// The other processes of the tests of the whole system.
//
//   system_worker stress SEED ROUNDS     many threads read and write the pairs; 1 for a broken promise
//   system_worker write ACKNOWLEDGED     checks what is there, then writes entries until it is killed, and
//                                        reports the number of each on the standard output once it is stored
//   system_worker serve                  carries out the commands it reads, a line each, and answers each
//   with
//                                        a line
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "tests/system/library_calls.h"

namespace {

constexpr int kThreads = 8;
constexpr int kPairs = 4;

// Whoever reads a pair sees both halves of one write, and never an older write than before.
class PairUser {
 public:
    explicit PairUser(unsigned seed) : random_(seed) {}

    const char* Run(int rounds) {
        for (int round = 0; round < rounds; ++round) {
            const std::wstring id = L"pair-" + Digits(random_() % kPairs);
            if (random_() % 4 == 0 && !Write(id)) return "a pair could not be written";
            CMgmtObject pair(L"Pair", id.c_str(), nullptr);
            if (!pair.Get()) return "a pair could not be read";
            const long left = NumberOf(pair, L"Left");
            const auto text = TextOf(pair, L"Text");
            if (left != NumberOf(pair, L"Right") || !text || Widen(*text) != TextFor(left))
                return "a pair is half of one write and half of another";
            if (!CountUp()) return "a counter of one thread went back";
        }
        return nullptr;
    }

 private:
    bool Write(const std::wstring& id) {
        const long number = static_cast<long>(random_() & 0x7FFFFFFF);
        CMgmtObject pair(L"Pair", id.c_str(), nullptr);
        pair.SetPropertyValue(L"Left", number);
        pair.SetPropertyValue(L"Right", number);
        pair.SetPropertyValue(L"Text", TextFor(number).c_str());
        return pair.Put(false);
    }

    // A counter that nobody else writes; the first rounds make it.
    bool CountUp() {
        if (random_() % 8 != 0) return true;
        const std::wstring id = L"counter-" + Digits(getpid()) + L"-" +
                                Digits(std::hash<std::thread::id>{}(std::this_thread::get_id()));
        CMgmtObject counter(L"Counter", id.c_str(), nullptr);
        const bool is_there = counter.Get();
        if (is_there != (count_ > 0) || (is_there && NumberOf(counter, L"N") != count_)) return false;
        CMgmtObject next(L"Counter", id.c_str(), nullptr);
        next.SetPropertyValue(L"INSTANCE_ID", id.c_str());
        next.SetPropertyValue(L"N", ++count_);
        return next.Put(true);
    }

    std::mt19937 random_;
    long count_ = 0;
};

int Stress(unsigned seed, int rounds) {
    std::atomic<const char*> fault{nullptr};
    {
        std::vector<std::jthread> threads;
        for (unsigned i = 0; i < kThreads; ++i) {
            threads.emplace_back([&fault, rounds, seed, i] {
                const ComThread com;
                if (const char* found = PairUser(seed * kThreads + i).Run(rounds)) fault = found;
            });
        }
    }
    if (fault) std::fprintf(stderr, "system_worker: %s\n", fault.load());
    return fault ? 1 : 0;
}

std::wstring EntryId(long number) {
    return L"entry-" + Digits(number);
}

bool IsWholeEntry(long number) {
    CMgmtObject entry(L"Entry", EntryId(number).c_str(), nullptr);
    if (!entry.Get()) return false;
    const auto text = TextOf(entry, L"Text");
    return NumberOf(entry, L"N") == number && text && Widen(*text) == TextFor(number);
}

bool PutEntry(const std::wstring& id, long number) {
    CMgmtObject entry(L"Entry", id.c_str(), nullptr);
    entry.SetPropertyValue(L"INSTANCE_ID", id.c_str());
    entry.SetPropertyValue(L"N", number);
    entry.SetPropertyValue(L"Text", TextFor(number).c_str());
    return entry.Put(true);
}

// An entry is stored, then the last number; only then is it reported.
int Write(long acknowledged) {
    const ComThread com;
    CMgmtObject last(L"Entry", L"last", nullptr);
    const long stored = last.Get() ? NumberOf(last, L"N") : 0;
    if (stored != acknowledged && stored != acknowledged + 1) {
        std::fprintf(stderr, "system_worker: %ld is stored, %ld was acknowledged\n", stored, acknowledged);
        return 2;
    }
    std::mt19937 random(static_cast<unsigned>(stored));
    for (long number = stored; number > 0 && number > stored - 3; --number) {
        if (!IsWholeEntry(number)) return 3;
    }
    for (int i = 0; i < 5 && stored > 0; ++i) {
        if (!IsWholeEntry(1 + static_cast<long>(random() % static_cast<unsigned long>(stored)))) return 3;
    }
    CMgmtObject begun(L"Entry", EntryId(stored + 1).c_str(), nullptr);
    if (begun.Get() && !IsWholeEntry(stored + 1)) return 4;
    if (write(STDOUT_FILENO, &stored, sizeof stored) != sizeof stored) return 5;
    for (long number = stored + 1;; ++number) {
        if (!PutEntry(EntryId(number), number) || !PutEntry(L"last", number)) return 6;
        if (write(STDOUT_FILENO, &number, sizeof number) != sizeof number) return 5;
    }
}

// One line of a test's script; objects that were kept are held between the lines.
class Servant {
 public:
    std::string Answer(const std::string& line) {
        std::istringstream words(line);
        std::string command, class_name, id, property;
        words >> command;
        if (command == "import") return Import(line.substr(line.find(' ') + 1)) ? "yes" : "no";
        words >> class_name >> id >> property;
        CMgmtObject object(Widen(class_name).c_str(), Widen(id).c_str(), nullptr);
        if (command == "keep") {
            auto [place, is_new] = kept_.try_emplace(id, object);
            return place->second.Get() ? "yes" : "no";
        }
        if (command == "delete") return object.DeleteInstance() ? "yes" : "no";
        const bool is_kept = command == "get-kept" || command == "put-kept";
        CMgmtObject& used = is_kept ? kept_.at(id) : object;
        if (command == "get" && !used.Get()) return "no";
        if (command == "get" || command == "get-kept") return Shown(used, property);
        if (!is_kept) used.SetPropertyValue(L"INSTANCE_ID", Widen(id).c_str());
        long number = 0;
        words >> number;
        used.SetPropertyValue(Widen(property).c_str(), number);
        return used.Put(command == "put") ? "yes" : "no";
    }

 private:
    static std::string Shown(CMgmtObject& object, const std::string& property) {
        const std::wstring name = Widen(property);
        if (const auto text = TextOf(object, name.c_str())) return *text;
        return std::to_string(NumberOf(object, name.c_str()));
    }

    std::map<std::string, CMgmtObject> kept_;
};

int Serve() {
    const ComThread com;
    Servant servant;
    for (std::string line; std::getline(std::cin, line);)
        std::cout << servant.Answer(line) << std::endl;
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "stress" && argc == 4)
        return Stress(static_cast<unsigned>(std::atoi(argv[2])), std::atoi(argv[3]));
    if (mode == "write" && argc == 3) return Write(std::atol(argv[2]));
    if (mode == "serve" && argc == 2) return Serve();
    std::fprintf(stderr, "system_worker: stress SEED ROUNDS | write ACKNOWLEDGED | serve\n");
    return 64;
}
