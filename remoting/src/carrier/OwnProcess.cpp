#include "carrier/OwnProcess.hpp"

#include <atomic>

#include <pthread.h>

namespace agent::orvi::remoting::details {
namespace {

std::atomic<unsigned int> forksSoFar{0};

void countFork() {
    forksSoFar.fetch_add(1, std::memory_order_relaxed);
}

/// Return the number of forks, which is counted from the first call on.
unsigned int forks() noexcept {
    static const int counting = pthread_atfork(nullptr, nullptr, countFork);
    static_cast<void>(counting);
    return forksSoFar.load(std::memory_order_relaxed);
}

} // namespace

OwnProcess::OwnProcess() noexcept
    : forks(details::forks()) {}

bool OwnProcess::isHere() const noexcept {
    return forks == forksSoFar.load(std::memory_order_relaxed);
}

} // namespace agent::orvi::remoting::details
