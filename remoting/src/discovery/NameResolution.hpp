#pragma once

#include "discovery/HostPort.hpp"

#include <netinet/in.h>
#include <sys/socket.h>

#include <vector>

namespace agent::orvi::remoting::details {

/// The address of a TCP socket. A value.
struct SocketAddress {
    sockaddr_storage storage{};
    socklen_t length = 0;

    const sockaddr* data() const noexcept { return reinterpret_cast<const sockaddr*>(&storage); }

    sockaddr* data() noexcept { return reinterpret_cast<sockaddr*>(&storage); }

    /// Say whether only this machine can reach it.
    bool isLoopback() const noexcept;

    /// Return its numbers, with a scope where there is one.
    HostPort hostPort() const;
};

/// Where a name comes from and what it is for.
enum class Resolution {
    numeric, ///< A numeric address only; never blocks.
    connect, ///< A name to connect to. Blocks for as long as the name service takes.
    listen   ///< A name to listen on. Blocks likewise.
};

/// Find all TCP addresses of a host, each once, in the system's order of preference.
///
/// @throws std::system_error with the host in its text when there are none or nobody can say.
std::vector<SocketAddress> resolve(const HostPort& hostPort, Resolution resolution);

} // namespace agent::orvi::remoting::details
