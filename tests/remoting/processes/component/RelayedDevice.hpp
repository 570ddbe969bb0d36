#pragma once

#include "support/StreamBuffers.hpp"

#include <memory>
#include <string>

namespace agent::orvi::remoting::test {

/// Return a device whose operations run in the process that listens on a socket: see
/// `DeviceRelay`.
///
/// @param source receives the connection, which ends with it.
streambuf::test::Operations
relayedDevice(const std::string& socketPath, std::shared_ptr<void>& source);

} // namespace agent::orvi::remoting::test
