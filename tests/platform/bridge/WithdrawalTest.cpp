#include "platform/bridge/BridgeFixture.hpp"

#include <cppmicroservices/ServiceEvent.h>

#include <atomic>
#include <barrier>
#include <latch>
#include <stdexcept>
#include <thread>

namespace agent::orvi::core::test {
namespace {

using cppmicroservices::ServiceEvent;

bool isRefused(Invokable& service) {
    try {
        std::rethrow_exception(call(service, "none").error);
    } catch (const ServiceUnavailable&) {
        return true;
    } catch (const UnknownMethod&) {
        return false;
    }
}

void awaitRefusal(Invokable& service) {
    while (!isRefused(service)) {
        std::this_thread::yield();
    }
}

/// A method that stays inside until it is told to return.
struct BlockingMethod {
    std::function<void()> body() {
        return [this] {
            inside.count_down();
            mayReturn.wait();
            returned = true;
        };
    }

    std::latch inside{1};
    std::latch mayReturn{1};
    bool returned = false; // not atomic: who waits for the call reads it without a race
};

/// A service of a provider and a configuration of its own, as a published stream has them.
struct PublishedService {
    cppmicroservices::ServiceRegistration<ServiceProvider> provider;
    std::unique_ptr<frameworksetup::ConfigurationEntry> configuration;
    std::shared_ptr<Invokable> service;

    /// End it as the destructor of its owner does.
    void end() {
        try {
            provider.Unregister();
        } catch (const std::logic_error&) {
            // The framework has stopped.
        }
        configuration.reset();
    }
};

class WithdrawalTest : public BridgeFixture {
protected:
    PublishedService publish(const std::string& name, std::function<void()> body) {
        PublishedService published;
        published.provider = provide({makeInterface(name, std::move(body))});
        published.configuration = configure({name});
        published.service = find(name).back();
        return published;
    }

