#pragma once

#include "discovery/Housekept.hpp"

#include <sys/types.h>

#include <functional>

namespace agent::orvi::remoting::details {

/// Waits for the end of another process.
///
/// Thread safety: thread-compatible.
class ProcessWatch {
public:
    class State;

    /// Watch nothing.
    ProcessWatch() noexcept;

    explicit ProcessWatch(Housekept<State> state) noexcept;

    /// When this returns, the callback is not running and does not run any more; it may be called
    /// from inside of the callback.
    ~ProcessWatch();

    ProcessWatch(ProcessWatch&&) noexcept;
    ProcessWatch& operator=(ProcessWatch&&) noexcept;

    /// Say whether there is something to wait for: the kernel may not let one.
    bool isActive() const noexcept { return static_cast<bool>(state); }

private:
    Housekept<State> state;
};

/// Call back once, on the housekeeping thread, when a process has ended. One that has ended already
/// counts. Where the kernel cannot say (process 0, another user's namespace, a kernel without
/// process descriptors), the result is inactive.
///
/// @throws std::system_error when there are no descriptors left.
ProcessWatch watchProcess(Housekeeper& housekeeper, pid_t process, std::function<void()> ended);

/// The same for the process at the other end of a local socket. On newer kernels, unlike with the
/// process's number, this cannot mean a later process that got the same number.
///
/// @throws std::system_error when there are no descriptors left.
ProcessWatch
watchPeerProcess(Housekeeper& housekeeper, int descriptor, std::function<void()> ended);

} // namespace agent::orvi::remoting::details
