#pragma once

#include <cerrno>
#include <cstddef>

#include <sys/socket.h>
#include <sys/types.h>

namespace agent::orvi::remoting::test {

/// Send everything.
///
/// @return whether the other side was there for it.
inline bool sendAll(int socket, const void* data, std::size_t size) {
    const auto* bytes = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t sent = ::send(socket, bytes, size, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent <= 0) {
            return false;
        }
        bytes += sent;
        size -= static_cast<std::size_t>(sent);
    }
    return true;
}

/// Receive exactly so many bytes.
///
/// @return whether they have come.
inline bool receiveAll(int socket, void* data, std::size_t size) {
    auto* bytes = static_cast<char*>(data);
    while (size > 0) {
        const ssize_t received = ::recv(socket, bytes, size, 0);
        if (received < 0 && errno == EINTR) {
            continue;
        }
        if (received <= 0) {
            return false;
        }
        bytes += received;
        size -= static_cast<std::size_t>(received);
    }
    return true;
}

} // namespace agent::orvi::remoting::test
