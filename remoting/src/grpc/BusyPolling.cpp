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

} // namespace

BusyPolling::BusyPolling(Duration longest)
    : longest(longest) {}

void BusyPolling::waited(Duration time) noexcept {
    const bool asked = confidence > 0;
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
