#include "Readers.hpp"

#include "remoting/Benchmarks.hpp"
#include "remoting/Exchanges.hpp"
#include "remoting/OrviClient.hpp"

#include <orvi/remoting/Importer.hpp>

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

namespace agent::orvi::bench {
namespace {

void addConnected(
    const char* peer, const remoting::ImporterOptions& options, std::size_t count, ReadFrom from) {
    addReaders(count, peer, [=](benchmark::State& state) {
        const remoting::Importer importer(options);
        measureConnectedReaders(state, count, from, 1);
    });
}

void addUnconnected(
    const char* peer, Connect connect, const ServerAddress& server, std::size_t count) {
    addReaders(count, peer, [=](benchmark::State& state) {
        std::vector<std::unique_ptr<Exchange>> readers(count);
        for (auto& reader : readers) {
            reader = connect(server, readersTransfer);
        }
        measureReaders(state, readers, 1);
    });
}

} // namespace

void registerReaders(const Servers& servers) {
    const remoting::ImporterOptions options = localOptions(servers.orvi.address());
    for (const std::size_t count : readerCounts) {
        addConnected("orvi", options, count, ReadFrom::streamsOfTheirOwn);
        addConnected("orvi-one", options, count, ReadFrom::oneStream);
        addUnconnected("stream", connectStream, servers.grpc.address(), count);
        addUnconnected("socket", connectSocket, servers.socket.address(), count);
    }
}

} // namespace agent::orvi::bench