    std::future<void> runElsewhere(const std::shared_ptr<Invokable>& service) {
        return std::async(std::launch::async, [service] { EXPECT_TRUE(runs(*service)); });
    }
};

enum class Way { unregister, reset, stop };

/// Each way in which a service ends.
class EachWithdrawalTest : public WithdrawalTest, public testing::WithParamInterface<Way> {
protected:
    void end(PublishedService& published) {
        switch (GetParam()) {
        case Way::unregister:
            published.provider.Unregister();
            break;
        case Way::reset:
            published.configuration.reset();
            break;
        case Way::stop:
            stopFramework();
        }
    }
};

std::string nameOf(const testing::TestParamInfo<Way>& way) {
    switch (way.param) {
    case Way::unregister:
        return "ProviderUnregisters";
    case Way::reset:
        return "ConfigurationResets";
    default:
        return "FrameworkStops";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Ways, EachWithdrawalTest, testing::Values(Way::unregister, Way::reset, Way::stop), nameOf);

TEST_P(EachWithdrawalTest, WaitsForTheCallInFlight) {
    BlockingMethod method;
    PublishedService published = publish("service", method.body());
    const std::future<void> running = runElsewhere(published.service);
    method.inside.wait();
    const std::future<void> ending = std::async(std::launch::async, [&] {
        end(published);
        EXPECT_TRUE(method.returned);
    });
    awaitRefusal(*published.service);
    EXPECT_TRUE(isBlocked(ending));
    method.mayReturn.count_down();
    ending.wait();
    running.wait();
}

TEST_P(EachWithdrawalTest, NoCallRunsAfterwardsHoweverManyCallersThereAre) {
    constexpr int callers = 8;
    // Not atomic: a call that runs on after the end is a data race with the writer.
    bool alive = true;
    std::atomic<bool> ranDead{false};
    PublishedService published = publish("service", [&] {
        if (!alive) {
            ranDead = true;
        }
    });
    std::latch ready(callers);
    std::vector<std::thread> threads;
    for (int caller = 0; caller < callers; ++caller) {
        threads.emplace_back([&] {
            EXPECT_TRUE(runs(*published.service));
            ready.count_down();
            while (runs(*published.service)) {
                std::this_thread::yield();
            }
        });
    }
    ready.wait();
    end(published);
    alive = false;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(ranDead);
}

TEST_P(EachWithdrawalTest, ReleasesWhatTheMethodsHoldThoughClientsKeepTheService) {
    auto resource = std::make_shared<int>();
    const std::weak_ptr<int> alive = resource;
    PublishedService published = publish("service", [resource = std::move(resource)] {});
    const ServiceInterface description = published.service->serviceInterface();
    EXPECT_FALSE(alive.expired());
    end(published);
    if (GetParam() == Way::reset) {
        EXPECT_FALSE(alive.expired()); // the provider may be configured again
        published.provider.Unregister();
    }
    if (GetParam() == Way::stop) {
        published.provider = nullptr; // which holds the provider
    }
    EXPECT_TRUE(alive.expired());
    EXPECT_FALSE(runs(*published.service));
}

TEST_P(EachWithdrawalTest, EndsWhileNobodyIsThere) {
    PublishedService published = publish("service", [] {});
    end(published);
    EXPECT_FALSE(runs(*published.service));
    published.end();
}

TEST_F(WithdrawalTest, AMethodMayEndItsOwnService) {
    auto resource = std::make_shared<int>();
    std::weak_ptr<int> alive = resource;
    PublishedService published;
    published = publish("service", [&, resource = std::move(resource)] {
        published.end();
        EXPECT_FALSE(alive.expired());
        EXPECT_FALSE(runs(*published.service));
    });
    EXPECT_TRUE(runs(*published.service));
    EXPECT_TRUE(alive.expired());
    EXPECT_FALSE(isReachable("service"));
}

TEST_F(WithdrawalTest, AMethodMayEndItsOwnServiceSeveralCallsDeep) {
    PublishedService published;
    int depth = 0;
    published = publish("service", [&] {
        if (++depth < 3) {
            EXPECT_TRUE(runs(*published.service));
        } else {
            published.end();
        }
    });
    EXPECT_TRUE(runs(*published.service));
    EXPECT_EQ(depth, 3);
    EXPECT_FALSE(runs(*published.service));
}

TEST_F(WithdrawalTest, AProviderLivesUntilItsMethodThatUnregisteredItReturns) {
    class SelfContained : public ServiceProvider {
    public:
        std::vector<ServiceInterface> getServiceInterfaces() override {
            return {makeInterface("service", [this] {
                unregister();
                ++member; // of a live object
            })};
        }

        std::function<void()> unregister;
        int member = 0;
    };

    auto provider = std::make_shared<SelfContained>();
    const std::weak_ptr<SelfContained> alive = provider;
    auto registration = provide(provider);
    provider->unregister = [&] {
        registration.Unregister();
        EXPECT_FALSE(alive.expired());
    };
    provider.reset();
    const auto configuration = configure({"service"});
    EXPECT_TRUE(runs(*find("service").front()));
    EXPECT_TRUE(alive.expired());
}

TEST_F(WithdrawalTest, AnEndFromInsideStillWaitsForOtherCalls) {
    BlockingMethod other;
    std::atomic<int> calls{0};
    PublishedService published;
    published = publish("service", [&] {
        if (calls++ == 0) {
            other.body()();
        } else {
            published.end();
            EXPECT_TRUE(other.returned);
        }
    });
    const std::future<void> running = runElsewhere(published.service);
    other.inside.wait();
    const std::future<void> ending = runElsewhere(published.service);
    awaitRefusal(*published.service);
    EXPECT_TRUE(isBlocked(ending));
    other.mayReturn.count_down();
    running.wait();
    ending.wait();
}

TEST_F(WithdrawalTest, TwoServicesMayEndEachOther) {
    std::barrier bothInside(2);
    PublishedService first;
    PublishedService second;
    first = publish("first", [&] {
        bothInside.arrive_and_wait();
        second.end();
    });
    second = publish("second", [&] {
        bothInside.arrive_and_wait();
        first.end();
    });
    const std::future<void> inFirst = runElsewhere(first.service);
    const std::future<void> inSecond = runElsewhere(second.service);
    inFirst.wait();
    inSecond.wait();
    EXPECT_FALSE(isReachable("first"));
    EXPECT_FALSE(isReachable("second"));
}

TEST_F(WithdrawalTest, TwoCallsOfOneServiceMayBothEndIt) {
    std::barrier bothInside(2);
    std::atomic<int> calls{0};
    PublishedService published;
    published = publish("service", [&] {
        const int number = calls++;
        bothInside.arrive_and_wait();
        if (number == 0) {
            published.provider.Unregister();
        } else {
            published.configuration.reset();
        }
    });
    const std::future<void> one = runElsewhere(published.service);
    const std::future<void> other = runElsewhere(published.service);
    one.wait();
    other.wait();
    EXPECT_FALSE(runs(*published.service));
}

TEST_F(WithdrawalTest, ASecondUnregistrationDoesNotCutTheWaitShort) {
    BlockingMethod method;
    PublishedService published = publish("service", method.body());
    const std::future<void> running = runElsewhere(published.service);
    method.inside.wait();
    const std::future<void> first =
        std::async(std::launch::async, [&] { published.provider.Unregister(); });
    awaitRefusal(*published.service);
    const std::future<void> second = std::async(std::launch::async, [&] {
        published.provider.Unregister(); // returns at once: the first is at it
        published.configuration.reset();
        EXPECT_TRUE(method.returned);
    });
    EXPECT_TRUE(isBlocked(second));
    method.mayReturn.count_down();
    second.wait();
    first.wait();
    running.wait();
}

TEST_F(WithdrawalTest, AResetWaitsForTheCallThatUnregisteredItsOwnProvider) {
    BlockingMethod method;
    PublishedService published;
    published = publish("service", [&] {
        published.provider.Unregister();
        method.body()();
    });
    const std::future<void> running = runElsewhere(published.service);
    method.inside.wait();
    const std::future<void> reset = std::async(std::launch::async, [&] {
        published.configuration.reset();
        EXPECT_TRUE(method.returned);
    });
    EXPECT_TRUE(isBlocked(reset));
    method.mayReturn.count_down();
    reset.wait();
    running.wait();
}

TEST_F(WithdrawalTest, EndingOneOfTwoDoesNotWaitForCallsOfTheOther) {
    BlockingMethod method;
    PublishedService one = publish("service", [] {});
    PublishedService other = publish("service", method.body());
    const std::future<void> running = runElsewhere(other.service);
    method.inside.wait();
    one.end();
    EXPECT_FALSE(runs(*one.service));
    method.mayReturn.count_down();
    running.wait();
    other.end();
}

TEST_F(WithdrawalTest, AStoppedFrameworkLeavesNoCallToTheOwnersOfTwoOfOneName) {
    BlockingMethod method;
    PublishedService one = publish("service", method.body());
    PublishedService other = publish("service", [] {});
    const std::future<void> running = runElsewhere(one.service);
    method.inside.wait();
    framework.Stop();
    awaitRefusal(*one.service);
    const std::future<void> ending = std::async(std::launch::async, [&] {
        one.end(); // the other's configuration names the interface, too
        EXPECT_TRUE(method.returned);
    });
    EXPECT_TRUE(isBlocked(ending));
    method.mayReturn.count_down();
    ending.wait();
    running.wait();
    stopFramework();
    EXPECT_FALSE(runs(*other.service));
    other.end();
}

TEST_F(WithdrawalTest, OwnersMayEndAfterTheFrameworkHasStopped) {
    PublishedService one = publish("service", [] {});
    PublishedService other = publish("service", [] {});
    stopFramework();
    EXPECT_TRUE(bridge->hasStopped());
    EXPECT_FALSE(runs(*one.service));
    EXPECT_FALSE(runs(*other.service));
    one.end();
    other.end();
    configure({"service"}).reset();
}

TEST_F(WithdrawalTest, AMethodMayStopTheFramework) {
    PublishedService published = publish("service", [&] { framework.Stop(); });
    EXPECT_TRUE(runs(*published.service));
    stopFramework();
    EXPECT_FALSE(runs(*published.service));
    published.end();
}

TEST_F(WithdrawalTest, AProviderThatComesWhileTheFrameworkStopsIsNotReachable) {
    ProviderRegistration late;
    bool reachable = true;
    const auto configuration = configure({"service"});
    PublishedService published = publish("service", [] {});
    // Closing the first service, which the framework's stop does, brings the second.
    context().AddServiceListener([&](const ServiceEvent& event) {
        if (event.GetType() == ServiceEvent::SERVICE_UNREGISTERING && !late) {
            late = provide({makeInterface("late")});
            const auto lateConfiguration = configure({"late"});
            reachable = isReachable("late");
        }
    });
    stopFramework();
    ASSERT_TRUE(late);
    EXPECT_FALSE(reachable);
}

TEST_F(WithdrawalTest, WhatTheMethodsHoldMayEndOtherServices) {
    struct Owner {
        ~Owner() { owned.end(); }

        PublishedService owned;
    };

    auto owner = std::make_shared<Owner>();
    owner->owned = publish("owned", [] {});
    const std::shared_ptr<Invokable> owned = owner->owned.service;
    PublishedService published = publish("service", [owner = std::move(owner)] {});
    EXPECT_TRUE(runs(*owned));
    published.end();
    EXPECT_FALSE(runs(*owned));
    EXPECT_FALSE(isReachable("owned"));
}

TEST_F(WithdrawalTest, ServesCallsUntilItsDepartureHasBeenAnnounced) {
    PublishedService published = publish("service", [] {});
    bool served = false;
    context().AddServiceListener(
        [&](const ServiceEvent& event) {
            if (event.GetType() == ServiceEvent::SERVICE_UNREGISTERING) {
                served = runs(*published.service);
            }
        },
        "(orvi.servicename=service)");
    published.end();
    EXPECT_TRUE(served);
}

TEST_F(WithdrawalTest, ComesAndGoesOnManyThreadsAtOnce) {
    constexpr int rounds = 50;
    std::atomic<bool> finished{false};
    std::vector<std::thread> threads;
    threads.emplace_back([&] {
        for (int round = 0; round < rounds; ++round) {
            bool alive = true;
            auto provider = provide({makeInterface("service", [&] { EXPECT_TRUE(alive); })});
            std::this_thread::yield();
            provider.Unregister();
            alive = false;
        }
        finished = true;
    });
    for (int configurer = 0; configurer < 2; ++configurer) {
        threads.emplace_back([&] {
            while (!finished) {
                configure({"service"}).reset();
            }
        });
    }
    for (int caller = 0; caller < 2; ++caller) {
        threads.emplace_back([&] {
            while (!finished) {
                for (const auto& service : find("service")) {
                    runs(*service);
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(isReachable("service"));
}

} // namespace
} // namespace agent::orvi::core::test
