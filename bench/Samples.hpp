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

    void add(const Samples& others) {
        seconds.insert(seconds.end(), others.seconds.begin(), others.seconds.end());
    }

    /// Return the time, in seconds, that this share of the calls did not exceed; 0 without calls.
    double share(double ofAll) {
        std::sort(seconds.begin(), seconds.end());
        const double last = static_cast<double>(seconds.size()) - 1;
        return seconds.empty() ? 0 : seconds[static_cast<std::size_t>(ofAll * last)];
    }

    /// Report the times, in seconds, that half, nine tenths and 99 of 100 calls did not exceed.
    void report(benchmark::State& state) {
        for (const auto& [name, ofAll] : {std::pair{"p50", 0.5}, {"p90", 0.9}, {"p99", 0.99}}) {
            state.counters[name] = share(ofAll);
        }
    }

private:
    std::vector<double> seconds;
};

} // namespace agent::orvi::bench
