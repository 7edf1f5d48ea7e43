// The property bag against the same map by hand: finding a value, building and destroying ten.
#include <benchmark/benchmark.h>

#include "bench/allocation_count.h"
#include "bench/lmdb_by_hand.h"
#include "utility/management/mgmt.h"

namespace {

using bench::kNames;

void Fill(CMgmtObjectBase& bag) {
    bag.SetPropertyValue(kNames[0], L"policy-000042");
    bag.SetPropertyValue(kNames[1], L"Retention of department 42");
    bag.SetPropertyValue(kNames[2], L"owner3@example.net");
    bag.SetPropertyValue(kNames[3], L"/srv/archive/volume0/policy-000042");
    bag.SetPropertyValue(kNames[4], 72L);
    bag.SetPropertyValue(kNames[5], 4L);
    bag.SetPropertyValue(kNames[6], true);
    bag.SetPropertyValue(kNames[7], 0.042F);
    bag.SetPropertyValue(kNames[8], L"4398046511104");
    bag.SetPropertyValue(kNames[9], L"20261122103000.000000+000");
}

void Fill(bench::HandMap& map) {
    map[kNames[0]] = L"policy-000042";
    map[kNames[1]] = L"Retention of department 42";
    map[kNames[2]] = L"owner3@example.net";
    map[kNames[3]] = L"/srv/archive/volume0/policy-000042";
    map[kNames[4]] = 72L;
    map[kNames[5]] = 4L;
    map[kNames[6]] = true;
    map[kNames[7]] = 0.042F;
    map[kNames[8]] = L"4398046511104";
    map[kNames[9]] = L"20261122103000.000000+000";
}

const std::vector<std::wstring>& Names() {
    static const std::vector<std::wstring> names(kNames.begin(), kNames.end());
    return names;
}

void Find_ByHand(benchmark::State& state) {
    bench::HandMap map;
    Fill(map);
    for (auto _ : state) {
        for (const std::wstring& name : Names())
            benchmark::DoNotOptimize(&map.find(name)->second);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(Names().size()));
}
BENCHMARK(Find_ByHand);

void Find_GetPropertyValue(benchmark::State& state) {
    CMgmtObjectBase bag;
    Fill(bag);
    for (auto _ : state) {
        for (const std::wstring& name : Names())
            benchmark::DoNotOptimize(bag.GetPropertyValue(name));
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(Names().size()));
}
BENCHMARK(Find_GetPropertyValue);

template <typename Work>
void Measure(benchmark::State& state, Work work) {
    const uint64_t before = AllocationCount();
    work();
    state.counters["allocations"] = static_cast<double>(AllocationCount() - before);
    for (auto _ : state)
        work();
}

void Build_ByHand(benchmark::State& state) {
    Measure(state, [] {
        bench::HandMap map;
        Fill(map);
        benchmark::DoNotOptimize(map);
    });
}
BENCHMARK(Build_ByHand);

void Build_Bag(benchmark::State& state) {
    Measure(state, [] {
        CMgmtObjectBase bag;
        Fill(bag);
        benchmark::DoNotOptimize(bag);
    });
}
BENCHMARK(Build_Bag);

}  // namespace

BENCHMARK_MAIN();
