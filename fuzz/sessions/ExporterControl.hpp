#pragma once

#include "Input.hpp"

namespace agent::orvi::fuzz {

/// The control stream of a peer to an endpoint, while services come and go.
///
/// Property: a peer hears of each service that its look-ups match, and only of those, once, and of
/// its withdrawal; every look-up is settled once; the endpoint listens unless the stream is over or
/// the peer leaves much unread; a stream that is over is forgotten.
void fuzzExporterControl(Input& input);

} // namespace agent::orvi::fuzz
