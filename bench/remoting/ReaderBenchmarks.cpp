#include "Readers.hpp"

#include "remoting/Benchmarks.hpp"
#include "remoting/Exchanges.hpp"
#include "remoting/OrviClient.hpp"

#include <orvi/remoting/Importer.hpp>

#include <benchmark/benchmark.h>

#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace agent::orvi::bench {
namespace {

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

void addConnected(
    const char* peer, const remoting::ImporterOptions& options, std::size_t count, ReadFrom from) {
    add(rowOfReaders(count) + '/' + peer, [=](benchmark::State& state) {
        const remoting::Importer importer(options);
        measureConnectedReaders(state, count, from, 1);
    });
}

} // namespace

void registerReaders(const Servers& servers) {
    const remoting::ImporterOptions options = localOptions(servers.orvi.address());
    for (const std::size_t count : readerCounts) {
        addConnected("orvi", options, count, ReadFrom::streamsOfTheirOwn);
        addConnected("orvi-one", options, count, ReadFrom::oneStream);
        add(rowOfReaders(count) + "/socket",
            [count, address = servers.socket.address()](benchmark::State& state) {
                std::vector<std::unique_ptr<Exchange>> readers(count);
                for (auto& reader : readers) {
                    reader = connectSocket(address, readersTransfer);
                }
                measureReaders(state, readers, 1);
            });
    }
}

} // namespace agent::orvi::bench
