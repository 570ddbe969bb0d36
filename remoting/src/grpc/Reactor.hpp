#pragma once

#include "carrier/Carrier.hpp"
#include "carrier/OwnProcess.hpp"
#include "grpc/Operation.hpp"

#include <grpcpp/alarm.h>
#include <grpcpp/completion_queue.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

namespace agent::orvi::remoting::details {

/// Handles the events of one completion queue, one at a time, on whatever thread there is: a
/// thread that waits for its answer does it itself, so that the answer needs no further thread to
/// reach it; when none waits, a thread of the pool does.
///
/// Waking a thread costs more than a small call does. So a pool thread that has taken a task from
/// an event runs it without waking another one first, unless events are piling up: for longer tasks
/// the next thread looks after the queue a moment later. And callers that come quickly after each
/// other find the queue free. The pool grows as tasks keep its threads busy, up to its limit; one
/// more thread is there for events.
///
/// A forked child has none of the threads: what is posted there is dropped.
///
/// Thread safety: thread-safe.
class Reactor final : public Executor, public std::enable_shared_from_this<Reactor> {
public:
    /// @param queue what is polled; shut down by `stop`.
    /// @param tasks how many tasks run at a time, at least 1.
    static std::shared_ptr<Reactor>
    start(std::unique_ptr<grpc::CompletionQueue> queue, std::size_t tasks);

    /// Use `start`.
    Reactor(std::unique_ptr<grpc::CompletionQueue> queue, std::size_t tasks);
    ~Reactor() override;

    grpc::CompletionQueue& queue() noexcept { return *completions; }

    void post(Task task) override;
    bool wait(Wait& wait, std::optional<TimePoint> timeLimit) override;
    void finish(Wait& wait) override;

    /// Have a thread of the pool look after the queue now and not only in a moment, since somebody
    /// waits for what an event will bring without handling events.
    void attend();

    /// Shut the queue down and end the threads once it is empty. No operation may be started any
    /// more. Threads that are still busy with a task at the time limit are left behind; they end
    /// with their tasks. Not from a thread of the pool.
    void stop(TimePoint timeLimit) noexcept;

private:
    using Lock = std::unique_lock<std::mutex>;

    class Kick final : public Operation {
    public:
        explicit Kick(Reactor& reactor)
            : reactor(reactor) {}

        void completed(bool ok) override;

    private:
        Reactor& reactor;
    };

    enum class Leader { none, caller, pool };

    struct Thread {
        std::thread thread;
        bool ended = false;
    };

    void run(Thread& self);
    void lead(Lock& lock, bool briefly);
    void leadFor(Lock& lock, Wait& wait, std::optional<TimePoint> timeLimit);
    void rest(Lock& lock);
    void runTask(Lock& lock);
    bool mayRunTask() const noexcept;
    void resign() noexcept;
    void callThread();
    void spawn();
    bool handleEvent(TimePoint timeLimit, std::deque<Task>& posted);
    void kickLeader();

    const OwnProcess process;
    const std::unique_ptr<grpc::CompletionQueue> completions;
    const std::size_t maximumTasks;

    std::mutex mutex;
    std::condition_variable pool;
    std::condition_variable threadEnded;
    std::deque<Task> tasks;
    std::list<Wait*> waits; // of callers, the longest first
    std::list<std::shared_ptr<Thread>> threads;
    std::size_t resting = 0; // threads without a task, the leading one not counted
    std::size_t running = 0; // tasks
    Leader leader = Leader::none;
    const Wait* led = nullptr;         // what a leading caller waits for
    bool watched = false;              // a resting thread looks at times whether somebody leads
    bool leadAtOnce = false;           // whoever rests should lead although others are busy
    std::uint64_t activity = 0;        // of tasks and callers
    unsigned int quietLooks = 0;       // since it changed last
    unsigned int looksSinceCall = ~0U; // since a caller came last
    unsigned int pressure = 0;         // how often events were waiting when a task had ended
    bool stopping = false;
    bool drained = false;

    bool kicked = false;
    Kick kick{*this};
    grpc::Alarm alarm;
};

} // namespace agent::orvi::remoting::details
