#pragma once

#include "Input.hpp"

namespace agent::orvi::fuzz {

/// Some call streams of clients to an endpoint.
///
/// Property: a client that greets hears a greeting; every call is answered once, with what the
/// service answered, whole, or with an error; the endpoint listens unless the stream is over; what
/// calls may use is given back, and streams that are over are forgotten.
void fuzzExporterCalls(Input& input);

} // namespace agent::orvi::fuzz
