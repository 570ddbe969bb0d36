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

/// One for brief tasks, one for events.
constexpr std::size_t threadsBesideTasks = 2;

/// After so many tasks in a row that had been waiting, events are handled beside tasks.
constexpr unsigned int pressureThatCallsALeader = 3;

const Executor::TimePoint forever = Executor::TimePoint::max();
const Executor::TimePoint atOnce;

void runGuarded(const Executor::Task& task) noexcept {
    try {
        task();
    } catch (...) {
        // A task reports its own errors; there is nobody here to tell.
    }
}

} // namespace

thread_local Reactor::Collection Reactor::collection;

void Reactor::Kick::completed(bool) {
    const std::lock_guard lock(reactor.mutex);
    reactor.kicked = false;
}

std::shared_ptr<Reactor> Reactor::start(
    std::unique_ptr<grpc::CompletionQueue> queue, std::size_t tasks,
    std::chrono::nanoseconds busyPolling) {
    auto reactor = std::make_shared<Reactor>(std::move(queue), tasks, busyPolling);
    try {
        const std::lock_guard lock(reactor->mutex);
        reactor->spawn();
    } catch (...) {
        // gRPC demands of a queue to be shut down and empty at its end.
        reactor->completions->Shutdown();
        void* tag = nullptr;
        for (bool ok = false; reactor->completions->Next(&tag, &ok);) {
        }
        throw;
    }
    return reactor;
}

Reactor::Reactor(
    std::unique_ptr<grpc::CompletionQueue> queue, std::size_t tasks,
    std::chrono::nanoseconds busyPolling)
    : completions(std::move(queue))
    , maximumTasks(std::max<std::size_t>(tasks, 1))
    , polling(allowedPolling(busyPolling)) {}

Reactor::~Reactor() = default;

void Reactor::post(Task task) {
    std::list<Task> prepared;
    prepared.push_back(std::move(task));
    post(&Tasks::any, prepared);
}

void Reactor::postPrepared(std::list<Task>& prepared) noexcept {
    post(&Tasks::any, prepared);
}

void Reactor::postBrief(Task task) {
    std::list<Task> prepared;
    prepared.push_back(std::move(task));
    post(&Tasks::brief, prepared);
}

