#include "bridge/CallGate.hpp"

#include <boost/intrusive/list.hpp>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <new>

namespace agent::orvi::core::detail {

// Trivially destructible, since objects of static lifetime close gates after the thread's other
// variables have gone.
constinit thread_local const CallGate::Frame* CallGate::innermost = nullptr;

/// A thread that waits in `close`.
struct CallGate::Closer
    : boost::intrusive::list_base_hook<boost::intrusive::link_mode<boost::intrusive::auto_unlink>> {
    Closer(const CallGate& gate, const Frame* innermost) noexcept
        : gate(gate)
        , innermost(innermost) {}

    std::uint64_t callsInside(const CallGate& other) const noexcept {
        std::uint64_t calls = 0;
        for (const Frame* frame = innermost; frame != nullptr; frame = frame->outer) {
            calls += frame->gate == &other ? 1 : 0;
        }
        return calls;
    }

    const CallGate& gate;
    const Frame* innermost;
    bool heldUp = false; // scratch of mayReturn
};

/// Everybody who waits in a `close`. Never destroyed: gates are closed until the process ends. Its
/// place is there from the beginning: a gate closes without an allocation.
struct CallGate::Closers {
    static Closers& instance() noexcept {
        alignas(Closers) static std::array<std::byte, sizeof(CallGate::Closers)> place;
        static Closers& closers = *new (place.data()) Closers;
        return closers;
    }

    /// Say whether only those calls are left that `closer` must not wait for.
    bool mayReturn(const Closer& closer) noexcept {
        for (Closer& other : waiting) {
            other.heldUp = &other == &closer;
        }
        const auto waitsForHeldUp = [this](const Closer& other) {
            return std::any_of(waiting.begin(), waiting.end(), [&](const Closer& held) {
                return held.heldUp && held.callsInside(other.gate) > 0;
            });
        };
        for (bool found = true; found;) {
            found = false;
            for (Closer& other : waiting) {
                if (!other.heldUp && waitsForHeldUp(other)) {
                    other.heldUp = found = true;
                }
            }
        }
        std::uint64_t excused = 0;
        for (const Closer& other : waiting) {
            excused += other.heldUp ? other.callsInside(closer.gate) : 0;
        }
        const std::uint64_t calls = closer.gate.state.load(std::memory_order_acquire) & ~closedBit;
        return calls == excused && (calls > 0 || closer.gate.ending.load() == Ending::done);
    }

    std::mutex mutex;
    std::condition_variable changed;
    boost::intrusive::list<Closer, boost::intrusive::constant_time_size<false>> waiting;
};

bool CallGate::enter() noexcept {
    // A crowd of refused callers must not keep the closer waiting: they leave the count alone.
    if ((state.load(std::memory_order_relaxed) & closedBit) != 0) {
        return false;
    }
    if ((state.fetch_add(1, std::memory_order_acquire) & closedBit) != 0) {
        leave();
        return false;
    }
    return true;
}

void CallGate::leave() noexcept {
    if ((state.fetch_sub(1, std::memory_order_acq_rel) & closedBit) != 0) {
        endIfEmpty();
    }
}

void CallGate::endIfEmpty() noexcept {
    Ending expected = Ending::pending;
    if (state.load(std::memory_order_acquire) == closedBit &&
        ending.compare_exchange_strong(expected, Ending::running)) {
        // What ends here may close other gates. For those who close this one it is a call of this
        // thread, so that they do not wait for each other.
        state.fetch_add(1, std::memory_order_relaxed);
        const Frame frame{this, innermost};
        innermost = &frame;
        lastCallEnded();
        innermost = frame.outer;
        ending = Ending::done;
        state.fetch_sub(1, std::memory_order_release);
    }
    Closers& closers = Closers::instance();
    const std::lock_guard lock(closers.mutex);
    closers.changed.notify_all();
}

void CallGate::close() noexcept {
    state.fetch_or(closedBit, std::memory_order_acq_rel);
    endIfEmpty();
    Closers& closers = Closers::instance();
    std::unique_lock lock(closers.mutex);
    Closer self(*this, innermost);
    closers.waiting.push_back(self);
    closers.changed.notify_all(); // who waits for a call of this thread may be excused from it now
    closers.changed.wait(lock, [&] { return closers.mayReturn(self); });
}

CallGate::Call::Call(CallGate& gate) noexcept
    : gate(gate)
    , frame{&gate, innermost}
    , entered(gate.enter()) {
    if (entered) {
        innermost = &frame;
    }
}

CallGate::Call::~Call() {
    if (entered) {
        innermost = frame.outer;
        gate.leave();
    }
}

} // namespace agent::orvi::core::detail
