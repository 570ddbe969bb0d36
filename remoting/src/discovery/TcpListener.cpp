#include "discovery/TcpListener.hpp"

#include "discovery/NameResolution.hpp"
#include "discovery/SystemCall.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <utility>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace agent::orvi::remoting::details {
namespace {

/// How often another free port is tried when one address's is taken on another one.
constexpr int portAttempts = 50;

void setOption(int socket, int level, int option, int value) {
    checked(::setsockopt(socket, level, option, &value, sizeof(value)), [] { return "Socket"; });
}

void setPort(SocketAddress& address, std::uint16_t port) {
    // Both kinds of addresses have it in the same place.
    static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port));
    const std::uint16_t networkPort = htons(port);
    std::memcpy(
        reinterpret_cast<char*>(&address.storage) + offsetof(sockaddr_in, sin_port), &networkPort,
        sizeof(networkPort));
}

/// Listen on one address.
///
/// @throws std::system_error when that is not possible.
Descriptor listenOn(const SocketAddress& address, bool alone) {
    const auto text = [] { return std::string(); };
    const int family = address.storage.ss_family;
    Descriptor socket(
        checked(::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), text));
    setOption(socket.get(), SOL_SOCKET, SO_REUSEADDR, 1);
    if (family == AF_INET6) {
        setOption(socket.get(), IPPROTO_IPV6, IPV6_V6ONLY, alone ? 0 : 1);
    }
    checked(::bind(socket.get(), address.data(), address.length), text);
    checked(::listen(socket.get(), SOMAXCONN), text);
    return socket;
}

SocketAddress localAddress(int socket) {
    SocketAddress address;
    address.length = sizeof(address.storage);
    checked(::getsockname(socket, address.data(), &address.length), [] { return "Socket"; });
    return address;
}

std::optional<SocketAddress> peerAddress(int socket) {
    SocketAddress address;
    address.length = sizeof(address.storage);
    const bool known = ::getpeername(socket, address.data(), &address.length) == 0;
    return known ? std::optional(address) : std::nullopt;
}

/// Listen on all of the addresses that this machine has.
///
/// @return nothing when the free port of the first one is taken on another one.
///
/// @throws std::system_error when an address cannot be used, or this machine has none of them.
std::vector<Descriptor> listenOnAll(const std::vector<SocketAddress>& addresses, bool anyPort) {
    std::vector<Descriptor> sockets;
    std::optional<std::system_error> missing;
    for (SocketAddress address : addresses) {
        if (anyPort && !sockets.empty()) {
            setPort(address, localAddress(sockets.front().get()).hostPort().port);
        }
        try {
            sockets.push_back(listenOn(address, addresses.size() == 1));
        } catch (const std::system_error& error) {
            const int code = error.code().value();
            if (code == EADDRINUSE && anyPort && !sockets.empty()) {
                return {};
            }
            if (code != EADDRNOTAVAIL && code != EAFNOSUPPORT) {
                throw;
            }
            missing = error;
        }
    }
    if (sockets.empty() && missing) {
        throw *missing; // NOLINT(misc-throw-by-value-catch-by-reference)
    }
    return sockets;
}

std::vector<Descriptor>
listenSomewhere(const std::vector<SocketAddress>& addresses, const std::string& text) {
    const bool anyPort = addresses.front().hostPort().port == 0;
    try {
        for (int attempt = 0; attempt < portAttempts; ++attempt) {
            if (auto sockets = listenOnAll(addresses, anyPort); !sockets.empty()) {
                return sockets;
            }
        }
    } catch (const std::system_error& error) {
        throw std::system_error(error.code(), "Listen on " + text);
    }
    throw std::system_error(EADDRINUSE, std::generic_category(), "Listen on " + text);
}

void handOver(const TcpListener::Accepted& accepted, Descriptor socket) {
    // The peer may have gone again.
    if (const auto peer = peerAddress(socket.get())) {
        setOption(socket.get(), IPPROTO_TCP, TCP_NODELAY, 1);
        accepted(socket.release(), toText(peer->hostPort()));
    }
}

} // namespace

TcpListener::TcpListener(
    Housekeeper& housekeeper, const std::string& address, Accepted accepted, Reach reach) {
    const auto resolved = resolve(parseHostPort(address), Resolution::listen);
    loopback = std::all_of(resolved.begin(), resolved.end(), [](const SocketAddress& one) {
        return one.isLoopback();
    });
    if (reach == Reach::loopback && !loopback) {
        throw std::invalid_argument("\"" + address + "\" is no loopback address");
    }
    for (Descriptor& socket : listenSomewhere(resolved, address)) {
        numericAddresses.push_back(toText(localAddress(socket.get()).hostPort()));
        loops.emplace_back(housekeeper, std::move(socket), [accepted](Descriptor connection) {
            handOver(accepted, std::move(connection));
        });
    }
}

TcpListener::~TcpListener() = default;

} // namespace agent::orvi::remoting::details
