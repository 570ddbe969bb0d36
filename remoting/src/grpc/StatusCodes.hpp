#pragma once

#include "carrier/Carrier.hpp"

#include <grpcpp/support/status.h>

namespace agent::orvi::remoting::details {

/// Say to an importer why its stream ends.
grpc::Status toStatus(const StreamEnd& end);

/// Understand why a stream to an exporter has ended.
StreamEnd fromStatus(const grpc::Status& status);

} // namespace agent::orvi::remoting::details