void Reactor::post(std::list<Task> Tasks::*kind, std::list<Task>& prepared) noexcept {
    if (!process.isHere()) {
        return;
    }
    if (collection.reactor == this) {
        std::list<Task>& posted = collection.posted->*kind;
        posted.splice(posted.end(), prepared);
        return;
    }
    const std::lock_guard lock(mutex);
    std::list<Task>& waiting = tasks.*kind;
    waiting.splice(waiting.end(), prepared);
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

void Reactor::stop(SteadyTime timeLimit) noexcept {
    Lock lock(mutex);
    if (!stopping) {
        stopping = true;
        while (kicked) { // the alarm is an operation of the queue, too
            threadEnded.wait_for(lock, lookInterval);
        }
        abandoned = true;
        shutDownIfUnused();
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

void Reactor::enter() {
    const std::lock_guard lock(mutex);
    ++users;
}

void Reactor::leave() noexcept {
    const std::lock_guard lock(mutex);
    --users;
    shutDownIfUnused();
}

void Reactor::shutDownIfUnused() noexcept {
    if (abandoned && users == 0) {
        completions->Shutdown();
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

/// See to it that a thread looks at the tasks, if there may be one more.
void Reactor::callThread() {
    if (sleepers() > 0) {
        pool.notify_one();
        return;
    }
    const std::size_t forTasks = threads.size() - std::min(threads.size(), threadsBesideTasks);
    if (!stopping && forTasks < maximumTasks) {
        try {
            spawn();
            return;
        } catch (...) {
            // The threads that there are will come to it.
        }
    }
    if (leader == Leader::pool && mayRunTask()) {
        kickLeader();
    }
}

/// Return the kind of tasks of which one may be run now, null if there is none.
std::list<Executor::Task> Reactor::Tasks::*Reactor::nextTasks() const noexcept {
    if (!tasks.brief.empty() && running <= maximumTasks) {
        return &Tasks::brief;
    }
    return !tasks.any.empty() && running < maximumTasks ? &Tasks::any : nullptr;
}

bool Reactor::mayRunTask() const noexcept {
    return nextTasks() != nullptr;
}

/// Return how many threads wait to be called.
std::size_t Reactor::sleepers() const noexcept {
    return resting - (leader == Leader::pool ? 1 : 0);
}

void Reactor::run(Thread& self) {
    Lock lock(mutex);
    bool hasEndedTask = false;
    for (;;) {
        if (mayRunTask()) {
            runTask(lock);
            hasEndedTask = true;
        } else if (drained && stopping) {
            break;
        } else {
            rest(lock, std::exchange(hasEndedTask, false));
        }
    }
    --resting;
    self.ended = true;
    threadEnded.notify_all();
    pool.notify_all();
}

/// Run the first task. This thread counts as resting before and after.
void Reactor::runTask(Lock& lock) {
    std::list<Task>& source = tasks.*nextTasks();
    Task task = std::move(source.front());
    source.pop_front();
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
void Reactor::rest(Lock& lock, bool hasEndedTask) {
    const auto vacant = [this] { return leader == Leader::none && waits.empty() && !drained; };
    const auto callers = [this] { return looksSinceCall < quietLooksUntilIdle; };
    if (vacant() && (leadAtOnce || ((hasEndedTask || running == 0) && !callers()))) {
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
    Tasks posted;
    bool handled = true;
    while (handled && !drained && waits.empty() && !mayRunTask()) {
        lock.unlock();
        handled = handleEvent(briefly ? atOnce : forever, posted);
        lock.lock();
        if (!posted.empty()) {
            pressure = lastWait < timeOfAnEventThatWasThere
                           ? std::min(pressure + 1, 2 * pressureThatCallsALeader)
                           : pressure - std::min(pressure, 1U);
        }
        tasks.takeAll(posted);
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
    Tasks posted;
    lock.unlock();
    bool handled = true;
    while (handled && !wait.isOver()) {
        handled = handleEvent(timeLimit.value_or(forever), posted);
        if (!posted.empty()) {
            lock.lock();
            tasks.takeAll(posted);
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
    } else if (!watched && sleepers() > 0) {
        quietLooks = 0;
        pool.notify_one();
    }
}

/// Wait for an event and handle it. Tasks that it posts are collected.
///
/// @return whether there was one.
bool Reactor::handleEvent(TimePoint timeLimit, Tasks& posted) {
    void* tag = nullptr;
    bool ok = false;
    switch (nextEvent(tag, ok, timeLimit)) {
    case grpc::CompletionQueue::GOT_EVENT: {
        const Collection outer = std::exchange(collection, {this, &posted});
        try {
            Operation::ofTag(tag).completed(ok);
        } catch (...) {
            // Streams end when what they report is not taken; there is nobody else to tell.
        }
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

/// Wait for an event, busily for as long as that is likely to pay.
grpc::CompletionQueue::NextStatus Reactor::nextEvent(void*& tag, bool& ok, TimePoint timeLimit) {
    if (timeLimit == atOnce) {
        lastWait = std::chrono::nanoseconds::zero();
        return completions->AsyncNext(&tag, &ok, timeLimit);
    }
    using Steady = std::chrono::steady_clock;
    const Steady::time_point start = Steady::now();
    const Steady::time_point end = start + polling.time();
    auto status = grpc::CompletionQueue::TIMEOUT;
    for (auto now = start; now < end;) {
        status = completions->AsyncNext(&tag, &ok, atOnce);
        if (status != grpc::CompletionQueue::TIMEOUT) {
            break;
        }
        const Steady::time_point offered = Steady::now();
        std::this_thread::yield();
        now = Steady::now();
        if (!polling.yielded(now - offered)) {
            break;
        }
    }
    if (status == grpc::CompletionQueue::TIMEOUT) {
        status = completions->AsyncNext(&tag, &ok, timeLimit);
    }
    lastWait = Steady::now() - start;
    polling.waited(lastWait);
    return status;
}

void Reactor::kickLeader() {
    if (!kicked && !stopping) {
        kicked = true;
        alarm.Set(completions.get(), gpr_now(GPR_CLOCK_MONOTONIC), kick.tag());
    }
}

} // namespace agent::orvi::remoting::details
