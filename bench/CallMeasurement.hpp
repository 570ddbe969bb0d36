#pragma once

#include "Exchange.hpp"

#include <benchmark/benchmark.h>

#include <cstddef>

namespace agent::orvi::bench {

/// Repeat calls and report the times they take and how many bytes they move in a second, after
/// unmeasured calls that are seen to bring what they should. Ends with an error when a call is not
/// one call at the other end.
///
/// @param timedCalls one call in so many is timed by itself, since reading the clock costs time,
///        too, compared with a short call.
void measureCalls(
    benchmark::State& state, Exchange& exchange, Transfer transfer, std::size_t timedCalls = 1);

} // namespace agent::orvi::bench
