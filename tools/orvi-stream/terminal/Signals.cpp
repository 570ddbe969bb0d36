#include "terminal/Signals.hpp"

#include "terminal/Failure.hpp"

#include <csignal>
#include <thread>

#include <unistd.h>

namespace agent::orvi::tool {
namespace {

sigset_t endingSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);

    struct sigaction hangUp {};

    sigaction(SIGHUP, nullptr, &hangUp);
    if (hangUp.sa_handler != SIG_IGN) {
        sigaddset(&signals, SIGHUP);
    }
    return signals;
}

} // namespace

void holdSignals() {
    const sigset_t signals = endingSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

int awaitSignal() {
    const sigset_t signals = endingSignals();
    int signal = 0;
    sigwait(&signals, &signal);
    return signal;
}

void endOnSignal(void (*beforeTheEnd)()) {
    std::thread([beforeTheEnd] {
        const int signal = awaitSignal();
        if (beforeTheEnd != nullptr) {
            beforeTheEnd();
        }
        // Another thread may be blocked for ever in a call of a stream.
        ::_exit(ExitCode::signalled + signal);
    }).detach();
}

} // namespace agent::orvi::tool
