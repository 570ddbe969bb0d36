#pragma once

#include <atomic>
#include <cstdint>

namespace agent::orvi::core::detail {

/// Lets calls into a service while it is open; closing it waits for the calls that are inside.
///
/// A call costs one atomic addition on its way in and one on its way out: no lock, no allocation.
/// Closing is for ever. Whoever uses the gate keeps it alive meanwhile.
///
/// Thread safety: thread-safe.
class CallGate {
    struct Frame;

public:
    /// One call, on the stack of the thread that makes it.
    class Call;

    CallGate() noexcept = default;
    CallGate(const CallGate&) = delete;
    CallGate& operator=(const CallGate&) = delete;

    /// Refuse calls from now on and wait until nobody is inside. When nobody is, `lastCallEnded`
    /// has run.
    ///
    /// Not waited for are the calls that this thread itself is inside of, and those of threads that
    /// cannot go on before this one does, since they wait, directly or through others, for such a
    /// call of this thread in a `close` of their own. With such a call inside, `lastCallEnded` runs
    /// on the last thread that leaves.
    void close() noexcept;

protected:
    virtual ~CallGate() = default;

    /// Called once, without a lock, when the gate is closed and its last call has ended. To other
    /// closers it counts as a call.
    virtual void lastCallEnded() noexcept = 0;

private:
    struct Closer;
    struct Closers;
    enum class Ending { pending, running, done };

    static constexpr std::uint64_t closedBit = std::uint64_t{1} << 63;
    static thread_local const Frame* innermost; // call of this thread

    bool enter() noexcept;
    void leave() noexcept;
    void endIfEmpty() noexcept;

    std::atomic<std::uint64_t> state{0}; // the calls inside, and the bit that refuses more
    std::atomic<Ending> ending{Ending::pending};
};

/// What a thread is inside of, from the innermost call outwards.
struct CallGate::Frame {
    const CallGate* gate;
    const Frame* outer;
};

class CallGate::Call {
public:
    /// Enter the gate unless it is closed.
    explicit Call(CallGate& gate) noexcept;

    /// Leave the gate.
    ~Call();

    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    /// Say whether the gate let the call in.
    explicit operator bool() const noexcept { return entered; }

private:
    CallGate& gate;
    Frame frame;
    bool entered;
};

} // namespace agent::orvi::core::detail
