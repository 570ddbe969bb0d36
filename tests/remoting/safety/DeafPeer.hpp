#pragma once

#include "discovery/Descriptor.hpp"

#include <cstdint>
#include <string>

namespace agent::orvi::remoting::test {

/// An importer that asks an endpoint of this process for bytes and then takes nothing any more from
/// its socket.
///
/// Thread safety: single-thread.
class DeafPeer {
public:
    /// Connect over TCP and ask for bytes.
    ///
    /// @param host a numeric IPv4 address.
    /// @param service the service's number at the endpoint.
    ///
    /// @throws std::system_error when nobody listens there.
    DeafPeer(
        const std::string& host, std::uint16_t port, std::uint64_t service, std::int64_t count);

    /// Wait until the endpoint cannot send any more.
    ///
    /// @return whether it has come to that.
    bool awaitFullConnection() const;

private:
    details::Descriptor connection;
};

} // namespace agent::orvi::remoting::test
