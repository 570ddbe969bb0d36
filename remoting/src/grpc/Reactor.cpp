#include "grpc/Reactor.hpp"

#include <algorithm>
#include <csignal>
#include <iterator>
#include <utility>

namespace agent::orvi::remoting::details {
namespace {

using Clock = std::chrono::system_clock;

/// How long nobody may look after the queue while tasks or callers come and go.
constexpr std::chrono::milliseconds lookInterval{1};

/// After so many looks at which nothing had happened, a thread waits at the queue for good.
constexpr unsigned int quietLooksUntilIdle = 20;

/// What it takes to fetch an event for which nobody had to wait.
constexpr std::chrono::microseconds timeOfAnEventThatWasThere{5};

/// After so many tasks in a row that had been waiting, events are handled beside tasks.
constexpr unsigned int pressureThatCallsALeader = 3;

const Executor::TimePoint forever = Executor::TimePoint::max();

/// What tasks go to that are posted from inside of an event on this thread.
struct Collection {
    const Reactor* reactor = nullptr;
    std::deque<Executor::Task>* posted = nullptr;
};

thread_local Collection collection;

void runGuarded(const Executor::Task& task) noexcept {
    try {
        task();
    } catch (...) {
        // A task reports its own errors; there is nobody here to tell.
    }
}

} // namespace

void Reactor::Kick::completed(bool) {
    const std::lock_guard lock(reactor.mutex);
    reactor.kicked = false;
}

std::shared_ptr<Reactor>
Reactor::start(std::unique_ptr<grpc::CompletionQueue> queue, std::size_t tasks) {
    auto reactor = std::make_shared<Reactor>(std::move(queue), tasks);
    const std::lock_guard lock(reactor->mutex);
    reactor->spawn();
    return reactor;
}

Reactor::Reactor(std::unique_ptr<grpc::CompletionQueue> queue, std::size_t tasks)
    : completions(std::move(queue))
    , maximumTasks(std::max<std::size_t>(tasks, 1)) {}

Reactor::~Reactor() = default;

void Reactor::post(Task task) {
    if (!process.isHere()) {
        return;
    }
    if (collection.reactor == this) {
        collection.posted->push_back(std::move(task));
        return;
    }
    const std::lock_guard lock(mutex);
    tasks.push_back(std::move(task));
    callThread();
}

bool Reactor::wait(Wait& wait, std::optional<TimePoint> timeLimit) {
    Lock lock(mutex);
    ++activity;
    looksSinceCall = 0;
    const auto place = waits.insert(waits.end(), &wait);
    while (!wait.isOver() && !drained) {
        if (leader == Leader::none) {
            leadFor(lock, wait, timeLimit);
        } else {
            if (leader == Leader::pool) {
                kickLeader();
            }
            if (!timeLimit) {
                wakeOf(wait).wait(lock);
            } else if (wakeOf(wait).wait_until(lock, *timeLimit) == std::cv_status::timeout) {
                break;
            }
        }
        if (timeLimit && Clock::now() >= *timeLimit) {
            break;
        }
    }
    waits.erase(place);
    if (leader == Leader::none) {
        resign();
    }
    return wait.isOver();
}

void Reactor::finish(Wait& wait) {
    const std::lock_guard lock(mutex);
    setOver(wait);
    wakeOf(wait).notify_one();
    if (led == &wait && collection.reactor != this) {
        kickLeader(); // it waits at the queue, which hears nothing of this
    }
}

void Reactor::attend() {
    const std::lock_guard lock(mutex);
    if (leader == Leader::none) {
        leadAtOnce = true;
        callThread();
    }
}

void Reactor::stop(TimePoint timeLimit) noexcept {
    Lock lock(mutex);
    if (!stopping) {
        stopping = true;
        while (kicked) { // the alarm is an operation of the queue, too
            threadEnded.wait_until(lock, Clock::now() + lookInterval);
        }
        completions->Shutdown();
    }
    pool.notify_all();
    const auto allEnded = [this] {
        return drained && std::all_of(threads.begin(), threads.end(), [](const auto& thread) {
                   return thread->ended;
               });
    };
    threadEnded.wait_until(lock, timeLimit, allEnded);
    const std::list<std::shared_ptr<Thread>> left = std::exchange(threads, {});
    lock.unlock();
    for (const auto& thread : left) {
        lock.lock();
        const bool ended = thread->ended;
        lock.unlock();
        if (ended) {
            thread->thread.join();
        } else {
            thread->thread.detach();
        }
    }
}

/// Start a thread that has nothing to do yet.
void Reactor::spawn() {
    // A host's signal handlers run on the host's threads.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    const auto self = std::make_shared<Thread>();
    threads.push_back(self);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        self->thread = std::thread([reactor = shared_from_this(), self] { reactor->run(*self); });
        ++resting;
    } catch (...) {
        threads.pop_back();
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        throw;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

/// See to it that a thread without a task is awake, if there may be one more.
void Reactor::callThread() {
    if (resting > 0) {
        pool.notify_one();
    } else if (!stopping && threads.size() <= maximumTasks) {
        try {
            spawn();
        } catch (...) {
            // The threads that there are will come to it.
        }
    }
}

bool Reactor::mayRunTask() const noexcept {
    return !tasks.empty() && running < maximumTasks;
}

void Reactor::run(Thread& self) {
    Lock lock(mutex);
    for (;;) {
        if (mayRunTask()) {
            runTask(lock);
        } else if (drained && stopping) {
            break;
        } else {
            rest(lock);
        }
    }
    --resting;
    self.ended = true;
    threadEnded.notify_all();
    pool.notify_all();
}

/// Run the first task. This thread counts as resting before and after.
void Reactor::runTask(Lock& lock) {
    Task task = std::move(tasks.front());
    tasks.pop_front();
    ++running;
    --resting;
    ++activity;
    // Somebody must be there for the events and for the other tasks meanwhile.
    if (resting == 0 || mayRunTask()) {
        callThread();
    } else if (leader == Leader::none && pressure >= pressureThatCallsALeader) {
        leadAtOnce = true;
        pool.notify_one();
    } else if (leader == Leader::none) {
        resign();
    }
    lock.unlock();
    runGuarded(task);
    task = nullptr;
    lock.lock();
    --running;
    ++resting;
}

/// Look after the queue, or wait until that or a task is needed.
void Reactor::rest(Lock& lock) {
    const auto vacant = [this] { return leader == Leader::none && waits.empty() && !drained; };
    const auto callers = [this] { return looksSinceCall < quietLooksUntilIdle; };
    if (vacant() && (leadAtOnce || (running == 0 && !callers()))) {
        lead(lock, false);
        return;
    }
    if (watched || drained || (!vacant() && quietLooks >= quietLooksUntilIdle)) {
        pool.wait(lock);
        return;
    }
    watched = true;
    const std::uint64_t seen = activity;
    pool.wait_for(lock, lookInterval);
    watched = false;
    if (leadAtOnce && vacant()) {
        lead(lock, false);
        return;
    }
    quietLooks = activity == seen ? quietLooks + 1 : 0;
    if (callers()) {
        ++looksSinceCall;
    }
    if (vacant() && activity == seen && !mayRunTask()) {
        lead(lock, callers());
    }
}

/// Handle events as a thread of the pool until there is a task, a caller that waits or, when it is
/// meant to be brief, nothing to do.
void Reactor::lead(Lock& lock, bool briefly) {
    leader = Leader::pool;
    leadAtOnce = false;
    std::deque<Task> posted;
    bool handled = true;
    while (handled && !drained && waits.empty() && !mayRunTask()) {
        lock.unlock();
        const auto before = std::chrono::steady_clock::now();
        handled = handleEvent(briefly ? TimePoint() : forever, posted);
        const bool atOnce = std::chrono::steady_clock::now() - before < timeOfAnEventThatWasThere;
        lock.lock();
        if (!posted.empty()) {
            pressure = atOnce ? std::min(pressure + 1, 2 * pressureThatCallsALeader)
                              : pressure - std::min(pressure, 1U);
        }
        std::move(posted.begin(), posted.end(), std::back_inserter(tasks));
        posted.clear();
    }
    leader = Leader::none;
    if (!waits.empty()) {
        resign();
    }
}

/// Handle events as a caller until its own wait is over.
void Reactor::leadFor(Lock& lock, Wait& wait, std::optional<TimePoint> timeLimit) {
    leader = Leader::caller;
    led = &wait;
    std::deque<Task> posted;
    lock.unlock();
    bool handled = true;
    while (handled && !wait.isOver()) {
        handled = handleEvent(timeLimit.value_or(forever), posted);
        if (!posted.empty()) {
            lock.lock();
            std::move(posted.begin(), posted.end(), std::back_inserter(tasks));
            posted.clear();
            callThread();
            lock.unlock();
        }
    }
    lock.lock();
    leader = Leader::none;
    led = nullptr;
}

/// Tell whoever should that nobody looks after the queue.
void Reactor::resign() noexcept {
    if (!waits.empty()) {
        wakeOf(*waits.front()).notify_one();
    } else if (!watched && resting > 0) {
        quietLooks = 0;
        pool.notify_one();
    }
}

/// Wait for an event and handle it. Tasks that it posts are collected.
///
/// @return whether there was one.
bool Reactor::handleEvent(TimePoint timeLimit, std::deque<Task>& posted) {
    void* tag = nullptr;
    bool ok = false;
    switch (completions->AsyncNext(&tag, &ok, timeLimit)) {
    case grpc::CompletionQueue::GOT_EVENT: {
        const Collection outer = std::exchange(collection, {this, &posted});
        Operation::ofTag(tag).completed(ok);
        collection = outer;
        return true;
    }
    case grpc::CompletionQueue::SHUTDOWN: {
        const std::lock_guard lock(mutex);
        drained = true;
        pool.notify_all();
        for (Wait* wait : waits) {
            wakeOf(*wait).notify_one();
        }
        return false;
    }
    default:
        return false;
    }
}

void Reactor::kickLeader() {
    if (!kicked && !stopping) {
        kicked = true;
        alarm.Set(completions.get(), gpr_now(GPR_CLOCK_MONOTONIC), kick.tag());
    }
}

} // namespace agent::orvi::remoting::details
