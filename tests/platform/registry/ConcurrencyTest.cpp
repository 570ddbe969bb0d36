#include "RegistryFixture.hpp"

#include <cppmicroservices/ServiceListenerHook.h>
#include <cppmicroservices/ServiceTracker.h>

#include <atomic>
#include <functional>
#include <latch>
#include <mutex>
#include <set>
#include <thread>

namespace registry_test {
namespace {

/// Runs all actions at once, each on its own thread.
void runTogether(std::vector<std::function<void()>> const& actions) {
    std::latch start(static_cast<std::ptrdiff_t>(actions.size()));
    std::vector<std::thread> threads;
    for (auto const& action : actions) {
        threads.emplace_back([&start, &action] {
            start.arrive_and_wait();
            action();
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

constexpr int rounds = 200;

class ConcurrencyTest : public RegistryTest {};

TEST_F(ConcurrencyTest, EveryRegistrationAndRemovalIsSeenOnce) {
    std::atomic<int> registered{0};
    std::atomic<int> unregistering{0};
    context.AddServiceListener([&](ServiceEvent const& event) {
        (event.GetType() == ServiceEvent::SERVICE_REGISTERED ? registered : unregistering)++;
    });
    auto const work = [&] {
        for (int i = 0; i < rounds; ++i) {
            auto registration = context.RegisterService<Codec>(codec(i), {{"service.ranking", i}});
            context.GetServiceReference<Codec>();
            registration.Unregister();
        }
    };
    runTogether({work, work, work, work});
    EXPECT_EQ(registered, 4 * rounds);
    EXPECT_EQ(unregistering, 4 * rounds);
    EXPECT_FALSE(context.GetServiceReference<Codec>());
}

TEST_F(ConcurrencyTest, ServiceIdsAreUnique) {
    std::mutex mutex;
    std::set<long> ids;
    auto const work = [&] {
        for (int i = 0; i < rounds; ++i) {
            auto const id = idOf(registerCodec().GetReference());
            std::lock_guard const lock(mutex);
            ids.insert(id);
        }
    };
    runTogether({work, work, work});
    EXPECT_EQ(ids.size(), 3U * rounds);
    EXPECT_EQ(context.GetServiceReferences<Codec>().size(), 3U * rounds);
}

TEST_F(ConcurrencyTest, FoundServicesAreWholeOrGone) {
    std::atomic<bool> done{false};
    auto const churn = [&] {
        for (int i = 0; i < rounds; ++i) {
            auto registration = context.RegisterService<Codec>(codec(7), {{"a", 1}});
            registration.SetProperties({{"a", i}, {"service.ranking", i % 3}});
            registration.Unregister();
        }
        done = true;
    };
    auto const look = [&] {
        while (!done) {
            for (auto const& reference : context.GetServiceReferences<Codec>("(a=*)")) {
                try {
                    auto const service = context.GetService(reference);
                    EXPECT_TRUE(!service || service->number() == 7);
                } catch (std::invalid_argument const&) {
                    // Unregistered between look-up and use.
                }
                EXPECT_FALSE(reference.GetProperty("a").Empty());
            }
        }
    };
    runTogether({churn, look, look});
}

TEST_F(ConcurrencyTest, OneOfTwoUnregistrationsWins) {
    for (int i = 0; i < rounds; ++i) {
        std::atomic<int> events{0};
        auto token = context.AddServiceListener([&](ServiceEvent const& event) {
            events += event.GetType() == ServiceEvent::SERVICE_UNREGISTERING;
        });
        auto registration = registerCodec();
        auto const unregister = [registration]() mutable {
            try {
                registration.Unregister();
            } catch (std::logic_error const& e) {
                EXPECT_STREQ(e.what(), "Service is unregistered");
            }
        };
        runTogether({unregister, unregister});
        EXPECT_EQ(events, 1);
        context.RemoveListener(std::move(token));
    }
}

TEST_F(ConcurrencyTest, ConcurrentRankingsKeepTheIndexInOrder) {
    auto registration = registerCodec();
    auto const other = registerCodec({{"service.ranking", 50}});
    auto const work = [registration]() mutable {
        for (int i = 0; i < rounds; ++i) {
            registration.SetProperties({{"service.ranking", i % 100}});
        }
    };
    runTogether({work, work});
    registration.SetProperties({{"service.ranking", 51}});
    EXPECT_TRUE(context.GetServiceReference<Codec>() == registration.GetReference());
    registration.SetProperties({{"service.ranking", 49}});
    EXPECT_TRUE(context.GetServiceReference<Codec>() == other.GetReference());
}

TEST_F(ConcurrencyTest, ListenersComeAndGoDuringEvents) {
    std::atomic<int> calls{0};
    auto const listen = [&] {
        for (int i = 0; i < rounds; ++i) {
            auto token = context.AddServiceListener(
                [&calls](ServiceEvent const&) { ++calls; }, "(objectclass=registry_test::Codec)");
            context.RemoveListener(std::move(token));
        }
    };
    auto const churn = [&] {
        for (int i = 0; i < rounds; ++i) {
            registerCodec().Unregister();
        }
    };
    runTogether({listen, listen, churn, churn});
}

TEST_F(ConcurrencyTest, HooksSeeAsManyListenersComeAsGo) {
    struct CountingHook : ServiceListenerHook {
        void Added(std::vector<ListenerInfo> const& listeners) override { count(listeners, 1); }

        void Removed(std::vector<ListenerInfo> const& listeners) override { count(listeners, -1); }

        void count(std::vector<ListenerInfo> const& listeners, int step) {
            for (auto const& info : listeners) {
                balance += info.GetFilter() == "(x=1)" ? step : 0;
            }
        }

        std::atomic<int> balance{0};
    };

    auto const hook = std::make_shared<CountingHook>();
    auto const registration = context.RegisterService<ServiceListenerHook>(hook);
    auto const work = [&] {
        for (int i = 0; i < rounds; ++i) {
            context.RemoveListener(context.AddServiceListener([](ServiceEvent const&) {}, "(x=1)"));
        }
    };
    runTogether({work, work, work});
    EXPECT_EQ(hook->balance, 0);
}

TEST_F(ConcurrencyTest, TrackersAgreeWithTheRegistryInTheEnd) {
    ServiceTracker<Codec> early(context);
    early.Open();
    ServiceTracker<Codec> late(context);
    std::mutex mutex;
    std::vector<ServiceRegistration<Codec>> kept;
    auto const churn = [&] {
        for (int i = 0; i < rounds; ++i) {
            auto registration = registerCodec();
            if (i % 10 == 0) {
                std::lock_guard const lock(mutex);
                kept.push_back(registration);
            } else {
                registration.SetProperties({{"service.ranking", i}});
                registration.Unregister();
            }
        }
    };
    runTogether({churn, churn, churn, [&] { late.Open(); }});
    EXPECT_EQ(early.Size(), static_cast<int>(kept.size()));
    EXPECT_EQ(late.Size(), static_cast<int>(kept.size()));
    EXPECT_TRUE(early.GetServiceReference() == late.GetServiceReference());
}

TEST_F(ConcurrencyTest, WaitersWakeHoweverTheServiceArrives) {
    for (int i = 0; i < 50; ++i) {
        ServiceTracker<Codec> tracker(context);
        tracker.Open();
        ServiceRegistration<Codec> registration;
        auto const wait = [&] { EXPECT_TRUE(tracker.WaitForService()); };
        runTogether({wait, wait, [&] { registration = registerCodec(); }});
        registration.Unregister();
    }
}

TEST_F(ConcurrencyTest, TrackerClosesWhileServicesChange) {
    for (int i = 0; i < 50; ++i) {
        auto tracker = std::make_unique<ServiceTracker<Codec>>(context);
        tracker->Open();
        runTogether({
            [&] { tracker.reset(); },
            [&] { registerCodec().Unregister(); },
            [&] { registerCodec().Unregister(); },
        });
    }
}

TEST_F(ConcurrencyTest, ReferenceCanBeAssignedWhileItIsRead) {
    auto const first = registerCodec({{"a", 1}});
    auto const second = registerCodec({{"a", 1}});
    ServiceReference<Codec> shared = first.GetReference();
    auto const write = [&] {
        for (int i = 0; i < rounds; ++i) {
            shared = (i % 2 == 0 ? second : first).GetReference();
        }
    };
    auto const read = [&] {
        for (int i = 0; i < rounds; ++i) {
            EXPECT_TRUE(shared);
            EXPECT_TRUE(shared.GetProperty("a") == 1);
        }
    };
    runTogether({write, read, read});
}

TEST_F(ConcurrencyTest, FrameworkStopsWhileItIsUsed) {
    for (int i = 0; i < 10; ++i) {
        auto local = FrameworkFactory().NewFramework();
        local.Start();
        auto const use = [bundleContext = local.GetBundleContext()]() mutable {
            try {
                for (;;) {
                    ServiceTracker<Codec> tracker(bundleContext);
                    tracker.Open();
                    auto registration = bundleContext.RegisterService<Codec>(codec());
                    bundleContext.GetServiceReferences("", "(objectclass=*)");
                    registration.Unregister();
                }
            } catch (IllegalStateException const&) {
                // The framework has stopped.
            } catch (std::runtime_error const&) {
                // The same, noticed on the way.
            } catch (std::invalid_argument const&) {
                // The same, noticed by the tracker.
            }
        };
        runTogether({use, use, [&] { local.Stop(); }});
        EXPECT_EQ(
            local.WaitForStop(std::chrono::milliseconds::zero()).GetType(),
            FrameworkEvent::FRAMEWORK_STOPPED);
    }
}

} // namespace
} // namespace registry_test
