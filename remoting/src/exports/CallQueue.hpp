#pragma once

#include "carrier/Carrier.hpp"

#include <deque>
#include <memory>
#include <mutex>

namespace agent::orvi::remoting::details {

/// Lets the calls of one service run one after another, in the order in which they came. A call
/// that waits for its turn takes no thread.
///
/// Thread safety: thread-safe.
class CallQueue : public std::enable_shared_from_this<CallQueue> {
public:
    /// A call's turn: the next one begins when this object is gone.
    class Turn;
    using Call = std::function<void(std::shared_ptr<Turn> turn)>;

    explicit CallQueue(Executor& executor)
        : executor(executor) {}

    /// Run a call when its turn comes: now on this thread, or later on one of the executor's.
    void run(Call call);

private:
    void endTurn() noexcept;

    Executor& executor;
    std::mutex mutex;
    bool busy = false;
    std::deque<Call> calls;
};

class CallQueue::Turn {
public:
    explicit Turn(std::shared_ptr<CallQueue> queue)
        : queue(std::move(queue)) {}

    ~Turn() { queue->endTurn(); }

    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

private:
    std::shared_ptr<CallQueue> queue;
};

} // namespace agent::orvi::remoting::details
