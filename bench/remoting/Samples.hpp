#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <utility>
#include <vector>

namespace agent::orvi::bench {

/// The time that each call of a repetition took. Thread safety: single-thread.
class Samples {
public:
    using Clock = std::chrono::steady_clock;

    explicit Samples(std::size_t expected) { seconds.reserve(expected); }

    void add(Clock::duration time) {
        seconds.push_back(std::chrono::duration<double>(time).count());
    }

    /// Report the times, in seconds, that half, nine tenths and 99 of 100 calls did not exceed.
    void report(benchmark::State& state) {
        std::sort(seconds.begin(), seconds.end());
        for (const auto& [name, share] : {std::pair{"p50", 0.5}, {"p90", 0.9}, {"p99", 0.99}}) {
            const auto last = static_cast<double>(seconds.size() - 1);
            state.counters[name] =
                seconds.empty() ? 0 : seconds[static_cast<std::size_t>(share * last)];
        }
    }

private:
    std::vector<double> seconds;
};

} // namespace agent::orvi::bench
