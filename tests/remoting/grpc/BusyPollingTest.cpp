#include "grpc/BusyPolling.hpp"

#include <gtest/gtest.h>

#include <sched.h>

#include <chrono>
#include <thread>

namespace agent::orvi::remoting::details {
namespace {

using namespace std::chrono_literals;

constexpr BusyPolling::Duration longest = 100us;

void wait(BusyPolling& polling, int times, BusyPolling::Duration time) {
    for (int count = 0; count < times; ++count) {
        polling.waited(time);
    }
}

TEST(BusyPolling, BeginsOnlyWhenAnEventHasComeSoon) {
    BusyPolling polling(longest);
    EXPECT_EQ(polling.time(), 0ns);
    polling.waited(50us);
    EXPECT_EQ(polling.time(), longest);
}

TEST(BusyPolling, TakesIntoAccountThatASleeperMustBeWoken) {
    BusyPolling polling(longest);
    polling.waited(2 * longest);
    EXPECT_EQ(polling.time(), longest);
}

TEST(BusyPolling, GoesOnAfterASingleLongWait) {
    BusyPolling polling(longest);
    wait(polling, 100, 50us);
    polling.waited(10ms);
    EXPECT_EQ(polling.time(), longest);
}

TEST(BusyPolling, EndsAfterAFewLongWaits) {
    BusyPolling polling(longest);
    wait(polling, 100, 50us);
    wait(polling, 2, 10ms);
    EXPECT_EQ(polling.time(), 0ns);
}

TEST(BusyPolling, DoesNotBeginWhereEventsComeInPairs) {
    BusyPolling polling(longest);
    polling.waited(10ms);
    for (int pair = 0; pair < 100; ++pair) {
        polling.waited(50us);
        polling.waited(10ms);
        EXPECT_EQ(polling.time(), 0ns);
    }
}

TEST(BusyPolling, WastesLittleOnWaitsThatOnlyAlmostPay) {
    BusyPolling polling(longest);
    int wasted = 0;
    constexpr int waits = 1000;
    for (int count = 0; count < waits; ++count) {
        wasted += polling.time() > 0ns ? 1 : 0;
        polling.waited(longest + longest / 2);
    }
    EXPECT_GT(wasted, 0);
    EXPECT_LT(wasted, waits / 8);
}

TEST(BusyPolling, BeginsAgainAfterALongSilence) {
    BusyPolling polling(longest);
    wait(polling, 1000, 1s);
    wait(polling, 20, 50us);
    EXPECT_EQ(polling.time(), longest);
}

TEST(BusyPolling, NeverHappensWithoutATimeForIt) {
    BusyPolling polling(0us);
    wait(polling, 100, 0ns);
    EXPECT_EQ(polling.time(), 0ns);
}

/// Return for how many events, which all come soon, nobody asks.
int pauseOf(BusyPolling& polling) {
    int events = 0;
    while (polling.time() == 0ns) {
        polling.waited(50us);
        ++events;
    }
    return events;
}

TEST(BusyPolling, GoesOnWhileOthersTakeTheProcessorBriefly) {
    BusyPolling polling(longest);
    for (int count = 0; count < 1000; ++count) {
        EXPECT_TRUE(polling.yielded(100us));
        polling.waited(50us);
        EXPECT_EQ(polling.time(), longest);
    }
}

TEST(BusyPolling, PausesWhereOthersTakeTheProcessorForLong) {
    BusyPolling polling(longest);
    wait(polling, 100, 50us);
    EXPECT_FALSE(polling.yielded(1ms));
    EXPECT_EQ(polling.time(), 0ns);
    EXPECT_EQ(pauseOf(polling), 16);
}

TEST(BusyPolling, PausesForLongerEachTimeUntilItIsNotDisturbed) {
    BusyPolling polling(longest);
    wait(polling, 100, 50us);
    for (const int pause : {16, 32, 64, 128, 256, 512, 1024, 1024, 1024}) {
        EXPECT_FALSE(polling.yielded(1ms));
        EXPECT_EQ(pauseOf(polling), pause);
    }
    wait(polling, 10000, 50us);
    EXPECT_FALSE(polling.yielded(1ms));
    EXPECT_EQ(pauseOf(polling), 16);
}

TEST(BusyPolling, StaysAsleepAfterAPauseWhereEventsComeLate) {
    BusyPolling polling(longest);
    wait(polling, 100, 50us);
    EXPECT_FALSE(polling.yielded(1ms));
    wait(polling, 100, 10ms);
    EXPECT_EQ(polling.time(), 0ns);
    wait(polling, 17, 50us);
    EXPECT_EQ(polling.time(), longest);
}

TEST(BusyPolling, IsNotAllowedOnASingleProcessor) {
    std::thread([] {
        cpu_set_t all;
        ASSERT_EQ(sched_getaffinity(0, sizeof(all), &all), 0);
        EXPECT_EQ(allowedPolling(longest), CPU_COUNT(&all) > 1 ? longest : 0ns);
        int first = 0;
        while (!CPU_ISSET(first, &all)) {
            ++first;
        }
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(first, &one);
        ASSERT_EQ(sched_setaffinity(0, sizeof(one), &one), 0);
        EXPECT_EQ(allowedPolling(longest), 0ns);
    }).join();
}

} // namespace
} // namespace agent::orvi::remoting::details
