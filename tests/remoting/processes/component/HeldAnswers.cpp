#include "remoting/processes/component/HeldAnswers.hpp"

#include <condition_variable>
#include <mutex>

#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/types.h>

namespace agent::orvi::remoting::test::heldAnswers {
namespace {

struct State {
    std::mutex mutex;
    std::condition_variable changed;
    bool holding = false;
    int held = 0;
};

State& state() {
    // Sockets are used until the very end of the process.
    static auto* const only = new State;
    return *only;
}

} // namespace

void hold() noexcept {
    const std::lock_guard lock(state().mutex);
    state().holding = true;
}

void awaitHeld() noexcept {
    std::unique_lock lock(state().mutex);
    state().changed.wait(lock, [] { return state().held > 0; });
}

void release() noexcept {
    const std::lock_guard lock(state().mutex);
    state().holding = false;
    state().changed.notify_all();
}

static void passOrWait() {
    std::unique_lock lock(state().mutex);
    if (state().holding) {
        ++state().held;
        state().changed.notify_all();
        state().changed.wait(lock, [] { return !state().holding; });
        --state().held;
    }
}

} // namespace agent::orvi::remoting::test::heldAnswers

/// Stands before the C library's function of this name, for the libraries of this process, too.
extern "C" __attribute__((visibility("default"))) ssize_t
sendmsg(int socket, const msghdr* message, int flags) {
    using Function = ssize_t (*)(int, const msghdr*, int);
    static const auto next = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "sendmsg"));
    agent::orvi::remoting::test::heldAnswers::passOrWait();
    return next(socket, message, flags);
}
