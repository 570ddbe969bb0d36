#pragma once

#include "carrier/Carrier.hpp"

#include <deque>
#include <memory>
#include <mutex>
#include <utility>

namespace agent::orvi::remoting::details {

/// Lets the calls of one service run one after another, in the order in which they came. A call
/// that waits for its turn takes no thread.
///
/// Thread safety: thread-safe.
class CallQueue {
public:
    /// A call. One that can have no turn any more is dropped.
    class Call {
    public:
        /// Have one's turn, until `endTurn` is called, which is done once.
        virtual void run() noexcept = 0;

        virtual ~Call() = default;
    };

    /// @param executor where calls run. The queue may outlive it.
    explicit CallQueue(std::weak_ptr<Executor> executor)
        : executor(std::move(executor)) {}

    /// Have a call run on one of the executor's threads when its turn comes.
    void add(std::shared_ptr<Call> call);

    /// Let the next call have its turn.
    void endTurn() noexcept;

private:
    bool begin(std::shared_ptr<Call> call) noexcept;

    const std::weak_ptr<Executor> executor;
    std::mutex mutex;
    bool busy = false;
    std::deque<std::shared_ptr<Call>> calls;
};

} // namespace agent::orvi::remoting::details
