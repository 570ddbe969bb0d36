#pragma once

#include "CountingDevice.hpp"
#include "Exchange.hpp"

#include <streambuf/StreamBuffer.hpp>

#include <benchmark/benchmark.h>

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace agent::orvi::bench {

/// How many threads read at the same time.
constexpr std::array<std::size_t, 7> readerCounts{1, 2, 4, 8, 16, 32, 64};

constexpr Transfer readersTransfer{Direction::read, 4 << 10};

/// Where the threads read from.
enum class ReadFrom { streamsOfTheirOwn, oneStream };

/// Have a row measured for so many readers by one of the peers, once in each repetition. It ends
/// with an error when `measure` throws.
void addReaders(
    std::size_t count, const std::string& peer,
    const std::function<void(benchmark::State&)>& measure);

/// Publish what the most readers need, whichever way they read.
///
/// @param callers who may call the one device that all read from; each other one has one reader.
std::vector<streambuf::StreamBuffer> publishForReaders(Callers callers);

/// Let each of the exchanges call in a thread of its own for a while, all at the same time, and
/// report the calls of all and the times they take.
///
/// @param timedCalls as for `measureCalls`.
void measureReaders(
    benchmark::State& state, const std::vector<std::unique_ptr<Exchange>>& readers,
    std::size_t timedCalls);

/// Do so with stream buffers connected to what `publishForReaders` has published, and see that the
/// devices have been called as often as they should. Ends with an error when not.
void measureConnectedReaders(
    benchmark::State& state, std::size_t count, ReadFrom from, std::size_t timedCalls);

} // namespace agent::orvi::bench
