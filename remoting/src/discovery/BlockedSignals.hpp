#pragma once

#include <csignal>

namespace agent::orvi::remoting::details {

/// Keeps signals away from this thread, and from threads that it starts, until the end of a scope.
/// Exempt are those that a thread's own faults raise: blocked, they would end the process without
/// its handlers.
class BlockedSignals {
public:
    BlockedSignals() noexcept {
        sigset_t signals;
        sigfillset(&signals);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
            sigdelset(&signals, fault);
        }
        pthread_sigmask(SIG_BLOCK, &signals, &previous);
    }

    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &previous, nullptr); }

    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t previous;
};

} // namespace agent::orvi::remoting::details
