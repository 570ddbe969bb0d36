#pragma once

#include <boost/asio/io_context.hpp>

#include <functional>
#include <memory>

namespace agent::orvi::remoting::details {

/// One thread that waits for everything that is not a call: sockets that appear, connections that
/// end, names that want to be resolved, times that pass.
///
/// What a handler throws is dropped, and the thread goes on. Handlers must be short: everybody
/// else's wait meanwhile. The thread receives no signals but those of its own faults, so that a
/// host's signal handlers run on the host's threads.
///
/// The one who needs it owns it, and everything that was given a reference to it goes first. A
/// child process that was forked without an exec has no such thread: there, nothing happens any
/// more, and destructors leave everything as it is, since it is the parent's.
///
/// Thread safety: thread-safe.
class Housekeeper {
public:
    /// Start the thread.
    ///
    /// @throws std::system_error when there are no threads or descriptors left.
    Housekeeper();

    /// Stop, as `stop` does.
    ~Housekeeper();

    Housekeeper(const Housekeeper&) = delete;
    Housekeeper& operator=(const Housekeeper&) = delete;

    /// Return where handlers are posted.
    boost::asio::io_context& context() noexcept;

    /// End the thread after the handler that is running. Handlers that wait do not run any more.
    /// Blocks until the thread has ended, unless this is that thread: it ends later then. Nothing
    /// happens the second time.
    void stop() noexcept;

    /// End the thread as `stop` does, without waiting for it: for when the handler that is running
    /// may never end. What that handler needs must be kept by it.
    void leaveBehind() noexcept;

    /// Run a task on the thread and wait for its end: when it has run, no handler that was running
    /// before is running any more. Runs it at once when this is that thread or when the thread has
    /// ended. In a forked child it does not run. The caller holds no lock that a handler takes.
    ///
    /// @throws what the task throws.
    void runAndWait(const std::function<void()>& task);

    /// Say whether this process has the thread, and not the one that forked this process.
    bool isOfThisProcess() const noexcept;

    /// Keep something until this process ends, without ever ending it: in a forked child, what
    /// belongs to the parent.
    static void leaveToParent(std::shared_ptr<void> object);

private:
    struct Impl;
    std::shared_ptr<Impl> impl;
};

} // namespace agent::orvi::remoting::details
