#include "RegistryFixture.hpp"

#include <cppmicroservices/Constants.h>
#include <cppmicroservices/LDAPFilter.h>
#include <cppmicroservices/ServiceFactory.h>
#include <cppmicroservices/ServiceListenerHook.h>
#include <cppmicroservices/ServiceTracker.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <latch>
#include <mutex>
#include <thread>
#include <unordered_map>

namespace registry_test {
namespace {

using testing::ElementsAre;

class EmbeddedRegistryTest : public RegistryTest {};

std::string nested(std::size_t depth) {
    std::string text;
    for (std::size_t i = 0; i < depth; ++i) {
        text += "(!";
    }
    return text + "(a=b)" + std::string(depth, ')');
}

TEST(EmbeddedFilterTest, LimitsNesting) {
    EXPECT_TRUE(LDAPFilter(nested(499)));
    EXPECT_EQ(LDAPFilter(nested(499)).ToString(), nested(499));
    try {
        LDAPFilter filter(nested(100000));
        FAIL() << "nothing thrown";
    } catch (std::invalid_argument const& e) {
        EXPECT_THAT(e.what(), testing::StartsWith("Too deeply nested query: "));
    }
}

TEST(EmbeddedFilterTest, ManyWildcardsTakeNoExponentialTime) {
    std::string filter = "(v=";
    for (int i = 0; i < 200; ++i) {
        filter += "*a";
    }
    LDAPFilter const parsed(filter + "*b)");
    EXPECT_FALSE(parsed.Match(AnyMap({{"v", std::string(5000, 'a')}})));
    EXPECT_TRUE(parsed.Match(AnyMap({{"v", std::string(5000, 'a') + "b"}})));
}

TEST(EmbeddedFilterTest, TakesDeleteCharacterLiterally) {
    EXPECT_FALSE(LDAPFilter("(v=\x7f)").Match(AnyMap({{"v", std::string("x")}})));
    EXPECT_TRUE(LDAPFilter("(v=\x7f)").Match(AnyMap({{"v", std::string("\x7f")}})));
}

TEST(EmbeddedFilterTest, ChecksBooleansToTheirEnd) {
    EXPECT_FALSE(LDAPFilter("(v=trueish)").Match(AnyMap({{"v", true}})));
}

TEST(EmbeddedAnyTest, EmptyOnesAreEqual) {
    EXPECT_TRUE(Any() == Any());
    EXPECT_FALSE(Any() == Any(1));
    EXPECT_FALSE(Any(1) == Any());
}

TEST(EmbeddedReferenceTest, InvalidOneHasNoProperties) {
    ServiceReferenceU const reference;
    EXPECT_TRUE(reference.GetProperty("a").Empty());
    EXPECT_TRUE(reference.GetPropertyKeys().empty());
    EXPECT_TRUE(reference.GetUsingBundles().empty());
    EXPECT_THROW(ServiceTracker<void>(BundleContext(), reference), BadAnyCastException);
    EXPECT_FALSE(LDAPFilter("(a=*)").Match(reference));
}

TEST_F(EmbeddedRegistryTest, RefusesRankingThatIsNoInt) {
    EXPECT_THROW(registerCodec({{"service.ranking", 5L}}), std::invalid_argument);
    EXPECT_FALSE(context.GetServiceReference<Codec>());
}

TEST_F(EmbeddedRegistryTest, ReservedPropertiesCannotBeForged) {
    auto const registration = registerCodec(
        {{"service.id", -1L}, {"objectclass", std::string("forged")}, {"service.scope", 1}});
    auto const reference = registration.GetReference();
    EXPECT_GT(idOf(reference), 0);
    EXPECT_EQ(reference.GetProperty("objectclass").ToString(), "[registry_test::Codec]");
}

TEST_F(EmbeddedRegistryTest, FrameworkIdentityIsARandomUuid) {
    auto const uuid = context.GetProperty(Constants::FRAMEWORK_UUID).ToString();
    std::string const form = "xxxxxxxx-xxxx-4xxx-yxxx-xxxxxxxxxxxx";
    ASSERT_EQ(uuid.size(), form.size());
    for (std::size_t i = 0; i < form.size(); ++i) {
        std::string const allowed = form[i] == 'x'   ? "0123456789abcdef"
                                    : form[i] == 'y' ? "89ab"
                                                     : std::string(1, form[i]);
        EXPECT_NE(allowed.find(uuid[i]), std::string::npos) << uuid;
    }
}

TEST_F(EmbeddedRegistryTest, ReportsServiceWithSeveralWantedInterfacesOnce) {
    auto const registration = context.RegisterService<Codec, Encoder>(codec());
    EXPECT_EQ(
        context
            .GetServiceReferences(
                "", "(|(objectclass=registry_test::Codec)(objectclass=registry_test::Encoder))")
            .size(),
        1U);
}

TEST_F(EmbeddedRegistryTest, ListenerSeesServicesWithAnyOfItsInterfaces) {
    EventRecorder recorder;
    auto token = context.AddServiceListener(
        recorder.listener(),
        "(|(objectclass=registry_test::Codec)(objectclass=registry_test::Encoder))");
    auto const first = registerCodec();
    auto const second = context.RegisterService<Encoder>(codec());
    auto const third = context.RegisterService<Codec, Encoder>(codec());
    EXPECT_EQ(recorder.take().size(), 3U);
    context.RemoveListener(std::move(token));
    auto const fourth = registerCodec();
    EXPECT_EQ(recorder.take().size(), 0U);
}

TEST_F(EmbeddedRegistryTest, ListenersAreCalledInTheOrderTheyWereAdded) {
    std::vector<int> order;
    for (int i = 0; i < 8; ++i) {
        context.AddServiceListener(
            [&order, i](ServiceEvent const&) { order.push_back(i); },
            i % 2 == 0 ? "" : "(objectclass=registry_test::Codec)");
    }
    auto const registration = registerCodec();
    EXPECT_THAT(order, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
}

/// Runs an action on a thread of its own, and waits for it.
void runElsewhere(std::function<void()> const& action) {
    std::thread(action).join();
}

/// Lets another thread do something while the hook is told of a listener for the first time.
struct InterruptedHook : ServiceListenerHook {
    void Added(std::vector<ListenerInfo> const& listeners) override {
        if (auto const action = std::exchange(meanwhile, {})) {
            runElsewhere(action);
        }
        record("+", listeners);
    }

    void Removed(std::vector<ListenerInfo> const& listeners) override { record("-", listeners); }

    void record(std::string const& what, std::vector<ListenerInfo> const& listeners) {
        for (auto const& info : listeners) {
            if (info.GetFilter() == "(x=1)") {
                calls.push_back(what);
            }
        }
    }

    std::function<void()> meanwhile;
    std::vector<std::string> calls;
};

TEST_F(EmbeddedRegistryTest, HookLearnsOfAListenerThatComesWhileItIsTakenIn) {
    auto const hook = std::make_shared<InterruptedHook>();
    ListenerToken token;
    hook->meanwhile = [&] {
        token = context.AddServiceListener([](ServiceEvent const&) {}, "(x=1)");
    };
    auto const registration = context.RegisterService<ServiceListenerHook>(hook);
    EXPECT_THAT(hook->calls, ElementsAre("+"));
    context.RemoveListener(std::move(token));
    EXPECT_THAT(hook->calls, ElementsAre("+", "-"));
}

TEST_F(EmbeddedRegistryTest, HookLearnsOfAListenerThatGoesWhileItIsTakenIn) {
    auto const hook = std::make_shared<InterruptedHook>();
    auto token = context.AddServiceListener([](ServiceEvent const&) {}, "(x=1)");
    hook->meanwhile = [&] { context.RemoveListener(std::move(token)); };
    auto const registration = context.RegisterService<ServiceListenerHook>(hook);
    EXPECT_THAT(hook->calls, ElementsAre("+", "-"));
}

/// Notes what it is told of each listener, in order.
struct NotingHook : ServiceListenerHook {
    void Added(std::vector<ListenerInfo> const& listeners) override { note('+', listeners); }

    void Removed(std::vector<ListenerInfo> const& listeners) override { note('-', listeners); }

    void note(char what, std::vector<ListenerInfo> const& listeners) {
        std::lock_guard const lock(mutex);
        for (auto const& info : listeners) {
            notes[info] += what;
        }
    }

    std::mutex mutex;
    std::unordered_map<ListenerInfo, std::string> notes;
};

TEST_F(EmbeddedRegistryTest, HookLearnsOnceOfEachListenerHoweverManyComeAndGo) {
    std::atomic<bool> done{false};
    std::latch start(3);
    auto const churn = [&] {
        start.arrive_and_wait();
        while (!done) {
            context.RemoveListener(context.AddServiceListener([](ServiceEvent const&) {}, "(x=1)"));
        }
        context.AddServiceListener([](ServiceEvent const&) {}, "(last=1)");
    };
    std::thread first(churn);
    std::thread second(churn);
    start.arrive_and_wait();
    std::vector<std::shared_ptr<NotingHook>> hooks;
    for (int i = 0; i < 1000; ++i) {
        auto const hook = std::make_shared<NotingHook>();
        auto registration = context.RegisterService<ServiceListenerHook>(hook);
        if (i % 100 == 0) {
            hooks.push_back(hook);
        } else {
            registration.Unregister();
        }
    }
    done = true;
    first.join();
    second.join();
    for (auto const& hook : hooks) {
        int last = 0;
        for (auto const& [info, note] : hook->notes) {
            EXPECT_EQ(note, info.IsRemoved() ? "+-" : "+") << info.GetFilter();
            last += info.GetFilter() == "(last=1)" ? 1 : 0;
        }
        EXPECT_EQ(last, 2);
    }
}

TEST_F(EmbeddedRegistryTest, TrackerCanBeClosedByItsOwnCustomizer) {
    struct Closing : ServiceTracker<Codec> {
        using ServiceTracker<Codec>::ServiceTracker;

        std::shared_ptr<Codec> AddingService(ServiceReference<Codec> const& reference) override {
            Close();
            return ServiceTracker<Codec>::AddingService(reference);
        }

        void
        RemovedService(ServiceReference<Codec> const&, std::shared_ptr<Codec> const&) override {
            ++removed;
        }

        int removed = 0;
    };

    Closing tracker(context);
    tracker.Open();
    auto const registration = registerCodec();
    EXPECT_EQ(tracker.Size(), 0);
    EXPECT_EQ(tracker.removed, 1);
    Closing second(context);
    second.Open();
    EXPECT_EQ(second.Size(), 0);
    EXPECT_EQ(second.removed, 1);
}

TEST_F(EmbeddedRegistryTest, TrackerTracksNothingOfAnInvalidFilterButPresentServices) {
    auto const present = registerCodec();
    ServiceTracker<Codec> tracker(context, LDAPFilter());
    tracker.Open();
    auto const later = registerCodec();
    EXPECT_THAT(tracker.GetServiceReferences(), ElementsAre(present.GetReference()));
}

TEST_F(EmbeddedRegistryTest, HugeTimeoutsDoNotOverflow) {
    ServiceTracker<Codec> tracker(context);
    tracker.Open();
    std::thread waiter([&] { EXPECT_FALSE(tracker.WaitForService(std::chrono::hours::max())); });
    std::thread stopped([this] {
        auto copy = framework;
        copy.WaitForStop(std::chrono::milliseconds::max());
    });
    tracker.Close();
    waiter.join();
    stop();
    stopped.join();
}

/// Lets two threads make an object each, and keeps the first that is ready.
struct SlowFactory : ServiceFactory {
    InterfaceMapConstPtr GetService(Bundle const&, ServiceRegistrationBase const&) override {
        bothHere.arrive_and_wait();
        return MakeInterfaceMap<Codec>(codec());
    }

    void UngetService(
        Bundle const&, ServiceRegistrationBase const&, InterfaceMapConstPtr const&) override {
        ++returned;
    }

    std::latch bothHere{2};
    std::atomic<int> returned{0};
};

TEST_F(EmbeddedRegistryTest, FactoryGetsBackTheObjectThatLostTheRace) {
    auto const factory = std::make_shared<SlowFactory>();
    auto registration = context.RegisterService<Codec>(ToFactory(factory));
    std::shared_ptr<Codec> first;
    std::thread other([&] { first = context.GetService(registration.GetReference()); });
    auto const second = context.GetService(registration.GetReference());
    other.join();
    EXPECT_EQ(first.get(), second.get());
    EXPECT_EQ(factory->returned, 1);
    registration.Unregister();
    EXPECT_EQ(factory->returned, 2);
}

TEST_F(EmbeddedRegistryTest, FactoryGetsBackTheObjectOfAServiceThatHasGoneMeanwhile) {
    struct Unregistering : SlowFactory {
        InterfaceMapConstPtr GetService(Bundle const&, ServiceRegistrationBase const&) override {
            registration.Unregister();
            return MakeInterfaceMap<Codec>(codec());
        }

        ServiceRegistration<Codec> registration;
    };

    auto const factory = std::make_shared<Unregistering>();
    factory->registration = context.RegisterService<Codec>(ToFactory(factory));
    EXPECT_FALSE(context.GetService(factory->registration.GetReference()));
    EXPECT_EQ(factory->returned, 0);
    factory->registration = nullptr;
}

TEST_F(EmbeddedRegistryTest, FactoryMayThrowAnything) {
    struct Throwing : ServiceFactory {
        InterfaceMapConstPtr GetService(Bundle const&, ServiceRegistrationBase const&) override {
            if (throwsOnGet) {
                throw 1;
            }
            return MakeInterfaceMap<Codec>(codec());
        }

        void UngetService(
            Bundle const&, ServiceRegistrationBase const&, InterfaceMapConstPtr const&) override {
            throw 2;
        }

        bool throwsOnGet = true;
    };

    FrameworkEventRecorder reports(context);
    auto const factory = std::make_shared<Throwing>();
    auto registration = context.RegisterService<Codec>(ToFactory(factory));
    EXPECT_FALSE(context.GetService(registration.GetReference()));
    factory->throwsOnGet = false;
    EXPECT_TRUE(context.GetService(registration.GetReference()));
    auto const service = context.GetService(registration.GetReference());
    registration.Unregister();
    EXPECT_THAT(
        reports.events,
        ElementsAre(
            "ERROR: ServiceFactory threw an unknown exception. | unknown",
            "ERROR: ServiceFactory threw an exception | unknown",
            "ERROR: ServiceFactory UngetService implementation threw an exception | unknown"));
}

TEST_F(EmbeddedRegistryTest, HandleCanBeResetByAListenerOfItsOwnEvent) {
    auto registration = registerCodec();
    auto const reference = registration.GetReference();
    context.AddServiceListener([&](ServiceEvent const& event) {
        if (event.GetType() == ServiceEvent::SERVICE_MODIFIED) {
            registration.Unregister();
            registration = nullptr;
        }
    });
    registration.SetProperties({{"a", 1}});
    EXPECT_FALSE(registration);
    EXPECT_FALSE(reference);
    EXPECT_TRUE(reference.GetProperty("a") == 1);
}

TEST_F(EmbeddedRegistryTest, LastBundleCanGoDuringTheStoppingEvent) {
    auto local = std::make_unique<Framework>(FrameworkFactory().NewFramework());
    local->Start();
    auto bundleContext = local->GetBundleContext();
    std::promise<void> released;
    std::shared_ptr<Codec> service(new CodecImpl, [&](Codec* object) {
        delete object;
        released.set_value();
    });
    (void)bundleContext.RegisterService<Codec>(service);
    std::latch stopping(1);
    bundleContext.AddBundleListener([&](BundleEvent const&) { stopping.count_down(); });
    local->Stop();
    stopping.wait();
    local.reset();
    auto watch = released.get_future();
    service.reset();
    watch.wait();
    EXPECT_FALSE(bundleContext);
}

} // namespace
} // namespace registry_test
