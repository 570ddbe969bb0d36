#pragma once

#include "carrier/Carrier.hpp"

#include <chrono>

namespace agent::orvi::remoting::details {

/// Return the moment at which a time that begins now is over; for one that is longer than a clock
/// can tell, the last moment there is.
inline Executor::TimePoint timeLimitIn(std::chrono::milliseconds time) {
    using Clock = Executor::TimePoint::clock;
    const auto now = Clock::now();
    const auto longest =
        std::chrono::floor<std::chrono::milliseconds>(Executor::TimePoint::max() - now);
    return time > longest ? Executor::TimePoint::max() : now + time;
}

} // namespace agent::orvi::remoting::details
