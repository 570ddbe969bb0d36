#pragma once

#include "discovery/Descriptor.hpp"

#include <array>
#include <cerrno>
#include <cstdint>
#include <string>
#include <system_error>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace agent::orvi::remoting::test {

/// Read what is there, waiting for it.
///
/// @return "end" at the end, "error" when there is one, "nothing" when nothing comes for a long
/// time.
inline std::string readFrom(int descriptor) {
    pollfd readable{descriptor, POLLIN, 0};
    std::array<char, 256> buffer{};
    if (::poll(&readable, 1, 60000) == 0) {
        return "nothing";
    }
    const ssize_t size = ::read(descriptor, buffer.data(), buffer.size());
    if (size < 0) {
        return "error";
    }
    return size == 0 ? "end" : std::string(buffer.data(), static_cast<std::size_t>(size));
}

inline bool writeTo(int descriptor, const std::string& text) {
    return ::send(descriptor, text.data(), text.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(text.size());
}

inline bool isClosedOnExec(int descriptor) {
    return (::fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0;
}

inline bool isNonBlocking(int descriptor) {
    return (::fcntl(descriptor, F_GETFL) & O_NONBLOCK) != 0;
}

inline details::Descriptor newLocalSocket() {
    return details::Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

inline sockaddr_un localAddress(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
}

/// Call `bind` or `connect` with a path.
template <class Call>
int withPath(Call call, int socket, const std::string& path) {
    const sockaddr_un address = localAddress(path);
    return call(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

/// Connect to a port of the loopback device; without a descriptor when nobody listens.
inline details::Descriptor connectTcp(std::uint16_t port) {
    details::Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) !=
        0) {
        return {};
    }
    return socket;
}

} // namespace agent::orvi::remoting::test
