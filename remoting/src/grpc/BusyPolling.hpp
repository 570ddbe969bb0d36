#pragma once

#include <chrono>

namespace agent::orvi::remoting::details {

/// What a user may ask for at most.
constexpr std::chrono::milliseconds longestBusyPolling{10};

/// Decides how long a thread that needs an event keeps asking for it before it sleeps.
///
/// To wake a sleeping thread takes longer than a small answer does, and costs both sides more
/// processor time than asking for it. So where events have lately come soon enough, the next one is
/// asked for; where they have not, asking would only take the processor from somebody else.
///
/// Thread safety: single-thread.
class BusyPolling {
public:
    using Duration = std::chrono::nanoseconds;

    /// @param longest how long to ask at a time; 0 for never.
    explicit BusyPolling(Duration longest);

    /// Return how long to ask for the next event.
    Duration time() const noexcept { return confidence > 0 ? longest : Duration::zero(); }

    /// Take note of how long an event took to come, whether it was asked for or slept for.
    void waited(Duration time) noexcept;

private:
    Duration longest;
    int confidence = 0; // that the next event comes soon
};

/// Return for how long threads of this process may be busy waiting: not at all on one processor,
/// where it would keep off what is waited for.
BusyPolling::Duration allowedPolling(BusyPolling::Duration wanted) noexcept;

} // namespace agent::orvi::remoting::details
