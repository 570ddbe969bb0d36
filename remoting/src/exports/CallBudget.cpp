#include "exports/CallBudget.hpp"

#include <orvi/core/InvocationErrors.hpp>
#include <orvi/remoting/Errors.hpp>

#include <string>
#include <utility>

namespace agent::orvi::remoting::details {

void CallBudget::close() {
    const std::lock_guard lock(mutex);
    closed = true;
}

bool CallBudget::awaitNoCalls(std::chrono::steady_clock::time_point timeLimit) {
    std::unique_lock lock(mutex);
    return noCalls.wait_until(lock, timeLimit, [this] { return calls == 0; });
}

CallBudget::Share::Share(CallBudget& budget, std::uint64_t bytes)
    : bytes(bytes) {
    const std::lock_guard lock(budget.mutex);
    if (budget.closed) {
        throw core::ServiceUnavailable("The endpoint is closing.");
    }
    if (budget.calls >= budget.maximumCalls) {
        throw LimitExceeded(
            "The endpoint runs " + std::to_string(budget.maximumCalls) +
            " calls already, which is all it runs at a time.");
    }
    if (bytes > budget.maximumBytes - budget.bytes) {
        throw LimitExceeded(
            "The endpoint has no room for " + std::to_string(bytes) + " more bytes: of " +
            std::to_string(budget.maximumBytes) + ", " + std::to_string(budget.bytes) +
            " are in use.");
    }
    ++budget.calls;
    budget.bytes += bytes;
    this->budget = &budget;
}

CallBudget::Share::Share(Share&& other) noexcept
    : budget(std::exchange(other.budget, nullptr))
    , bytes(other.bytes) {}

CallBudget::Share& CallBudget::Share::operator=(Share&& other) noexcept {
    if (this != &other) {
        giveBack();
        budget = std::exchange(other.budget, nullptr);
        bytes = other.bytes;
    }
    return *this;
}

CallBudget::Share::~Share() {
    giveBack();
}

void CallBudget::Share::giveBack() noexcept {
    if (CallBudget* const from = std::exchange(budget, nullptr)) {
        const std::lock_guard lock(from->mutex);
        if (--from->calls == 0) {
            from->noCalls.notify_all();
        }
        from->bytes -= bytes;
    }
}

} // namespace agent::orvi::remoting::details
