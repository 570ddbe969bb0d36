#include "CallPeers.hpp"
#include "HeapShift.hpp"
#include "MemoryDevice.hpp"

#include <benchmark/benchmark.h>

namespace agent::orvi::bench {
namespace {

template <class Caller>
void readAll(benchmark::State& state, std::int64_t count) {
    const HeapShift shift;
    const Caller caller;
    for (auto _ : state) {
        for (std::size_t done = 0; done < sourceSize; done += static_cast<std::size_t>(count)) {
            benchmark::DoNotOptimize(caller.read(count));
        }
    }
    state.SetItemsProcessed(state.iterations() * (static_cast<std::int64_t>(sourceSize) / count));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(sourceSize));
}

template <class Caller>
void add(const char* name, std::int64_t count) {
    benchmark::RegisterBenchmark(
        name, [=](benchmark::State& state) { readAll<Caller>(state, count); });
}

const bool callsAdded = [] {
    add<RemoteRead>("call-4KiB/orvi", 4 << 10);
    add<Floor>("call-4KiB/floor", 4 << 10);
    add<RemoteRead>("call-1MiB/orvi", 1 << 20);
    add<Floor>("call-1MiB/floor", 1 << 20);
    return true;
}();

} // namespace
} // namespace agent::orvi::bench
