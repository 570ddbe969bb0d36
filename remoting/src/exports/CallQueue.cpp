#include "exports/CallQueue.hpp"

#include <utility>

namespace agent::orvi::remoting::details {

void CallQueue::run(Call call) {
    {
        const std::lock_guard lock(mutex);
        if (busy) {
            calls.push_back(std::move(call));
            return;
        }
        busy = true;
    }
    call(std::make_shared<Turn>(shared_from_this()));
}

void CallQueue::endTurn() noexcept {
    Call next;
    {
        const std::lock_guard lock(mutex);
        if (calls.empty()) {
            busy = false;
            return;
        }
        next = std::move(calls.front());
        calls.pop_front();
    }
    executor.post([next = std::move(next), self = shared_from_this()] {
        next(std::make_shared<Turn>(self));
    });
}

} // namespace agent::orvi::remoting::details
