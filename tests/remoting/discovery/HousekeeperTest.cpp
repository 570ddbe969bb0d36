#include "discovery/Housekeeper.hpp"

#include "remoting/discovery/DescriptorGuard.hpp"
#include "remoting/discovery/Waiting.hpp"

#include <boost/asio/post.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

namespace agent::orvi::remoting::details {
namespace {

using test::EventLog;
using testing::Each;
using testing::ElementsAre;

class HousekeeperTest : public testing::Test {
protected:
    void post(std::function<void()> task) {
        boost::asio::post(housekeeper->context(), std::move(task));
    }

    test::DescriptorGuard guard;
    std::optional<Housekeeper> housekeeper{std::in_place};
};

TEST_F(HousekeeperTest, RunsHandlersOnOneThreadOfItsOwn) {
    EventLog<std::thread::id> threads;
    for (int i = 0; i < 3; ++i) {
        post([&] { threads.add(std::this_thread::get_id()); });
    }
    const auto seen = threads.waitFor(3);
    ASSERT_EQ(seen.size(), 3U);
    EXPECT_NE(seen.front(), std::this_thread::get_id());
    EXPECT_THAT(seen, Each(seen.front()));
}

TEST_F(HousekeeperTest, GoesOnAfterAHandlerHasThrown) {
    EventLog<int> events;
    post([] { throw std::runtime_error("the handler's own"); });
    post([] { throw 5; });
    post([&] { events.add(1); });
    EXPECT_THAT(events.waitFor(1), ElementsAre(1));
}

TEST_F(HousekeeperTest, WaitsForATaskAndForWhatWasPostedBefore) {
    EventLog<int> events;
    post([&] { events.add(1); });
    housekeeper->runAndWait([&] { events.add(2); });
    EXPECT_THAT(events.all(), ElementsAre(1, 2));
}

TEST_F(HousekeeperTest, RunsATaskAtOnceOnItsOwnThread) {
    EventLog<int> events;
    housekeeper->runAndWait([&] {
        post([&] { events.add(2); });
        housekeeper->runAndWait([&] { events.add(1); });
    });
    EXPECT_THAT(events.waitFor(2), ElementsAre(1, 2));
}

TEST_F(HousekeeperTest, RunsATaskHereOnceTheThreadHasEnded) {
    housekeeper->stop();
    std::thread::id thread;
    housekeeper->runAndWait([&] { thread = std::this_thread::get_id(); });
    EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST_F(HousekeeperTest, RunsEachTaskOnceWhenItStopsMeanwhile) {
    for (int round = 0; round < 200; ++round) {
        housekeeper.emplace();
        EventLog<int> events;
        std::thread other([&] {
            for (int i = 0; i < 10; ++i) {
                housekeeper->runAndWait([&] { events.add(i); });
            }
        });
        housekeeper->stop();
        other.join();
        ASSERT_THAT(events.all(), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9));
    }
}

TEST_F(HousekeeperTest, RunsNoHandlersAfterItHasStopped) {
    EventLog<int> events;
    housekeeper->stop();
    post([&] { events.add(1); });
    housekeeper.reset();
    EXPECT_THAT(events.all(), ElementsAre());
}

TEST_F(HousekeeperTest, CanBeStoppedAgainAndByManyAtOnce) {
    std::thread other([&] { housekeeper->stop(); });
    post([&] { housekeeper->stop(); });
    housekeeper->stop();
    other.join();
    housekeeper->stop();
    EXPECT_TRUE(housekeeper->context().stopped());
}

TEST_F(HousekeeperTest, CanBeDestroyedOnItsOwnThread) {
    EventLog<std::string> events;
    auto shared = std::make_shared<Housekeeper>();
    boost::asio::io_context& context = shared->context();
    boost::asio::post(context, [&events, last = shared]() mutable {
        events.waitForEvent("the last one");
        last.reset();
        events.add("destroyed");
    });
    boost::asio::post(context, [&events] { events.add("not to be run"); });
    shared.reset();
    events.add("the last one");
    EXPECT_THAT(events.waitFor(2), ElementsAre("the last one", "destroyed"));
}

TEST_F(HousekeeperTest, LeavesSignalsToTheHostButForItsOwnFaults) {
    sigset_t blocked{};
    housekeeper->runAndWait([&] { pthread_sigmask(SIG_BLOCK, nullptr, &blocked); });
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGPIPE, SIGUSR1, SIGCHLD, SIGALRM}) {
        EXPECT_EQ(sigismember(&blocked, signal), 1) << signal;
    }
    for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) {
        EXPECT_EQ(sigismember(&blocked, signal), 0) << signal;
    }
    sigset_t own{};
    pthread_sigmask(SIG_BLOCK, nullptr, &own);
    EXPECT_EQ(sigismember(&own, SIGTERM), 0);
}

} // namespace
} // namespace agent::orvi::remoting::details
