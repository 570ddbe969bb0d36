#pragma once

#include <chrono>
#include <new>
#include <thread>

namespace agent::orvi::remoting::details {

/// Do something that nobody would ever do later, like waiting for the next event of a kind: while
/// there is no memory for it, again and again. It takes little memory and has no effect when it
/// throws.
template <class Action>
void awaitMemoryFor(const Action& action) {
    constexpr std::chrono::milliseconds untilAsked{10};
    for (;;) {
        try {
            action();
            return;
        } catch (const std::bad_alloc&) {
            std::this_thread::sleep_for(untilAsked);
        }
    }
}

} // namespace agent::orvi::remoting::details
