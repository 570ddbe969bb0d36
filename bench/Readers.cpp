#include "Readers.hpp"

#include "ConnectedStream.hpp"
#include "MemoryDevice.hpp"
#include "Samples.hpp"

#include <boost/uuid/uuid.hpp>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <ios>
#include <latch>
#include <stdexcept>
#include <thread>

namespace agent::orvi::bench {
namespace {

/// Long enough for the most threads to get the processors several times.
constexpr std::chrono::milliseconds measuredTime{150};

constexpr std::size_t unmeasuredReads = 20;

constexpr boost::uuids::uuid uuidOfReader(std::size_t reader) {
    return {{0xbe, 0x4e, static_cast<std::uint8_t>(reader)}};
}

constexpr boost::uuids::uuid uuidForAll{{0xbe, 0x4f}};

std::int64_t callsOf(const boost::uuids::uuid& uuid) {
    streambuf::StreamBuffer buffer = streambuf::makeDevice(uuid, streambuf::noCloseFunction());
    return buffer.pubseekoff(0, std::ios_base::cur, std::ios_base::in);
}

std::int64_t callsOf(const std::vector<boost::uuids::uuid>& devices) {
    std::int64_t calls = 0;
    for (const boost::uuids::uuid& uuid : devices) {
        calls += callsOf(uuid);
    }
    return calls;
}

/// Another reader of the same stream may have been between the first byte and the others.
void warmUp(Exchange& reader) {
    for (std::size_t call = 0; call < unmeasuredReads; ++call) {
        reader.call();
    }
    if (source().find(reader.received().substr(1)) == std::string::npos) {
        throw std::runtime_error("A read has brought other bytes than there are.");
    }
}

/// One thread's part of a measurement.
class Reader {
public:
    Reader(Exchange& exchange, std::size_t timedCalls)
        : exchange(exchange)
        , timedCalls(timedCalls) {}

    void run(std::latch& start, const std::atomic<bool>& ended) noexcept {
        start.arrive_and_wait();
        try {
            for (; !ended.load(std::memory_order_relaxed); ++done) {
                if (done % timedCalls != 0) {
                    exchange.call();
                    continue;
                }
                const auto begin = Samples::Clock::now();
                exchange.call();
                samples.add(Samples::Clock::now() - begin);
            }
        } catch (...) {
            failure = std::current_exception();
        }
    }

    /// Return the number of calls.
    std::size_t report(Samples& all) const {
        if (failure) {
            std::rethrow_exception(failure);
        }
        all.add(samples);
        return done;
    }

private:
    Exchange& exchange;
    const std::size_t timedCalls;
    Samples samples{1 << 12};
    std::size_t done = 0;
    std::exception_ptr failure;
};

} // namespace

void addReaders(
    std::size_t count, const std::string& peer,
    const std::function<void(benchmark::State&)>& measure) {
    benchmark::RegisterBenchmark(
        ("readers-" + std::to_string(count) + '/' + peer).c_str(),
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

std::vector<streambuf::StreamBuffer> publishForReaders(Callers callers) {
    std::vector<streambuf::StreamBuffer> devices;
    devices.push_back(publishCountingDevice(uuidForAll, readersTransfer.size, callers));
    for (std::size_t reader = 0; reader < readerCounts.back(); ++reader) {
        devices.push_back(publishCountingDevice(uuidOfReader(reader), readersTransfer.size));
    }
    return devices;
}

void measureReaders(
    benchmark::State& state, const std::vector<std::unique_ptr<Exchange>>& readers,
    std::size_t timedCalls) {
    for (const auto& reader : readers) {
        warmUp(*reader);
    }
    std::vector<Reader> parts;
    for (const auto& reader : readers) {
        parts.emplace_back(*reader, timedCalls);
    }
    for (auto _ : state) {
        std::latch start(static_cast<std::ptrdiff_t>(parts.size()) + 1);
        std::atomic<bool> ended = false;
        std::vector<std::jthread> threads;
        for (Reader& part : parts) {
            threads.emplace_back([&] { part.run(start, ended); });
        }
        start.arrive_and_wait();
        const auto begin = Samples::Clock::now();
        std::this_thread::sleep_for(measuredTime);
        ended = true;
        threads.clear();
        const std::chrono::duration<double> time = Samples::Clock::now() - begin;
        state.SetIterationTime(time.count());
    }
    Samples samples(1 << 16);
    std::size_t calls = 0;
    for (const Reader& part : parts) {
        calls += part.report(samples);
    }
    samples.report(state);
    state.SetItemsProcessed(static_cast<std::int64_t>(calls));
    state.SetBytesProcessed(static_cast<std::int64_t>(calls * readersTransfer.size));
    state.counters["calls"] = static_cast<double>(calls);
}

void measureConnectedReaders(
    benchmark::State& state, std::size_t count, ReadFrom from, std::size_t timedCalls) {
    std::vector<std::unique_ptr<Exchange>> readers;
    std::vector<boost::uuids::uuid> devices;
    for (std::size_t reader = 0; reader < count; ++reader) {
        const auto uuid = from == ReadFrom::oneStream ? uuidForAll : uuidOfReader(reader);
        if (reader == 0 || uuid != devices.back()) {
            devices.push_back(uuid);
        }
        readers.push_back(std::make_unique<ConnectedStream>(uuid, readersTransfer));
    }
    const std::int64_t before = callsOf(devices);
    measureReaders(state, readers, timedCalls);
    const auto expected = static_cast<std::int64_t>(state.counters["calls"].value) +
                          static_cast<std::int64_t>(count * unmeasuredReads);
    if (callsOf(devices) - before != expected) {
        throw std::runtime_error("A read is not one call.");
    }
}

} // namespace agent::orvi::bench
