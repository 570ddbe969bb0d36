#pragma once

#include "remoting/discovery/Sockets.hpp"

#include "discovery/Descriptor.hpp"

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <list>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace agent::orvi::remoting::test {

/// What a process looks like that has opened an endpoint and does nothing with its connections.
///
/// Thread safety: single-thread.
class SilentPeer {
public:
    /// @param backlog how many connections may wait to be accepted.
    SilentPeer(const std::filesystem::path& directory, std::size_t number, int backlog = SOMAXCONN)
        : listening(newLocalSocket()) {
        const std::string name =
            "silent." + std::to_string(::getpid()) + "." + std::to_string(number);
        lock = details::Descriptor(::open(
            (directory / (name + ".lock")).c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));

        struct flock whole {};

        whole.l_type = F_WRLCK;
        const auto made = directory / (name + ".new");
        shown = directory / (name + ".sock");
        if (::fcntl(lock.get(), F_OFD_SETLK, &whole) != 0 ||
            withPath(::bind, listening.get(), made) != 0 ||
            ::listen(listening.get(), backlog) != 0) {
            throw std::system_error(errno, std::generic_category(), shown);
        }
        std::filesystem::rename(made, shown);
    }

    /// Wait for a connection and keep it.
    void accept() {
        connections.emplace_back(::accept4(listening.get(), nullptr, nullptr, SOCK_CLOEXEC));
    }

    /// End what was kept.
    void hangUp() {
        for (const details::Descriptor& connection : connections) {
            ::shutdown(connection.get(), SHUT_WR);
        }
    }

    /// Wait until the other side has seen that.
    void awaitHangUp() {
        for (const details::Descriptor& connection : connections) {
            while (readFrom(connection.get()) != "end") {
            }
        }
    }

    const std::filesystem::path& path() const { return shown; }

private:
    std::filesystem::path shown;
    details::Descriptor lock;
    details::Descriptor listening;
    std::list<details::Descriptor> connections;
};

} // namespace agent::orvi::remoting::test
