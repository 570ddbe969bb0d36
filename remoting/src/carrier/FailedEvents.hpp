#pragma once

#include "carrier/Carrier.hpp"

namespace agent::orvi::remoting::details {

/// Return the end of a stream for which this side has no memory: a call may or may not have run.
/// Needs none.
StreamEnd outOfMemory() noexcept;

/// Return how a stream ends whose event has thrown the exception that is being handled: as a
/// protocol error with its text, but for want of memory, which is nobody's error. Needs no memory.
StreamEnd endOfFailedEvent() noexcept;

} // namespace agent::orvi::remoting::details
