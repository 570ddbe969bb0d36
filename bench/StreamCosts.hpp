#pragma once

#include "ChildProcess.hpp"
#include "Samples.hpp"

#include <boost/uuid/uuid.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>

namespace agent::orvi::bench {

/// How many streams a process publishes.
constexpr std::array<std::size_t, 5> streamCounts{1, 10, 100, 1'000, 10'000};

/// The size of the buffers of these streams, in bytes, and of one read.
constexpr std::size_t streamsBufferSize = 4 << 10;

/// How often publishing, withdrawing and connecting are measured, and reading over so many streams.
constexpr std::size_t costSamples = 51;

constexpr boost::uuids::uuid uuidOfStream(std::size_t stream) {
    return {
        {0x57, 0x4e, static_cast<std::uint8_t>(stream >> 8), static_cast<std::uint8_t>(stream)}};
}

/// Return any of so many streams, not the same one always.
inline boost::uuids::uuid anyOf(std::size_t count) {
    static std::mt19937 random(1);
    return uuidOfStream(random() % count);
}

/// Return how long something takes.
template <class Work>
Samples::Clock::duration timeOf(Work work) {
    const auto begin = Samples::Clock::now();
    work();
    return Samples::Clock::now() - begin;
}

/// Return the median time of a read of 4 KiB, over connections to any of so many streams in turn.
///
/// @throws std::runtime_error when one is not one call or brings other bytes than there are.
double secondsToRead(std::size_t count);

/// Measure in this process what streams cost while so many are published.
Figures costsOfStreams(std::size_t count);

/// Register a benchmark for each number of streams, in which a new process measures.
///
/// @param arguments what the number is put after, for the process to know what to do.
void registerStreamCosts(const std::vector<std::string>& arguments);

} // namespace agent::orvi::bench
