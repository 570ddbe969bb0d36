#pragma once

#include "discovery/AcceptLoop.hpp"
#include "discovery/EndpointFiles.hpp"
#include "discovery/RuntimeDirectory.hpp"

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace agent::orvi::remoting::details {

/// The socket by which one endpoint of this process is found and reached on this machine.
///
/// In the runtime directory it is "ID.PID.RANDOM.sock", with mode 0600. It appears when it can be
/// connected to. Beside it is "ID.PID.RANDOM.lock", which this process, and no child of it, has
/// locked for as long as the endpoint lives: whoever can lock it knows that the socket is dead.
///
/// Sockets are bound and connected by way of the directory's descriptor, so that paths may be
/// longer than a socket's address. This needs /proc.
///
/// Thread safety: thread-safe.
class LocalListener {
public:
    /// Receives a connected socket of the same user, non-blocking and closed on exec, and owns it
    /// from then on. Runs on the housekeeping thread.
    using Accepted = std::function<void(int descriptor)>;

    /// Start to listen. When this returns, peers can find the socket.
    ///
    /// @param endpointId 1 to 40 letters, digits, "-" and "_".
    ///
    /// @throws std::invalid_argument for another id.
    /// @throws std::system_error with the path in its text when the directory cannot be used or the
    ///         files cannot be made.
    LocalListener(
        Housekeeper& housekeeper, const RuntimeDirectory& directory, const std::string& endpointId,
        Accepted accepted);

    /// Remove the files and stop to listen. When this returns, `accepted` is not running and does
    /// not run any more; from inside of `accepted`, that call is the last. In a forked child,
    /// nothing happens.
    ~LocalListener();

    LocalListener(const LocalListener&) = delete;
    LocalListener& operator=(const LocalListener&) = delete;

    /// Return the path of the socket.
    const std::filesystem::path& path() const noexcept;

    /// Return the name of the socket without directory and suffix.
    const std::string& name() const noexcept;

private:
    class Impl;
    std::unique_ptr<Impl> impl;
};

/// The other side of a connection on this machine.
struct LocalPeer {
    int descriptor = -1; ///< The connected socket, which the receiver of this owns.
    pid_t process = 0;   ///< The peer's process; 0 when it is in a place that this one cannot see.
};

/// Connect to a listener's socket. Does not wait for the listener.
///
/// @return a socket, non-blocking and closed on exec, and the process that listens.
///
/// @throws std::system_error with the path in its text when nobody listens there, when the listener
///         is of another user (operation_not_permitted), or when it has too many connections that
///         it has not accepted yet (resource_unavailable_try_again).
LocalPeer connectLocal(const std::filesystem::path& path);

/// Return the process that has connected, or listened, at the other end of a connection; 0 when it
/// is in a place that this one cannot see, or when the socket is of another kind.
pid_t peerProcess(int descriptor);

} // namespace agent::orvi::remoting::details
