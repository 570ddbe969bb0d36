#pragma once

#include <orvi/remoting/AccessRule.hpp>
#include <orvi/remoting/TlsFiles.hpp>
#include <orvi/remoting_export.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace agent::orvi::remoting {

/// What an endpoint lets its peers use at most. What goes beyond is refused before anything is
/// allocated for it: calls and streams with `LimitExceeded`, look-ups with a reason that
/// `Importer::peers` tells.
struct EndpointLimits {
    std::size_t connections = 1024;   ///< Local connections at a time, and as many over TCP;
                                      ///< more are closed at once.
    std::size_t streams = 16384;      ///< Open streams at a time, over all connections.
    std::size_t callsInFlight = 1024; ///< Calls running or waiting to run, over all peers.
    std::uint64_t bytesPerCall = std::uint64_t{2} << 30; ///< Bytes that one call sends or asks for.
    std::uint64_t bytesInFlight = std::uint64_t{8} << 30; ///< The same, over all calls at a time.
    std::size_t wantedFilters = 65536; ///< Look-ups of one control stream, of which an importer
                                       ///< opens one for each connection; more are not made.
};

/// How an endpoint runs the calls that reach one service.
enum class CallOrder {
    oneAtATime, ///< One after another, over all peers of this endpoint: what a standard stream
                ///< underneath needs.
    concurrent  ///< At once; for devices that allow it, such as one whose read waits for a write.
                ///< Each running call takes one of `EndpointOptions::threads`: calls that wait for
                ///< others must be fewer, or those wait, too.
};

/// What an `Endpoint` offers and to whom.
struct EndpointOptions {
    /// Be found by the processes of the same user on this machine.
    bool local = true;

    /// Where local processes meet. Empty: "$XDG_RUNTIME_DIR/orvi" where that variable names a
    /// directory of the user's, else "/tmp/orvi-" and the user's number. It is made with mode 0700;
    /// one that is another user's, is open to others in any way, or is a symbolic link is refused.
    std::filesystem::path runtimeDirectory;

    /// TCP addresses to listen on, as "host:port", "[::1]:port" or "host:0" for any free port.
    std::vector<std::string> listen;

    /// Identification over TCP. Without it only loopback addresses are possible, and those only
    /// when `plainLoopback` says so.
    std::optional<TlsFiles> tls;

    /// Allow TCP without TLS on loopback addresses, where every local user can connect.
    bool plainLoopback = false;

    CallOrder callOrder = CallOrder::oneAtATime; ///< How calls of one service are run.

    /// Give each connected stream buffer its own position on devices that can seek: before a call,
    /// the position that another one moved is put back. Needs calls one at a time.
    bool positionPerConnection = false;

    /// Who may call what. Empty: every peer that can connect may call everything.
    std::vector<AccessRule> access;

    EndpointLimits limits;    ///< What peers may use at most.
    std::size_t threads = 64; ///< Threads that may run methods at a time; at least 1.

    /// A silent peer is asked for a sign of life after this time …
    std::chrono::milliseconds keepaliveTime = std::chrono::seconds(10);
    /// … and given up when it gives none within this time.
    std::chrono::milliseconds keepaliveTimeout = std::chrono::seconds(5);

    /// How long one thread asks for the next call before it sleeps, when calls have lately come
    /// within that time. Spares being woken, which takes longer than a small call does. 0: never.
    /// At most 10 ms. Has no effect on a single processor.
    std::chrono::microseconds busyPolling{100};

    /// Describe the protocol to gRPC reflection clients.
    bool reflection = false;
};

/// Offers this process's published services to other processes for as long as it lives.
///
/// Exported is what a publisher made reachable on all endpoints: every published stream buffer.
/// Services that were published before are offered as well as later ones; imported services are
/// never offered on. Open several for several audiences; the calls of one do not wait for those of
/// another.
///
/// The process's owner owns it. Close it before the framework stops. After `fork` it works in the
/// parent only.
///
/// Thread safety: thread-safe.
class ORVI_REMOTING_EXPORT Endpoint {
public:
    /// Start to listen and to offer. When this returns, peers can find the endpoint.
    ///
    /// @throws std::invalid_argument for options that contradict each other or are out of range;
    ///         says which.
    /// @throws UnusableTlsFile for TLS files that do not contain what they should.
    /// @throws std::system_error for directories, files, sockets and addresses that cannot be used,
    ///         with the path or address in the text.
    /// @throws std::runtime_error when gRPC cannot start a server.
    explicit Endpoint(const EndpointOptions& options = {});

    /// Close, as `close` does.
    ~Endpoint();

    /// Take over what `other` does; it may only be destroyed or assigned to then.
    Endpoint(Endpoint&& other) noexcept;

    /// Close this endpoint, then take over what `other` does, as construction does.
    Endpoint& operator=(Endpoint&& other) noexcept;
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;

    /// Withdraw everything from the peers, refuse new calls, let running calls end or, after one
    /// second, leave them behind, and remove the sockets. Blocks for at most two seconds. A method
    /// that runs longer keeps its thread until it returns; its answer is dropped. Nothing happens
    /// the second time.
    void close() noexcept;

    /// Return the unique name of this endpoint, which imported services carry as "endpoint.id"
    /// before a slash and the service's number.
    const std::string& id() const noexcept;

    /// Return the addresses in use: "unix:" and a path, or "host:port" with the real port.
    const std::vector<std::string>& addresses() const noexcept;

private:
    class Impl;

    void end() noexcept;

    std::shared_ptr<Impl> impl;
};

} // namespace agent::orvi::remoting
