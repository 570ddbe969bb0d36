#pragma once

#include <grpc/compression.h>

namespace agent::orvi::remoting::details {

/// The algorithms that either side takes, as gRPC counts them: none. A short message may expand to
/// a thousand times its length before anybody can see that it is too long.
constexpr int noCompression = 1 << GRPC_COMPRESS_NONE;

} // namespace agent::orvi::remoting::details
