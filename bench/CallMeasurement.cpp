#include "CallMeasurement.hpp"

#include "MemoryDevice.hpp"
#include "Samples.hpp"

#include <cstdint>
#include <stdexcept>
#include <string>

namespace agent::orvi::bench {
namespace {

/// Before time counts, buffers have grown and threads have found their places.
constexpr std::size_t unmeasuredCalls = 20;

void expectOneCallEach(Exchange& exchange, std::size_t calls) {
    if (exchange.arrived(calls) != calls) {
        throw std::runtime_error("A transfer is not one call.");
    }
}

void warmUp(Exchange& exchange, Transfer transfer) {
    for (std::size_t call = 0; call < unmeasuredCalls; ++call) {
        exchange.call();
        if (transfer.direction == Direction::read && call == 0 &&
            source().find(exchange.received()) == std::string::npos) {
            throw std::runtime_error("A read has brought other bytes than there are.");
        }
    }
    expectOneCallEach(exchange, unmeasuredCalls);
}

} // namespace

void measureCalls(
    benchmark::State& state, Exchange& exchange, Transfer transfer, std::size_t timedCalls) {
    warmUp(exchange, transfer);
    Samples samples(static_cast<std::size_t>(state.max_iterations) / timedCalls + 1);
    std::size_t untimed = 0;
    for (auto _ : state) {
        if (untimed > 0) {
            --untimed;
            exchange.call();
            continue;
        }
        untimed = timedCalls - 1;
        const auto begin = Samples::Clock::now();
        exchange.call();
        samples.add(Samples::Clock::now() - begin);
    }
    samples.report(state);
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(transfer.size));
    expectOneCallEach(exchange, static_cast<std::size_t>(state.iterations()));
}

} // namespace agent::orvi::bench
