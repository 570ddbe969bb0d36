#pragma once

#include <orvi/remoting/v1/streams.pb.h>

namespace agent::orvi::remoting::details {

/// The messages of the protocol. Spelled once, because `orvi` means another namespace in here.
namespace v1 = ::orvi::remoting::v1;

} // namespace agent::orvi::remoting::details
