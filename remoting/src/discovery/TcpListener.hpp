#pragma once

#include "discovery/AcceptLoop.hpp"

#include <functional>
#include <string>
#include <vector>

namespace agent::orvi::remoting::details {

/// Listens on TCP.
///
/// Thread safety: thread-safe.
class TcpListener {
public:
    /// Receives a connected socket, non-blocking, closed on exec and without delay for small
    /// packets, and owns it from then on; and the peer's numeric "address:port". Runs on the
    /// housekeeping thread.
    using Accepted = std::function<void(int descriptor, std::string peerAddress)>;

    /// Who is to reach the listener.
    enum class Reach { anywhere, loopback };

    /// Start to listen on all addresses of a name: on those that this machine has, and at least on
    /// one. With port 0 they get one free port in common. "[::]" stands for all addresses of the
    /// machine, also those of IPv4. Blocks while the name is resolved.
    ///
    /// @param address "host:port" or "[address]:port".
    ///
    /// @throws std::invalid_argument with the address in its text when it is neither, or when it
    ///         is no loopback address and `reach` wants one; nothing was listening then.
    /// @throws std::system_error with the address in its text when it cannot be used.
    TcpListener(
        Housekeeper& housekeeper, const std::string& address, Accepted accepted,
        Reach reach = Reach::anywhere);

    /// Stop to listen. When this returns, `accepted` is not running and does not run any more; from
    /// inside of `accepted`, that call is the last.
    ~TcpListener();

    TcpListener(const TcpListener&) = delete;
    TcpListener& operator=(const TcpListener&) = delete;

    /// Return the numeric addresses that it listens on, each with its real port.
    const std::vector<std::string>& addresses() const noexcept { return numericAddresses; }

    /// Say whether only this machine can reach it.
    bool isLoopback() const noexcept { return loopback; }

private:
    std::vector<std::string> numericAddresses;
    bool loopback = true;
    std::vector<AcceptLoop> loops;
};

} // namespace agent::orvi::remoting::details
