#include "CallPeers.hpp"
#include "Readers.hpp"

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

namespace agent::orvi::bench {
namespace {

constexpr std::size_t timedCalls = 16;

void addConnected(const char* peer, std::size_t count, ReadFrom from) {
    addReaders(count, peer, [=](benchmark::State& state) {
        const auto published = publishForReaders(Callers::several);
        measureConnectedReaders(state, count, from, timedCalls);
    });
}

const bool readersAdded = [] {
    for (const std::size_t count : readerCounts) {
        addConnected("orvi", count, ReadFrom::streamsOfTheirOwn);
        addConnected("orvi-one", count, ReadFrom::oneStream);
        addReaders(count, "floor", [count](benchmark::State& state) {
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
