#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>

namespace agent::orvi::remoting::details {

/// What all calls of an endpoint may use at a time.
///
/// Thread safety: thread-safe.
class CallBudget {
public:
    /// What one call has of it.
    class Share;

    CallBudget(std::size_t calls, std::uint64_t bytes)
        : maximumCalls(calls)
        , maximumBytes(bytes) {}

    /// Let no further call in: it is told that the service is unavailable.
    void close();

    /// Wait until no call has a share.
    ///
    /// @return whether that was before the time limit.
    bool awaitNoCalls(std::chrono::steady_clock::time_point timeLimit);

private:
    const std::size_t maximumCalls;
    const std::uint64_t maximumBytes;

    std::mutex mutex;
    std::condition_variable noCalls;
    bool closed = false;
    std::size_t calls = 0;
    std::uint64_t bytes = 0;
};

/// Thread safety: thread-compatible.
class CallBudget::Share {
public:
    Share() noexcept = default;

    /// Take a share for a call that moves so many bytes.
    ///
    /// @throws core::ServiceUnavailable when the endpoint closes.
    /// @throws LimitExceeded when there is not enough left; the text says of what.
    Share(CallBudget& budget, std::uint64_t bytes);

    Share(Share&& other) noexcept;
    Share& operator=(Share&& other) noexcept;
    ~Share();

private:
    void giveBack() noexcept;

    CallBudget* budget = nullptr;
    std::uint64_t bytes = 0;
};

} // namespace agent::orvi::remoting::details
