#include "imports/RegistryListeners.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cppmicroservices/Bundle.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <cppmicroservices/ServiceEvent.h>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <unordered_set>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::details::test {
namespace {

using cppmicroservices::BundleContext;
using cppmicroservices::ListenerToken;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

/// A framework of its own, which stops in the end.
class StartedFramework {
public:
    StartedFramework() { framework.Start(); }

    ~StartedFramework() {
        framework.Stop();
        framework.WaitForStop(std::chrono::milliseconds::zero());
    }

    StartedFramework(const StartedFramework&) = delete;
    StartedFramework& operator=(const StartedFramework&) = delete;

    BundleContext context() { return framework.GetBundleContext(); }

private:
    cppmicroservices::Framework framework = cppmicroservices::FrameworkFactory().NewFramework();
};

/// A follower that keeps the filters of the listeners that are there.
class Filters : public cppmicroservices::ServiceListenerHook {
public:
    void Added(const std::vector<ListenerInfo>& listeners) override {
        const std::lock_guard lock(mutex);
        for (const ListenerInfo& listener : listeners) {
            if (!listener.IsRemoved()) {
                known.insert(listener);
            }
        }
    }

    void Removed(const std::vector<ListenerInfo>& listeners) override {
        const std::lock_guard lock(mutex);
        for (const ListenerInfo& listener : listeners) {
            known.erase(listener);
        }
    }

    /// Without those of the registry itself.
    std::vector<std::string> all() {
        const std::lock_guard lock(mutex);
        std::vector<std::string> filters;
        for (const ListenerInfo& listener : known) {
            if (listener.GetFilter().starts_with("(name=")) {
                filters.push_back(listener.GetFilter());
            }
        }
        return filters;
    }

private:
    std::mutex mutex;
    std::unordered_set<ListenerInfo> known;
};

/// A follower during whose first news something else happens.
class Meddling final : public Filters {
public:
    explicit Meddling(std::function<void()> action)
        : action(std::move(action)) {}

    void Added(const std::vector<ListenerInfo>& listeners) override {
        Filters::Added(listeners);
        if (!listeners.empty() && !hasMeddled) {
            hasMeddled = true;
            std::packaged_task<void()> task(action);
            const auto done = task.get_future();
            thread = std::thread(std::move(task));
            done.wait_for(std::chrono::seconds(1)); // a registry may have it wait for our return
        }
    }

    void join() { thread.join(); }

private:
    const std::function<void()> action;
    bool hasMeddled = false;
    std::thread thread;
};

/// A follower that fails.
class Refusing final : public cppmicroservices::ServiceListenerHook {
public:
    void Added(const std::vector<ListenerInfo>& /*listeners*/) override {
        if (refuses) {
            throw std::runtime_error("refused");
        }
    }

    void Removed(const std::vector<ListenerInfo>& /*listeners*/) override {
        throw std::runtime_error("refused");
    }

    bool refuses = false;
};

ListenerToken listen(BundleContext context, const std::string& name) {
    return context.AddServiceListener(
        [](const cppmicroservices::ServiceEvent& /*event*/) {}, "(name=" + name + ")");
}

TEST(RegistryListenersTest, AreToldToThoseWhoFollow) {
    StartedFramework framework;
    auto context = framework.context();
    auto early = listen(context, "early");
    listen(context, "other");
    const auto listeners = RegistryListeners::of(context);
    const auto follower = std::make_shared<Filters>();
    listeners->tell(follower);
    EXPECT_THAT(follower->all(), UnorderedElementsAre("(name=early)", "(name=other)"));
    listen(context, "late");
    EXPECT_THAT(
        follower->all(), UnorderedElementsAre("(name=early)", "(name=other)", "(name=late)"));
    context.RemoveListener(std::move(early));
    EXPECT_THAT(follower->all(), UnorderedElementsAre("(name=other)", "(name=late)"));
}

TEST(RegistryListenersTest, AreNotToldToThoseWhoFollowNoMore) {
    StartedFramework framework;
    auto context = framework.context();
    const auto listeners = RegistryListeners::of(context);
    const auto first = std::make_shared<Filters>();
    const auto second = std::make_shared<Filters>();
    auto ended = std::make_shared<Filters>();
    listeners->tell(first);
    listeners->tell(second);
    listeners->tell(ended);
    ended.reset();
    listeners->tellNoMore(first);
    listen(context, "listener");
    EXPECT_THAT(first->all(), IsEmpty());
    EXPECT_THAT(second->all(), UnorderedElementsAre("(name=listener)"));
}

TEST(RegistryListenersTest, AreTheSameForAllOfAFramework) {
    StartedFramework framework;
    StartedFramework other;
    const auto listeners = RegistryListeners::of(framework.context());
    EXPECT_EQ(RegistryListeners::of(framework.context()), listeners);
    EXPECT_NE(RegistryListeners::of(other.context()), listeners);
}

TEST(RegistryListenersTest, AreToldToTheOthersWhenOneFollowerThrows) {
    StartedFramework framework;
    auto context = framework.context();
    const auto listeners = RegistryListeners::of(context);
    const auto refusing = std::make_shared<Refusing>();
    const auto follower = std::make_shared<Filters>();
    listeners->tell(refusing);
    listeners->tell(follower);
    refusing->refuses = true;
    auto first = listen(context, "first");
    listen(context, "second");
    context.RemoveListener(std::move(first));
    EXPECT_THAT(follower->all(), UnorderedElementsAre("(name=second)"));
    const auto late = std::make_shared<Filters>();
    listeners->tell(late);
    EXPECT_THAT(late->all(), UnorderedElementsAre("(name=second)"));
    EXPECT_THROW(listeners->tell(refusing), std::runtime_error);
}

TEST(RegistryListenersTest, AreNotMissedWhenTheyComeOrGoWhileTheFirstFollowerComes) {
    StartedFramework framework;
    auto context = framework.context();
    listen(context, "staying");
    auto leaving = listen(context, "leaving");
    const auto follower = std::make_shared<Meddling>([&] {
        listen(context, "coming");
        context.RemoveListener(std::move(leaving));
    });
    const auto listeners = std::make_shared<RegistryListeners>();
    listeners->tell(follower);
    RegistryListeners::begin(context, listeners);
    follower->join();
    EXPECT_EQ(RegistryListeners::of(context), listeners);
    EXPECT_THAT(follower->all(), UnorderedElementsAre("(name=staying)", "(name=coming)"));
    const auto late = std::make_shared<Filters>();
    listeners->tell(late);
    EXPECT_THAT(late->all(), UnorderedElementsAre("(name=staying)", "(name=coming)"));
}

} // namespace
} // namespace agent::orvi::remoting::details::test
