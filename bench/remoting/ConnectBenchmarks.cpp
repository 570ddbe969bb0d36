#include "Samples.hpp"
#include "remoting/Benchmarks.hpp"
#include "remoting/KnownStream.hpp"
#include "remoting/OrviClient.hpp"

#include <orvi/remoting/Importer.hpp>
#include <streambuf/StreamBuffer.hpp>

#include <benchmark/benchmark.h>
#include <boost/uuid/uuid.hpp>

#include <chrono>
#include <cstddef>
#include <exception>
#include <stdexcept>

namespace agent::orvi::bench {
namespace {

using Time = Samples::Clock::duration;
using streambuf::StreamBuffer;

/// Return a stream that this process does not know, or has forgotten again.
boost::uuids::uuid unknownStream() {
    static std::size_t last = 0;
    last = (last + 1) % connectableDevices;
    const boost::uuids::uuid uuid = uuidOfConnectable(last);
    if (isKnown(uuid)) {
        throw std::runtime_error("The stream to connect to is still known.");
    }
    return uuid;
}

Time timeToConnect() {
    const boost::uuids::uuid uuid = unknownStream();
    const auto begin = Samples::Clock::now();
    const StreamBuffer buffer = streambuf::makeDevice(uuid, streambuf::noCloseFunction());
    return Samples::Clock::now() - begin;
}

Time timeToFirstCharacter() {
    const boost::uuids::uuid uuid = unknownStream();
    const auto begin = Samples::Clock::now();
    StreamBuffer buffer = streambuf::makeDevice(uuid, streambuf::noCloseFunction());
    if (buffer.sgetc() == StreamBuffer::traits_type::eof()) {
        throw std::runtime_error("There is nothing to read.");
    }
    return Samples::Clock::now() - begin;
}

template <class Measured>
void measure(benchmark::State& state, Measured timeOf) {
    Samples samples(static_cast<std::size_t>(state.max_iterations));
    try {
        for (auto _ : state) {
            const Time time = timeOf();
            samples.add(time);
            state.SetIterationTime(std::chrono::duration<double>(time).count());
        }
    } catch (const std::exception& error) {
        state.SkipWithError(error.what());
        return;
    }
    samples.report(state);
    state.SetItemsProcessed(state.iterations());
}

/// Measure in a process that is connected to the peer already.
void add(const char* row, const remoting::ImporterOptions& options, Time (*timeOf)()) {
    benchmark::RegisterBenchmark(row, [options, timeOf](benchmark::State& state) {
        const remoting::Importer importer(options);
        measure(state, timeOf);
    })->UseManualTime();
}

} // namespace

void registerConnects(const Servers& servers) {
    const remoting::ImporterOptions options = localOptions(servers.orvi.address());
    add("connect/orvi", options, timeToConnect);
    add("connect-and-read/orvi", options, timeToFirstCharacter);
    benchmark::RegisterBenchmark("connect-first/orvi", [options](benchmark::State& state) {
        measure(state, [&] {
            const boost::uuids::uuid uuid = unknownStream();
            const auto begin = Samples::Clock::now();
            const remoting::Importer importer(options);
            const StreamBuffer buffer = streambuf::makeDevice(uuid, streambuf::noCloseFunction());
            return Samples::Clock::now() - begin;
        });
    })->UseManualTime();
}

} // namespace agent::orvi::bench
