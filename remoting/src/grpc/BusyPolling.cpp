#include "grpc/BusyPolling.hpp"

#include <sched.h>

#include <algorithm>

namespace agent::orvi::remoting::details {
namespace {

/// One long wait outweighs so many short ones: it has taken a processor for nothing.
constexpr int priceOfALongWait = 8;

constexpr int mostConfidence = 2 * priceOfALongWait;
constexpr int leastConfidence = -2 * priceOfALongWait;

/// A wait that was slept through includes being woken, which asking would have spared.
constexpr int slowedBySleep = 2;

/// Threads of the same conversation take some ten microseconds; one that computes takes its time
/// slice, some milliseconds.
constexpr std::chrono::microseconds longestTurnOfOthers{500};

} // namespace

BusyPolling::BusyPolling(Duration longest)
    : longest(longest) {}

bool BusyPolling::yielded(Duration time) noexcept {
    if (time <= longestTurnOfOthers) {
        return true;
    }
    pause = nextPause;
    nextPause = std::min(2 * nextPause, longestPause);
    undisturbed = 0;
    return false;
}

void BusyPolling::waited(Duration time) noexcept {
    const bool asked = this->time() > Duration::zero();
    if (pause > 0) {
        --pause;
    } else if (asked && ++undisturbed >= nextPause) {
        nextPause = std::max(nextPause / 2, shortestPause);
        undisturbed = 0;
    }
    const bool wasShort = time <= (asked ? longest : slowedBySleep * longest);
    confidence = std::clamp(
        confidence + (wasShort ? 1 : -priceOfALongWait), leastConfidence, mostConfidence);
}

BusyPolling::Duration allowedPolling(BusyPolling::Duration wanted) noexcept {
    cpu_set_t processors;
    CPU_ZERO(&processors);
    const bool several = sched_getaffinity(0, sizeof(processors), &processors) != 0 ||
                         CPU_COUNT(&processors) > 1; // more than the set can name is an error
    return several ? wanted : BusyPolling::Duration::zero();
}

} // namespace agent::orvi::remoting::details
