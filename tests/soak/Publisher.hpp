#pragma once

#include "remoting/processes/RemoteComponent.hpp"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace agent::orvi::remoting::test {

/// A process that publishes files, and its successors.
///
/// Thread safety: thread-safe, but for `kill` and `replace`, which belong to the main thread.
class Publisher {
public:
    /// @param endpoint the settings of its endpoint.
    explicit Publisher(std::string endpoint);

    /// Tell it to do something; see RemoteComponent::ask.
    std::string ask(const std::string& command);

    /// Kill it while it does whatever it does.
    void kill();

    /// Start another process in its place, without any publication.
    void replace();

    /// Return how many processes there have been: what an earlier one has published is gone.
    std::uint64_t generation() const noexcept { return processes; }

    /// Stop it (SIGSTOP) and let it go on (SIGCONT).
    void signal(int number) const { component->signal(number); }

    pid_t id() const noexcept { return component->id(); }

private:
    const std::string endpoint;
    std::mutex mutex;
    std::unique_ptr<RemoteComponent> component;
    std::atomic<std::uint64_t> processes{0};
};

} // namespace agent::orvi::remoting::test
