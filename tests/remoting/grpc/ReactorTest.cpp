#include "grpc/Reactor.hpp"

#include <gtest/gtest.h>

#include <grpcpp/alarm.h>
#include <grpcpp/completion_queue.h>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::details {
namespace {

using namespace std::chrono_literals;

/// Much longer than anything takes here that is not stuck.
constexpr std::chrono::seconds patience{20};

/// An event that happens when it is asked for.
class Event final : public Operation {
public:
    Event(Reactor& reactor, std::function<void()> action)
        : reactor(reactor)
        , action(std::move(action)) {}

    void happen() { alarm.Set(&reactor.queue(), gpr_now(GPR_CLOCK_MONOTONIC), tag()); }

    void completed(bool) override { action(); }

private:
    Reactor& reactor;
    std::function<void()> action;
    grpc::Alarm alarm;
};

class ReactorTest : public testing::Test {
protected:
    ~ReactorTest() override {
        gate.set_value();
        reactor->stop(std::chrono::steady_clock::now() + patience);
    }

    /// Have tasks that wait until the end of the test, all of them at once.
    void block(std::size_t count) {
        std::vector<std::promise<void>> begun(count);
        for (auto& each : begun) {
            reactor->post([&each, open = opening] {
                each.set_value();
                open.wait();
            });
        }
        for (auto& each : begun) {
            ASSERT_EQ(each.get_future().wait_for(patience), std::future_status::ready);
        }
    }

    /// Have an event handled, so that there is a thread that looks after the queue.
    void handleAnEvent() {
        std::promise<void> handled;
        Event event(*reactor, [&] { handled.set_value(); });
        event.happen();
        ASSERT_EQ(handled.get_future().wait_for(patience), std::future_status::ready);
    }

    /// Say whether a task is run, given the way in which tasks are posted.
    bool runs(void (Reactor::*post)(Executor::Task)) {
        const auto done = std::make_shared<std::promise<void>>();
        ((*reactor).*post)([done] { done->set_value(); });
        return done->get_future().wait_for(patience) == std::future_status::ready;
    }

    static constexpr std::size_t tasks = 3;

    std::promise<void> gate;
    std::shared_future<void> opening = gate.get_future().share();
    const std::shared_ptr<Reactor> reactor =
        Reactor::start(std::make_unique<grpc::CompletionQueue>(), tasks, 100us);
};

TEST_F(ReactorTest, RunsWhatIsPostedWhileItsOnlyFreeThreadWaitsForEvents) {
    block(1);
    handleAnEvent();
    EXPECT_TRUE(runs(&Reactor::post));
}

TEST_F(ReactorTest, RunsWhatIsPostedWhenTheOnlyThreadThereIsWaitsForEvents) {
    handleAnEvent();
    EXPECT_TRUE(runs(&Reactor::post));
}

TEST_F(ReactorTest, RunsBriefTasksWhileAsManyWaitAsMay) {
    block(tasks);
    EXPECT_TRUE(runs(&Reactor::postBrief));
    handleAnEvent();
    EXPECT_TRUE(runs(&Reactor::postBrief));
}

TEST_F(ReactorTest, HandlesEventsWhileAsManyTasksWaitAsMay) {
    block(tasks);
    for (int count = 0; count < 100; ++count) {
        handleAnEvent();
    }
}

TEST_F(ReactorTest, RunsWhatAnEventPosts) {
    std::promise<void> ran;
    Event event(*reactor, [&] { reactor->post([&] { ran.set_value(); }); });
    event.happen();
    EXPECT_EQ(ran.get_future().wait_for(patience), std::future_status::ready);
}

TEST_F(ReactorTest, LetsACallerHandleTheEventItWaitsFor) {
    for (int count = 0; count < 100; ++count) {
        Wait waiting;
        Event event(*reactor, [&] { reactor->finish(waiting); });
        event.happen();
        ASSERT_TRUE(reactor->wait(waiting, std::chrono::system_clock::now() + patience));
    }
}

TEST_F(ReactorTest, EndsAWaitFromAnotherThread) {
    Wait waiting;
    const auto end = std::async(std::launch::async, [&] { reactor->finish(waiting); });
    EXPECT_TRUE(reactor->wait(waiting, std::chrono::system_clock::now() + patience));
}

TEST_F(ReactorTest, GivesUpAWaitAtItsTimeLimit) {
    Wait waiting;
    EXPECT_FALSE(reactor->wait(waiting, std::chrono::system_clock::now() + 20ms));
}

TEST_F(ReactorTest, GoesOnAfterAnEventThatThrows) {
    std::promise<void> handled;
    Event event(*reactor, [&] {
        handled.set_value();
        throw 42;
    });
    event.happen();
    ASSERT_EQ(handled.get_future().wait_for(patience), std::future_status::ready);
    handleAnEvent();
}

TEST_F(ReactorTest, LetsThoseGoOnWhoHaveEnteredUntilTheyLeave) {
    reactor->enter();
    reactor->stop(std::chrono::steady_clock::now() + 20ms);
    handleAnEvent();
    handleAnEvent();
    reactor->leave();
}

} // namespace
} // namespace agent::orvi::remoting::details
