#pragma once

#include "discovery/Descriptor.hpp"
#include "discovery/Housekept.hpp"

#include <functional>

namespace agent::orvi::remoting::details {

/// Accepts the connections of a listening socket on the housekeeping thread.
///
/// While the process or the system has no descriptors or memory left for more, it pauses, and the
/// connections wait.
///
/// Thread safety: thread-safe.
class AcceptLoop {
public:
    /// Receives a connected socket, non-blocking and closed on exec.
    using Accepted = std::function<void(Descriptor socket)>;

    /// Start to accept.
    ///
    /// @param listening a listening socket; it becomes non-blocking.
    ///
    /// @throws std::system_error when it cannot be waited for.
    AcceptLoop(Housekeeper& housekeeper, Descriptor listening, Accepted accepted);

    /// Close the listening socket. When this returns, `accepted` is not running and does not run
    /// any more; from inside of `accepted`, that call is the last. In a forked child, nothing
    /// happens.
    ~AcceptLoop();

    AcceptLoop(AcceptLoop&&) noexcept;
    AcceptLoop& operator=(AcceptLoop&&) noexcept;

private:
    class State;
    Housekept<State> state;
};

} // namespace agent::orvi::remoting::details
