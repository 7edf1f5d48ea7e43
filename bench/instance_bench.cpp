// Reading and durably writing one instance of 10,000, against the same by hand over LMDB and against SQLite.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <memory>

#include <objbase.h>

#include "bench/allocation_count.h"
#include "bench/lmdb_by_hand.h"
#include "bench/sqlite_peer.h"
#include "utility/management/mgmt.h"

namespace {

// The three stores, made once for all benchmarks.
class Stores {
 public:
    Stores() {
        for (const char* name : {"/store", "/lmdb", "/sqlite"})
            std::filesystem::create_directory(directory_.path() + name);
        bench::PrepareStore(directory_.path() + "/store");
        MgmtInitialize(bench::kNamespace);
        by_hand = std::make_unique<bench::LmdbByHand>(directory_.path() + "/lmdb");
        sqlite = std::make_unique<bench::SqlitePeer>(directory_.path() + "/sqlite");
    }

    std::unique_ptr<bench::LmdbByHand> by_hand;
    std::unique_ptr<bench::SqlitePeer> sqlite;

 private:
    bench::TemporaryDirectory directory_;
};

std::unique_ptr<Stores> g_stores;

// Walks the instances in an order that the processor's caches do not foresee.
class Walk {
 public:
    int Next() noexcept { return at_ = (at_ + 7919) % bench::kInstances; }

 private:
    int at_ = 0;
};

// The id of an instance, made where it is needed: ids that lie in memory by the thousand would cost cache
// misses that are no part of what is measured.
template <typename Unit>
class Id {
 public:
    explicit Id(int number) noexcept {
        constexpr char kPrefix[] = "policy-";
        for (size_t i = 0; i + 1 < sizeof kPrefix; ++i)
            text_[i] = static_cast<Unit>(kPrefix[i]);
        for (size_t i = 13; i > 6; --i, number /= 10)
            text_[i] = static_cast<Unit>('0' + number % 10);
    }
    const Unit* text() const noexcept { return text_; }

 private:
    Unit text_[15] = {};
};

// `work` gets the number of an instance.
template <typename Work>
void Measure(benchmark::State& state, Work work) {
    Walk walk;
    work(walk.Next());
    const uint64_t before = AllocationCount();
    work(walk.Next());
    state.counters["allocations"] = static_cast<double>(AllocationCount() - before);
    for (auto _ : state)
        work(walk.Next());
}

void Read_LmdbPointRead(benchmark::State& state) {
    Measure(state, [](int i) { benchmark::DoNotOptimize(g_stores->by_hand->Read(Id<char>(i).text())); });
}
BENCHMARK(Read_LmdbPointRead);

void Read_LmdbByHand(benchmark::State& state) {
    Measure(state, [](int i) {
        const bench::HandMap map = g_stores->by_hand->ReadMap(Id<char>(i).text());
        benchmark::DoNotOptimize(map.size());
    });
}
BENCHMARK(Read_LmdbByHand);

void Read_Sqlite(benchmark::State& state) {
    Measure(state, [](int i) {
        const bench::HandMap map = g_stores->sqlite->ReadMap(Id<char>(i).text());
        benchmark::DoNotOptimize(map.size());
    });
}
BENCHMARK(Read_Sqlite);

void Read_Get(benchmark::State& state) {
    Measure(state, [&state](int i) {
        CMgmtObject object(bench::kClass, Id<wchar_t>(i).text(), nullptr);
        if (!object.Get()) state.SkipWithError("Get failed");
    });
}
BENCHMARK(Read_Get);

// Each write changes a number, so that none is a change of nothing.
int g_counter = 0;

void Write_LmdbCommit(benchmark::State& state) {
    Measure(state, [](int i) {
        bench::Policy policy = bench::MakePolicy(i);
        policy.priority = ++g_counter;
        g_stores->by_hand->Write(policy);
    });
}
BENCHMARK(Write_LmdbCommit)->UseRealTime();

void Write_SqliteUpsert(benchmark::State& state) {
    Measure(state, [](int i) {
        bench::Policy policy = bench::MakePolicy(i);
        policy.priority = ++g_counter;
        g_stores->sqlite->Write(policy);
    });
}
BENCHMARK(Write_SqliteUpsert)->UseRealTime();

void Write_Put(benchmark::State& state) {
    // The objects are got before; what is measured is the change and the Put.
    std::vector<std::unique_ptr<CMgmtObject>> objects;
    for (int i = 0; i < bench::kInstances; ++i) {
        objects.push_back(std::make_unique<CMgmtObject>(bench::kClass, bench::IdOf(i).c_str(), nullptr));
        if (!objects.back()->Get()) state.SkipWithError("Get failed");
    }
    Measure(state, [&](int i) {
        CMgmtObject& object = *objects[static_cast<size_t>(i)];
        object.SetPropertyValue(L"Priority", ++g_counter);
        if (!object.Put(false)) state.SkipWithError("Put failed");
    });
}
BENCHMARK(Write_Put)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    g_stores = std::make_unique<Stores>();
    benchmark::RunSpecifiedBenchmarks();
    MgmtUninitialize();
    g_stores.reset();
}
