#pragma once

#include <cstdint>
#include <string>

namespace agent::orvi::remoting::details {

/// A host and a port. A value.
struct HostPort {
    std::string host; ///< A name or a numeric address, the latter without brackets.
    std::uint16_t port = 0;

    bool operator==(const HostPort&) const = default;
};

/// Read "host:port", "192.0.2.1:port" or "[2001:db8::1]:port". The port is a number.
///
/// @throws std::invalid_argument for anything else, with the text in its text.
HostPort parseHostPort(const std::string& text);

/// Write what `parseHostPort` reads: an address with colons in brackets.
std::string toText(const HostPort& hostPort);

} // namespace agent::orvi::remoting::details
