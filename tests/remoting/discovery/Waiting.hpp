#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::test {

/// Longer than anything takes: whoever waits as long has waited in vain.
inline constexpr std::chrono::seconds longTime{60};

/// Wait for what nothing announces.
///
/// @return whether it has come.
template <class Condition>
bool eventually(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + longTime;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// What callbacks have reported, in order.
///
/// Thread safety: thread-safe.
template <class Event>
class EventLog {
public:
    void add(Event event) {
        const std::lock_guard lock(mutex);
        events.push_back(std::move(event));
        changed.notify_all();
    }

    /// Wait until there are at least so many.
    ///
    /// @return all that there are.
    std::vector<Event> waitFor(std::size_t count) {
        std::unique_lock lock(mutex);
        changed.wait_for(lock, longTime, [&] { return events.size() >= count; });
        return events;
    }

    /// Wait until there is one.
    ///
    /// @return whether it has come.
    bool waitForEvent(const Event& event) {
        std::unique_lock lock(mutex);
        return changed.wait_for(
            lock, longTime, [&] { return std::count(events.begin(), events.end(), event) > 0; });
    }

    std::vector<Event> all() const {
        const std::lock_guard lock(mutex);
        return events;
    }

private:
    mutable std::mutex mutex;
    std::condition_variable changed;
    std::vector<Event> events;
};

} // namespace agent::orvi::remoting::test
