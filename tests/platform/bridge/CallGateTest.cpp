#include "bridge/CallGate.hpp"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <barrier>
#include <chrono>
#include <functional>
#include <future>
#include <latch>
#include <memory>
#include <thread>
#include <vector>

namespace agent::orvi::core::detail {
namespace {

constexpr std::chrono::milliseconds stillBlocked{50}; // how long a call is seen not to return

class Gate final : public CallGate {
public:
    explicit Gate(std::function<void()> atEnd = [] {})
        : atEnd(std::move(atEnd)) {}

    int timesEnded() const { return ended; }

private:
    void lastCallEnded() noexcept override {
        atEnd();
        ++ended;
    }

    std::function<void()> atEnd;
    std::atomic<int> ended{0};
};

bool isOpen(Gate& gate) {
    return static_cast<bool>(CallGate::Call(gate));
}

/// A thread inside of a gate until it is told to leave.
class Visitor {
public:
    explicit Visitor(Gate& gate)
        : thread([this, &gate] {
            const CallGate::Call call(gate);
            EXPECT_TRUE(call);
            inside.count_down();
            leaving.wait();
        }) {
        inside.wait();
    }

    ~Visitor() { leave(); }

    void leave() {
        if (thread.joinable()) {
            leaving.count_down();
            thread.join();
        }
    }

private:
    std::latch inside{1};
    std::latch leaving{1};
    std::thread thread;
};

std::future<void> closeElsewhere(Gate& gate) {
    return std::async(std::launch::async, [&] { gate.close(); });
}

bool isBlocked(const std::future<void>& closing) {
    return closing.wait_for(stillBlocked) == std::future_status::timeout;
}

void awaitClosing(Gate& gate) {
    while (isOpen(gate)) {
        std::this_thread::yield();
    }
}

TEST(CallGateTest, LetsCallsInUntilItIsClosed) {
    Gate gate;
    EXPECT_TRUE(isOpen(gate));
    EXPECT_TRUE(isOpen(gate));
    EXPECT_EQ(gate.timesEnded(), 0);
    gate.close();
    EXPECT_FALSE(isOpen(gate));
    EXPECT_EQ(gate.timesEnded(), 1);
}

TEST(CallGateTest, EndsOnceHoweverOftenItIsClosedAndCalled) {
    Gate gate;
    gate.close();
    EXPECT_FALSE(isOpen(gate));
    gate.close();
    EXPECT_FALSE(isOpen(gate));
    EXPECT_EQ(gate.timesEnded(), 1);
}

TEST(CallGateTest, CloseWaitsForEveryCallInside) {
    Gate gate;
    Visitor first(gate);
    Visitor second(gate);
    const std::future<void> closing = closeElsewhere(gate);
    awaitClosing(gate);
    EXPECT_TRUE(isBlocked(closing));
    first.leave();
    EXPECT_TRUE(isBlocked(closing));
    EXPECT_EQ(gate.timesEnded(), 0);
    second.leave();
    closing.wait();
    EXPECT_EQ(gate.timesEnded(), 1);
}

TEST(CallGateTest, EveryCloserWaits) {
    Gate gate;
    Visitor visitor(gate);
    const std::future<void> first = closeElsewhere(gate);
    const std::future<void> second = closeElsewhere(gate);
    awaitClosing(gate);
    EXPECT_TRUE(isBlocked(first));
    EXPECT_TRUE(isBlocked(second));
    visitor.leave();
    first.wait();
    second.wait();
}

TEST(CallGateTest, EveryCloserWaitsForTheEnding) {
    std::latch ending(1);
    std::latch mayEnd(1);
    Gate gate([&] {
        ending.count_down();
        mayEnd.wait();
    });
    const std::future<void> first = closeElsewhere(gate);
    ending.wait();
    const std::future<void> second = closeElsewhere(gate);
    EXPECT_TRUE(isBlocked(second));
    mayEnd.count_down();
    first.wait();
    second.wait();
}

TEST(CallGateTest, CloseDoesNotWaitForTheCallsOfItsOwnThread) {
    Gate gate;
    {
        const CallGate::Call outer(gate);
        {
            const CallGate::Call inner(gate);
            gate.close();
            EXPECT_FALSE(isOpen(gate));
            EXPECT_EQ(gate.timesEnded(), 0);
        }
        EXPECT_EQ(gate.timesEnded(), 0);
        gate.close();
    }
    EXPECT_EQ(gate.timesEnded(), 1);
}

TEST(CallGateTest, CloseInsideOfACallStillWaitsForOthers) {
    Gate gate;
    Visitor other(gate);
    std::future<void> closing = std::async(std::launch::async, [&] {
        const CallGate::Call own(gate);
        gate.close();
    });
    awaitClosing(gate);
    EXPECT_TRUE(isBlocked(closing));
    other.leave();
    closing.wait();
    EXPECT_EQ(gate.timesEnded(), 1);
}

TEST(CallGateTest, ACallOfAnotherGateIsNotExcused) {
    Gate gate;
    Gate unrelated;
    Visitor visitor(gate);
    const std::future<void> closing = std::async(std::launch::async, [&] {
        const CallGate::Call call(unrelated);
        gate.close();
    });
    awaitClosing(gate);
    EXPECT_TRUE(isBlocked(closing));
    visitor.leave();
}

TEST(CallGateTest, TwoCallsInsideBothClose) {
    Gate gate;
    std::barrier bothInside(2);
    const auto closeFromInside = [&] {
        const CallGate::Call call(gate);
        bothInside.arrive_and_wait();
        gate.close();
    };
    std::thread first(closeFromInside);
    std::thread second(closeFromInside);
    first.join();
    second.join();
    EXPECT_EQ(gate.timesEnded(), 1);
}

/// Each of some threads is inside of its gate and closes the next one's.
template <std::size_t size>
void closeInARing() {
    std::array<Gate, size> gates;
    std::barrier allInside(size);
    std::vector<std::thread> threads;
    for (std::size_t index = 0; index < size; ++index) {
        threads.emplace_back([&, index] {
            const CallGate::Call call(gates[index]);
            allInside.arrive_and_wait();
            gates[(index + 1) % size].close();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const Gate& gate : gates) {
        EXPECT_EQ(gate.timesEnded(), 1);
    }
}

TEST(CallGateTest, TwoServicesCloseEachOther) {
    closeInARing<2>();
}

TEST(CallGateTest, ThreeServicesCloseEachOtherInARing) {
    closeInARing<3>();
}

TEST(CallGateTest, AThreadOutsideOfTheRingWaitsForAllOfIt) {
    Gate first;
    Gate second;
    std::latch mayLeave(1);
    std::barrier bothInside(2);
    const auto closeFromInside = [&](Gate& own, Gate& other) {
        const CallGate::Call call(own);
        bothInside.arrive_and_wait();
        other.close();
        mayLeave.wait();
    };
    std::thread firstThread(closeFromInside, std::ref(first), std::ref(second));
    std::thread secondThread(closeFromInside, std::ref(second), std::ref(first));
    awaitClosing(first);
    const std::future<void> outside = closeElsewhere(first);
    EXPECT_TRUE(isBlocked(outside));
    mayLeave.count_down();
    firstThread.join();
    secondThread.join();
    outside.wait();
    EXPECT_EQ(first.timesEnded(), 1);
}

TEST(CallGateTest, AnEndingThatClosesAnotherGateCountsAsACallForItsClosers) {
    // A call inside of `second` closes `first`, whose ending closes `second` on another thread.
    Gate second;
    std::latch ending(1);
    Gate first([&] {
        ending.count_down();
        second.close();
    });
    std::latch inside(1);
    std::thread caller([&] {
        const CallGate::Call call(second);
        inside.count_down();
        ending.wait();
        first.close();
    });
    inside.wait();
    std::thread closer([&] { first.close(); });
    closer.join();
    caller.join();
    EXPECT_EQ(first.timesEnded(), 1);
    EXPECT_EQ(second.timesEnded(), 1);
}

TEST(CallGateTest, NothingRunsInsideAfterCloseReturned) {
    constexpr int rounds = 20;
    constexpr int callers = 8;
    for (int round = 0; round < rounds; ++round) {
        // Not atomic: a call that runs on when close has returned is a data race with the writer.
        bool alive = true;
        bool sawItDead = false;
        Gate gate;
        std::latch ready(callers);
        std::vector<std::thread> threads;
        for (int caller = 0; caller < callers; ++caller) {
            threads.emplace_back([&] {
                ready.count_down();
                for (;;) {
                    const CallGate::Call call(gate);
                    if (!call) {
                        return;
                    }
                    if (!alive) {
                        sawItDead = true;
                    }
                    std::this_thread::yield();
                }
            });
        }
        ready.wait();
        gate.close();
        alive = false;
        EXPECT_EQ(gate.timesEnded(), 1);
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_FALSE(sawItDead);
    }
}

TEST(CallGateTest, RefusedCallersDoNotKeepTheCloserWaiting) {
    constexpr int callers = 8;
    Gate gate;
    std::atomic<bool> finished{false};
    std::vector<std::thread> threads;
    Visitor visitor(gate);
    for (int caller = 0; caller < callers; ++caller) {
        threads.emplace_back([&] {
            while (!finished) {
                isOpen(gate);
            }
        });
    }
    const std::future<void> closing = closeElsewhere(gate);
    awaitClosing(gate);
    visitor.leave();
    closing.wait();
    finished = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(gate.timesEnded(), 1);
}

} // namespace
} // namespace agent::orvi::core::detail
