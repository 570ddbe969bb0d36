#include "exports/CallQueue.hpp"

namespace agent::orvi::remoting::details {

void CallQueue::add(std::shared_ptr<Call> call) {
    {
        const std::lock_guard lock(mutex);
        if (busy) {
            calls.push_back(std::move(call));
            return;
        }
        busy = true;
    }
    if (!begin(std::move(call))) {
        endTurn();
    }
}

void CallQueue::endTurn() noexcept {
    for (;;) {
        std::shared_ptr<Call> next;
        {
            const std::lock_guard lock(mutex);
            if (calls.empty()) {
                busy = false;
                return;
            }
            next = std::move(calls.front());
            calls.pop_front();
        }
        if (begin(std::move(next))) {
            return;
        }
    }
}

/// Say whether a call will run. If not, it has been dropped.
bool CallQueue::begin(std::shared_ptr<Call> call) noexcept {
    try {
        if (const auto alive = executor.lock()) {
            alive->post([call = std::move(call)] { call->run(); });
            return true;
        }
    } catch (...) {
        // There is no memory for it.
    }
    return false;
}

} // namespace agent::orvi::remoting::details
