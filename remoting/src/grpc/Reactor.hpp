#pragma once

#include "carrier/Carrier.hpp"
#include "carrier/OwnProcess.hpp"
#include "grpc/BusyPolling.hpp"
#include "grpc/Operation.hpp"

#include <grpcpp/alarm.h>
#include <grpcpp/completion_queue.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

namespace agent::orvi::remoting::details {

/// Handles the events of one completion queue, one at a time, on whatever thread there is: a
/// thread that waits for its answer does it itself, so that the answer needs no further thread to
/// reach it; when none waits, a thread of the pool does.
///
/// Waking a thread costs more than a small call does. So whoever handles events asks for the next
/// one for a moment before sleeping, where events come quickly; see BusyPolling. A pool thread that
/// has taken a task from an event runs it without waking another one first, unless events are
/// piling up: for longer tasks the next thread looks after the queue a moment later. And callers
/// that come quickly after each other find the queue free. The pool grows as tasks keep its threads
/// busy, up to its limit; two more threads are there for brief tasks and for events.
///
/// A forked child has none of the threads: what is posted there is dropped.
///
/// Thread safety: thread-safe.
class Reactor final : public Executor, public std::enable_shared_from_this<Reactor> {
public:
    /// @param queue what is polled; shut down by `stop`.
    /// @param tasks how many tasks run at a time, brief ones not counted; at least 1.
    /// @param busyPolling how long to ask for an event before sleeping; 0 for never.
    static std::shared_ptr<Reactor> start(
        std::unique_ptr<grpc::CompletionQueue> queue, std::size_t tasks,
        std::chrono::nanoseconds busyPolling);

    /// Use `start`.
    Reactor(
        std::unique_ptr<grpc::CompletionQueue> queue, std::size_t tasks,
        std::chrono::nanoseconds busyPolling);
    ~Reactor() override;

    grpc::CompletionQueue& queue() noexcept { return *completions; }

    void post(Task task) override;
    void postPrepared(std::list<Task>& prepared) noexcept override;
    void postBrief(Task task) override;
    bool wait(Wait& wait, std::optional<TimePoint> timeLimit) override;
    void finish(Wait& wait) override;

    /// Have a thread of the pool look after the queue now and not only in a moment, since somebody
    /// waits for what an event will bring without handling events.
    void attend();

    /// Say that somebody starts operations from now on, until it leaves.
    void enter();

    /// Say that one of those who entered starts no more operations.
    void leave() noexcept;

    /// Shut the queue down once all who entered have left, as gRPC ends a process that starts an
    /// operation later, and end the threads once it is empty. Nobody may enter any more. Threads
    /// that have more to do at the time limit, tasks or events, are left behind until it is done.
    /// Not from a thread of the pool.
    void stop(SteadyTime timeLimit) noexcept;

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

    /// Tasks that nobody runs yet.
    struct Tasks {
        std::list<Task> any;
        std::list<Task> brief;

        bool empty() const noexcept { return any.empty() && brief.empty(); }

        void takeAll(Tasks& from) noexcept {
            any.splice(any.end(), from.any);
            brief.splice(brief.end(), from.brief);
        }
    };

    /// What tasks go to that are posted from inside of an event on this thread.
    struct Collection {
        const Reactor* reactor = nullptr;
        Tasks* posted = nullptr;
    };

    static thread_local Collection collection;

    void post(std::list<Task> Tasks::*kind, std::list<Task>& prepared) noexcept;
    void run(Thread& self);
    void lead(Lock& lock, bool briefly);
    void leadFor(Lock& lock, Wait& wait, std::optional<TimePoint> timeLimit);
    void rest(Lock& lock, bool hasEndedTask);
    void runTask(Lock& lock);
    bool mayRunTask() const noexcept;
    std::list<Task> Tasks::*nextTasks() const noexcept;
    std::size_t sleepers() const noexcept;
    void resign() noexcept;
    void callThread();
    void spawn();
    bool handleEvent(TimePoint timeLimit, Tasks& posted);
    grpc::CompletionQueue::NextStatus nextEvent(void*& tag, bool& ok, TimePoint timeLimit);
    void kickLeader();
    void shutDownIfUnused() noexcept;

    const OwnProcess process;
    const std::unique_ptr<grpc::CompletionQueue> completions;
    const std::size_t maximumTasks;

    // Of the leader:
    BusyPolling polling;
    std::chrono::nanoseconds lastWait{0}; // for an event

    std::mutex mutex;
    std::condition_variable pool;
    std::condition_variable threadEnded;
    Tasks tasks;
    std::list<Wait*> waits; // of callers, the longest first
    std::list<std::shared_ptr<Thread>> threads;
    std::size_t resting = 0; // threads without a task, a leading one among them
    std::size_t running = 0; // tasks
    Leader leader = Leader::none;
    const Wait* led = nullptr;         // what a leading caller waits for
    bool watched = false;              // a resting thread looks at times whether somebody leads
    bool leadAtOnce = false;           // whoever rests should lead although others are busy
    std::uint64_t activity = 0;        // of tasks and callers
    unsigned int quietLooks = 0;       // since it changed last
    unsigned int looksSinceCall = ~0U; // since a caller came last
    unsigned int pressure = 0;         // how often events were waiting when a task had ended
    std::size_t users = 0;             // who may start operations
    bool stopping = false;
    bool abandoned = false; // by all but the users
    bool drained = false;

    bool kicked = false;
    Kick kick{*this};
    grpc::Alarm alarm;
};

} // namespace agent::orvi::remoting::details
