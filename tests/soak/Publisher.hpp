#pragma once

#include "remoting/processes/RemoteComponent.hpp"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <string>

#include <sys/types.h>

namespace agent::orvi::remoting::test {

/// The process that was told something has been killed.
class PublisherKilled : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A process that publishes, and its successors.
///
/// Thread safety: thread-safe, but for `kill` and `replace`, which belong to the main thread.
class Publisher {
public:
    /// @param endpoint the settings of its endpoint.
    explicit Publisher(std::string endpoint);

    /// Tell the process of that generation to do something; see RemoteComponent::ask.
    ///
    /// @throws PublisherKilled when it does not do it because of `kill`.
    std::string ask(std::uint64_t generation, const std::string& command);

    /// Keep `kill` from being called while this lives, if it is told to spare those that connect.
    std::shared_lock<std::shared_mutex> connecting() { return std::shared_lock(connections); }

    /// Kill it while it does whatever it does.
    ///
    /// @param spareConnecting whether nobody shall be connecting meanwhile: who does waits for 20
    ///        seconds, in vain.
    void kill(bool spareConnecting);

    /// Wait for its end and start another process in its place, without any publication.
    void replace();

    /// Return how many processes there have been: all but the last have ended, and what they
    /// published is gone.
    std::uint64_t generation() const noexcept { return processes; }

    /// Say whether `kill` has begun to end the process of that generation.
    bool wasKilled(std::uint64_t generation) const noexcept { return killed >= generation; }

    /// Stop it (SIGSTOP) and let it go on (SIGCONT).
    void signal(int number) const { component->signal(number); }

    pid_t id() const noexcept { return component->id(); }

private:
    const std::string endpoint;
    std::mutex mutex;
    std::shared_mutex connections;
    std::unique_ptr<RemoteComponent> component;
    std::atomic<std::uint64_t> processes{0};
    std::atomic<std::uint64_t> killed{0}; ///< The last generation that was.
};

} // namespace agent::orvi::remoting::test
