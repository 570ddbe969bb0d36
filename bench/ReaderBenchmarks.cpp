#include "CallPeers.hpp"
#include "Readers.hpp"

#include <benchmark/benchmark.h>

#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace agent::orvi::bench {
namespace {

constexpr std::size_t timedCalls = 16;

void add(const std::string& name, const std::function<void(benchmark::State&)>& measure) {
    benchmark::RegisterBenchmark(
        name.c_str(),
        [measure](benchmark::State& state) {
            try {
                measure(state);
            } catch (const std::exception& error) {
                state.SkipWithError(error.what());
            }
        })
        ->Iterations(1)
        ->UseManualTime();
}

void addConnected(const char* peer, std::size_t count, ReadFrom from) {
    add(rowOfReaders(count) + '/' + peer, [=](benchmark::State& state) {
        const auto published = publishForReaders(Callers::several);
        measureConnectedReaders(state, count, from, timedCalls);
    });
}

const bool added = [] {
    for (const std::size_t count : readerCounts) {
        addConnected("orvi", count, ReadFrom::streamsOfTheirOwn);
        addConnected("orvi-one", count, ReadFrom::oneStream);
        add(rowOfReaders(count) + "/floor", [count](benchmark::State& state) {
            std::vector<std::unique_ptr<Exchange>> readers(count);
            for (auto& reader : readers) {
                reader = std::make_unique<CallExchange<Floor>>(readersTransfer);
            }
            measureReaders(state, readers, timedCalls);
        });
    }
    return true;
}();

} // namespace
} // namespace agent::orvi::bench
