#include "CallMeasurement.hpp"
#include "Sizes.hpp"
#include "remoting/Benchmarks.hpp"
#include "remoting/Exchanges.hpp"

#include <benchmark/benchmark.h>

#include <array>
#include <cstddef>
#include <exception>
#include <string>
#include <vector>

namespace agent::orvi::bench {
namespace {

struct Way {
    const char* peer;
    Connect connect;
    const ServerProcess& server;
};

void add(const std::string& row, const Way& way, Transfer transfer) {
    benchmark::RegisterBenchmark(
        (row + '/' + way.peer).c_str(),
        [connect = way.connect, address = way.server.address(), transfer](benchmark::State& state) {
            // Nothing of the other ways lives in this process meanwhile: threads that wait for
            // events of one gRPC connection handle those of others, too.
            try {
                measureCalls(state, *connect(address, transfer), transfer);
            } catch (const std::exception& error) {
                state.SkipWithError(error.what());
            }
        })
        ->UseRealTime();
}

void add(const std::string& row, const std::vector<Way>& ways, Transfer transfer) {
    for (const Way& way : ways) {
        add(row, way, transfer);
    }
}

} // namespace

void registerExchanges(const Servers& servers) {
    const std::vector<Way> local{
        {"orvi", connectOrvi, servers.orvi},
        {"socket", connectSocket, servers.socket},
        {"stream", connectStream, servers.grpc},
        {"unary", connectUnary, servers.grpc},
        {"raw", connectRaw, servers.raw}};
    const std::vector<Way> tls{
        {"orvi", connectOrviTls, servers.orvi}, {"stream", connectStreamTls, servers.grpc}};
    for (const std::size_t size : std::array<std::size_t, 3>{4 << 10, 64 << 10, 1 << 20}) {
        add("read-" + nameOf(size), local, {Direction::read, size});
        add("write-" + nameOf(size), local, {Direction::write, size});
        add("tls-read-" + nameOf(size), tls, {Direction::read, size});
    }
    const std::vector<Way> few(local.begin(), local.begin() + 3);
    for (const std::size_t size : sweptSizes) {
        add("sweep-" + nameOf(size), few, {Direction::read, size});
    }
}

} // namespace agent::orvi::bench
