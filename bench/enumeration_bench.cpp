// Reads all instances of a class into memory, once more each time, in a process of its own: the library's
// GetInstances, or the same by hand over LMDB, or over SQLite. run_enumeration.py runs it and compares.
//
//   enumeration_bench prepare DIRECTORY INSTANCES
//   enumeration_bench texts DIRECTORY INSTANCES      (policies.mof, policies.csv)
//   enumeration_bench library|lmdb|sqlite DIRECTORY INSTANCES REPETITIONS
//
// Prints one line a repetition: nanoseconds an instance to read, nanoseconds an instance to free, bytes an
// instance on the heap.
#include <malloc.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "bench/lmdb_by_hand.h"
#include "bench/sqlite_peer.h"
#include "utility/management/mgmt.h"

namespace {

double Nanoseconds() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double, std::nano>(now).count();
}

double HeapBytes() {
    const struct mallinfo2 facts = mallinfo2();
    return static_cast<double>(facts.uordblks + facts.hblkhd);
}

// `read` returns what holds the instances.
template <typename Read>
void Measure(int instances, int repetitions, Read read) {
    for (int i = 0; i < repetitions; ++i) {
        const double bytes = HeapBytes();
        const double begin = Nanoseconds();
        auto held = read();
        const double end = Nanoseconds();
        const double used = HeapBytes() - bytes;
        held.reset();
        const double freed = Nanoseconds();
        std::printf("%.1f %.1f %.1f\n", (end - begin) / instances, (freed - end) / instances,
                    used / instances);
    }
}

template <typename Store>
void MeasureStore(const std::string& directory, int instances, int repetitions) {
    Store store(directory, instances);
    Measure(instances, repetitions, [&] {
        auto list = std::make_unique<bench::HandList>(store.ReadAll());
        if (list->size() != static_cast<size_t>(instances)) std::abort();
        return list;
    });
}

void MeasureLibrary(const std::string& directory, int instances, int repetitions) {
    bench::UseStore(directory);
    MgmtInitialize(bench::kNamespace);
    // Connects, and loads the service.
    if (!CMgmtObject(bench::kClass, bench::IdOf(0).c_str(), nullptr).Get()) std::abort();
    Measure(instances, repetitions, [&] {
        auto list = std::make_unique<CMgmtClass>(bench::kClass, false);
        if (list->GetInstances()->GetTotalItemCount() != static_cast<size_t>(instances)) std::abort();
        return list;
    });
    MgmtUninitialize();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) return 2;
    const std::string what = argv[1];
    const std::string directory = argv[2];
    const int instances = std::atoi(argv[3]);
    const int repetitions = argc > 4 ? std::atoi(argv[4]) : 1;
    if (what == "prepare") {
        for (const char* name : {"/store", "/lmdb", "/sqlite"})
            std::filesystem::create_directories(directory + name);
        bench::PrepareStore(directory + "/store", instances);
        const bench::LmdbByHand lmdb(directory + "/lmdb", instances);
        const bench::SqlitePeer sqlite(directory + "/sqlite", instances);
    } else if (what == "texts") {
        std::ofstream(directory + "/policies.mof") << bench::MofClass() << bench::MofInstances(0, instances);
        std::ofstream csv(directory + "/policies.csv");
        for (int i = 0; i < instances; ++i)
            csv << bench::CsvRow(bench::MakePolicy(i));
    } else if (what == "library") {
        MeasureLibrary(directory + "/store", instances, repetitions);
    } else if (what == "lmdb") {
        MeasureStore<bench::LmdbByHand>(directory + "/lmdb", instances, repetitions);
    } else if (what == "sqlite") {
        MeasureStore<bench::SqlitePeer>(directory + "/sqlite", instances, repetitions);
    } else {
        return 2;
    }
}
