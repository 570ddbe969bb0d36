#include "remoting/Benchmarks.hpp"
#include "remoting/Exchange.hpp"
#include "remoting/Samples.hpp"
#include "remoting/ServedBytes.hpp"

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace agent::orvi::bench {
namespace {

/// Before time counts, buffers have grown and threads have found their places.
constexpr std::size_t unmeasuredCalls = 20;

struct Way {
    const char* peer;
    Connect connect;
    const ServerProcess& server;
};

/// Make calls before the measured ones, and see that they do what they should.
void warmUp(Exchange& exchange, Transfer transfer) {
    for (std::size_t call = 0; call < unmeasuredCalls; ++call) {
        exchange.call();
        if (transfer.direction == Direction::read && call == 0 &&
            source().find(exchange.received()) == std::string::npos) {
            throw std::runtime_error("A read has brought other bytes than the server has.");
        }
    }
    if (exchange.arrived(unmeasuredCalls) != unmeasuredCalls) {
        throw std::runtime_error("A transfer is not one call.");
    }
}

void measure(benchmark::State& state, Exchange& exchange, Transfer transfer) {
    warmUp(exchange, transfer);
    Samples samples(static_cast<std::size_t>(state.max_iterations));
    for (auto _ : state) {
        const auto begin = Samples::Clock::now();
        exchange.call();
        samples.add(Samples::Clock::now() - begin);
    }
    samples.report(state);
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(transfer.size));
    const auto calls = static_cast<std::size_t>(state.iterations());
    if (exchange.arrived(calls) != calls) {
        throw std::runtime_error("A transfer is not one call.");
    }
}

void add(const std::string& row, const Way& way, Transfer transfer) {
    benchmark::RegisterBenchmark(
        (row + '/' + way.peer).c_str(),
        [connect = way.connect, address = way.server.address(), transfer](benchmark::State& state) {
            // Nothing of the other ways lives in this process meanwhile: threads that wait for
            // events of one gRPC connection handle those of others, too.
            try {
                measure(state, *connect(address, transfer), transfer);
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
    const std::vector<std::pair<std::string, std::size_t>> sizes{
        {"4KiB", 4 << 10}, {"64KiB", 64 << 10}, {"1MiB", 1 << 20}};
    for (const auto& [name, size] : sizes) {
        add("read-" + name, local, {Direction::read, size});
        add("write-" + name, local, {Direction::write, size});
        add("tls-read-" + name, tls, {Direction::read, size});
    }
}

} // namespace agent::orvi::bench
