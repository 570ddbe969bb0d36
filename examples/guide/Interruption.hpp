#pragma once

#include <csignal>

/// Lets a program serve until it is interrupted (Ctrl-C) or terminated.
///
/// Make it before any thread is started: threads inherit that they leave these signals to `wait`.
class Interruption {
public:
    Interruption() noexcept {
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    }

    /// Block until one of the signals has come.
    void wait() const noexcept {
        int signal = 0;
        sigwait(&signals, &signal);
    }

private:
    sigset_t signals{};
};
