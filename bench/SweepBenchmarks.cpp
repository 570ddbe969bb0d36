#include "CallMeasurement.hpp"
#include "CallPeers.hpp"
#include "ConnectedStream.hpp"
#include "CountingDevice.hpp"
#include "HeapShift.hpp"
#include "Sizes.hpp"

#include <benchmark/benchmark.h>
#include <boost/uuid/uuid.hpp>

#include <exception>
#include <string>

namespace agent::orvi::bench {
namespace {

constexpr boost::uuids::uuid published{{0x5e, 0xeb}};

/// A stream buffer connected in the process that publishes.
class LocalStream final : public Exchange {
public:
    explicit LocalStream(Transfer transfer)
        : publication(publishCountingDevice(published, transfer.size))
        , stream(published, transfer) {}

    void call() override { stream.call(); }

    std::string_view received() const override { return stream.received(); }

    std::size_t arrived(std::size_t calls) override { return stream.arrived(calls); }

private:
    streambuf::StreamBuffer publication;
    ConnectedStream stream;
};

template <class Peer>
void add(const char* peer, std::size_t size) {
    const std::string name = "sweep-" + nameOf(size) + '/' + peer;
    benchmark::RegisterBenchmark(name.c_str(), [size](benchmark::State& state) {
        const HeapShift shift;
        const Transfer transfer{Direction::read, size};
        try {
            Peer exchange(transfer);
            measureCalls(state, exchange, transfer, 16);
        } catch (const std::exception& error) {
            state.SkipWithError(error.what());
        }
    })->UseRealTime();
}

const bool sweepsAdded = [] {
    for (const std::size_t size : sweptSizes) {
        add<LocalStream>("orvi", size);
        add<CallExchange<RemoteRead>>("call", size);
        add<CallExchange<Floor>>("floor", size);
    }
    return true;
}();

} // namespace
} // namespace agent::orvi::bench
