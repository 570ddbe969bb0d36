#pragma once

#include "Input.hpp"

namespace agent::orvi::fuzz {

/// Calls of an imported service, over streams that answer anything, or nothing, or break.
///
/// Property: every call ends, as soon as its answer has come, its stream is over or its time is;
/// with an answer only if the peer sent one, whole, with exactly these bytes; else with an error
/// that is documented. After a stream was lost, every call ends as the first one did.
void fuzzImporterCalls(Input& input);

} // namespace agent::orvi::fuzz
