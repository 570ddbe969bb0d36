#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>

namespace agent::orvi::tool {

/// A line on the standard error that says how far a transfer is, how fast and for how long, as long
/// as a person watches: where the standard error is no terminal, nothing is written.
///
/// It is drawn by hand because the only C++ library for it that we found in Debian 12, the
/// progress_display of Boost.Timer, must know the total, shows neither a rate nor a time, and does
/// not ask whether it writes to a terminal.
///
/// There is one at a time. Thread safety: single-thread, except for `leaveLine`.
class Progress {
public:
    /// @param total how many bytes there will be, where that is known.
    /// @param besideOutput whether the data go to the standard output: the line is not mixed with
    ///        them on one terminal.
    Progress(std::optional<std::uint64_t> total, bool besideOutput);

    /// Draw the line a last time and leave it.
    ~Progress();

    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Take note of bytes that have been moved.
    void advance(std::uint64_t bytes);

    /// End a line that has been begun, because the program is about to end. Thread-safe.
    static void leaveLine() noexcept;

private:
    using Clock = std::chrono::steady_clock;

    struct Sample {
        Clock::time_point time;
        std::uint64_t moved;
    };

    void draw(Clock::time_point now, bool last) const;
    double rate(Clock::time_point now, bool overall) const;

    const std::optional<std::uint64_t> total;
    const bool watched;
    const Sample start{Clock::now(), 0};
    std::uint64_t moved = 0;
    Clock::time_point drawn = start.time;
    std::deque<Sample> recent; // what the present rate is told from
};

} // namespace agent::orvi::tool
