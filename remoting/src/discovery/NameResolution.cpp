#include "discovery/NameResolution.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <system_error>

#include <netdb.h>

namespace agent::orvi::remoting::details {
namespace {

class NameServiceCategory : public std::error_category {
public:
    const char* name() const noexcept override { return "name service"; }

    std::string message(int error) const override { return ::gai_strerror(error); }
};

[[noreturn]] void throwResolutionError(int error, int systemError, const HostPort& hostPort) {
    static const NameServiceCategory& nameService = *new NameServiceCategory;
    throw std::system_error(
        error == EAI_SYSTEM ? std::error_code(systemError, std::generic_category())
                            : std::error_code(error, nameService),
        "Address " + toText(hostPort));
}

bool isLoopbackNumber(const std::uint8_t* address) {
    return address[0] == 127;
}

SocketAddress addressOf(const addrinfo& found) {
    SocketAddress address;
    address.length = std::min<socklen_t>(found.ai_addrlen, sizeof(address.storage));
    std::memcpy(&address.storage, found.ai_addr, address.length);
    return address;
}

bool isEqual(const SocketAddress& left, const SocketAddress& right) {
    return left.length == right.length &&
           std::memcmp(&left.storage, &right.storage, left.length) == 0;
}

} // namespace

bool SocketAddress::isLoopback() const noexcept {
    if (storage.ss_family == AF_INET) {
        sockaddr_in address{};
        std::memcpy(&address, &storage, sizeof(address));
        return (ntohl(address.sin_addr.s_addr) >> 24) == 127;
    }
    sockaddr_in6 address{};
    std::memcpy(&address, &storage, sizeof(address));
    return storage.ss_family == AF_INET6 && (IN6_IS_ADDR_LOOPBACK(&address.sin6_addr) ||
                                             (IN6_IS_ADDR_V4MAPPED(&address.sin6_addr) &&
                                              isLoopbackNumber(&address.sin6_addr.s6_addr[12])));
}

HostPort SocketAddress::hostPort() const {
    std::array<char, NI_MAXHOST> host{};
    std::array<char, NI_MAXSERV> port{};
    ::getnameinfo(
        data(), length, host.data(), host.size(), port.data(), port.size(),
        NI_NUMERICHOST | NI_NUMERICSERV);
    return {host.data(), static_cast<std::uint16_t>(std::strtoul(port.data(), nullptr, 10))};
}

std::vector<SocketAddress> resolve(const HostPort& hostPort, Resolution resolution) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV;
    if (resolution != Resolution::connect) {
        hints.ai_flags |= resolution == Resolution::numeric ? AI_NUMERICHOST : AI_PASSIVE;
    }
    addrinfo* first = nullptr;
    const int error =
        ::getaddrinfo(hostPort.host.c_str(), std::to_string(hostPort.port).c_str(), &hints, &first);
    if (error != 0) {
        throwResolutionError(error, errno, hostPort);
    }
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owner(first, ::freeaddrinfo);
    std::vector<SocketAddress> addresses;
    for (const addrinfo* found = first; found != nullptr; found = found->ai_next) {
        const SocketAddress address = addressOf(*found);
        const auto isSame = [&](const SocketAddress& other) { return isEqual(address, other); };
        if (std::none_of(addresses.begin(), addresses.end(), isSame)) {
            addresses.push_back(address);
        }
    }
    return addresses;
}

} // namespace agent::orvi::remoting::details
