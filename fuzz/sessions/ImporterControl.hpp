#pragma once

#include "Input.hpp"

namespace agent::orvi::fuzz {

/// The control stream from an endpoint to an importer, while look-ups come and go, and calls of
/// what it offers.
///
/// Property: the registry holds what was offered and not withdrawn, and nothing else, each service
/// marked as imported from this peer; nothing of it once the stream is over. The importer listens
/// unless the stream is over. Calls end, once, when their streams do.
void fuzzImporterControl(Input& input);

} // namespace agent::orvi::fuzz
