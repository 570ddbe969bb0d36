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
/// Whoever asks offers the processor to others in between. Where these take it for long, sleeping
/// is better for both: who has given it away gets it back last, and who is woken gets it first. So
/// nobody asks for some time then, for longer when that did not change meanwhile.
///
/// Thread safety: single-thread.
class BusyPolling {
public:
    using Duration = std::chrono::nanoseconds;

    /// @param longest how long to ask at a time; 0 for never.
    explicit BusyPolling(Duration longest);

    /// Return how long to ask for the next event.
    Duration time() const noexcept {
        return confidence > 0 && pause == 0 ? longest : Duration::zero();
    }

    /// Take note of how long others took the processor that was offered to them while asking.
    ///
    /// @return whether to go on asking.
    bool yielded(Duration time) noexcept;

    /// Take note of how long an event took to come, whether it was asked for or slept for.
    void waited(Duration time) noexcept;

private:
    static constexpr int shortestPause = 16;
    static constexpr int longestPause = 1024;

    Duration longest;
    int confidence = 0; // that the next event comes soon
    int pause = 0;      // for how many events nobody asks
    int nextPause = shortestPause;
    int undisturbed = 0; // how many events have been asked for since that has changed
};

/// Return for how long threads of this process may be busy waiting: not at all on one processor,
/// where it would keep off what is waited for.
BusyPolling::Duration allowedPolling(BusyPolling::Duration wanted) noexcept;

} // namespace agent::orvi::remoting::details
