#include "StreamCosts.hpp"

#include "ConnectedStream.hpp"
#include "CountingDevice.hpp"
#include "MemoryDevice.hpp"

#include <streambuf/StreamBuffer.hpp>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

#include <unistd.h>

namespace agent::orvi::bench {

using streambuf::StreamBuffer;

double secondsToRead(std::size_t count) {
    std::vector<std::unique_ptr<ConnectedStream>> streams;
    for (std::size_t stream = 0; stream < std::min(count, costSamples); ++stream) {
        streams.push_back(std::make_unique<ConnectedStream>(
            uuidOfStream(stream * count / std::min(count, costSamples)),
            Transfer{Direction::read, streamsBufferSize}));
    }
    constexpr std::size_t reads = 2'000;
    Samples samples(reads);
    for (std::size_t read = 0; read < reads; ++read) {
        ConnectedStream& stream = *streams[read % streams.size()];
        samples.add(timeOf([&] { stream.call(); }));
    }
    for (std::size_t stream = 0; stream < streams.size(); ++stream) {
        const std::size_t calls =
            reads / streams.size() + (stream < reads % streams.size() ? 1 : 0);
        if (streams[stream]->arrived(calls) != calls) {
            throw std::runtime_error("A read is not one call.");
        }
    }
    streams.front()->call();
    if (source().find(streams.front()->received()) == std::string::npos) {
        throw std::runtime_error("A read has brought other bytes than there are.");
    }
    return samples.share(0.5);
}

Figures costsOfStreams(std::size_t count) {
    constexpr boost::uuids::uuid oneMore{{0x57, 0x4f}};
    { // What a process needs once is not what a stream needs.
        const StreamBuffer first = publishCountingDevice(oneMore, streamsBufferSize);
        const StreamBuffer connected = streambuf::makeDevice(oneMore, streambuf::noCloseFunction());
    }
    std::vector<StreamBuffer> streams;
    streams.reserve(count);
    Figures figures;
    const double before = residentBytes(getpid());
    for (std::size_t stream = 0; stream < count; ++stream) {
        streams.push_back(publishCountingDevice(uuidOfStream(stream), streamsBufferSize));
    }
    figures["memory"] = (residentBytes(getpid()) - before) / static_cast<double>(count);

    Samples publish(costSamples);
    Samples withdraw(costSamples);
    Samples connect(costSamples);
    for (std::size_t sample = 0; sample < costSamples; ++sample) {
        std::optional<StreamBuffer> buffer;
        publish.add(timeOf([&] { buffer = publishCountingDevice(oneMore, streamsBufferSize); }));
        withdraw.add(timeOf([&] { buffer.reset(); }));
        const boost::uuids::uuid uuid = anyOf(count);
        connect.add(
            timeOf([&] { buffer = streambuf::makeDevice(uuid, streambuf::noCloseFunction()); }));
    }
    figures["publish"] = publish.share(0.5);
    figures["withdraw"] = withdraw.share(0.5);
    figures["connect"] = connect.share(0.5);
    figures["read"] = secondsToRead(count);
    return figures;
}

void registerStreamCosts(const std::vector<std::string>& arguments) {
    for (const std::size_t count : streamCounts) {
        const std::string name = "streams-" + std::to_string(count) + "/orvi";
        std::vector<std::string> all = arguments;
        all.push_back(std::to_string(count));
        benchmark::RegisterBenchmark(
            name.c_str(),
            [all](benchmark::State& state) {
                try {
                    for (auto _ : state) {
                        const Figures figures = measuredByChild(all);
                        state.counters.insert(figures.begin(), figures.end());
                        state.SetIterationTime(figures.at("connect"));
                    }
                } catch (const std::exception& error) {
                    state.SkipWithError(error.what());
                }
            })
            ->Iterations(1)
            ->UseManualTime();
    }
}

} // namespace agent::orvi::bench
