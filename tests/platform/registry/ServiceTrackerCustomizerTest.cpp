#include "RegistryFixture.hpp"

#include <cppmicroservices/ServiceTracker.h>

#include <functional>

namespace registry_test {
namespace {

using testing::ElementsAre;

struct Wrapper {
    int number;
};

/// Tracks wrappers of the codecs, and records what it is told.
struct RecordingCustomizer : ServiceTrackerCustomizer<Codec, Wrapper> {
    explicit RecordingCustomizer(BundleContext c)
        : context(std::move(c)) {}

    std::shared_ptr<Wrapper> AddingService(ServiceReference<Codec> const& reference) override {
        auto const service = context.GetService(reference);
        calls.push_back("add " + std::to_string(service->number()));
        if (onAdding) {
            onAdding(reference);
        }
        return service->number() < 0 ? nullptr
                                     : std::make_shared<Wrapper>(Wrapper{service->number()});
    }

    void ModifiedService(
        ServiceReference<Codec> const&, std::shared_ptr<Wrapper> const& wrapper) override {
        calls.push_back("modify " + std::to_string(wrapper->number));
    }

    void RemovedService(
        ServiceReference<Codec> const& reference,
        std::shared_ptr<Wrapper> const& wrapper) override {
        calls.push_back("remove " + std::to_string(wrapper->number));
        if (onRemoved) {
            onRemoved(reference);
        }
    }

    std::vector<std::string> take() { return std::exchange(calls, {}); }

    BundleContext context;
    std::function<void(ServiceReference<Codec> const&)> onAdding;
    std::function<void(ServiceReference<Codec> const&)> onRemoved;
    std::vector<std::string> calls;
};

class ServiceTrackerCustomizerTest : public RegistryTest {
protected:
    using Tracker = ServiceTracker<Codec, Wrapper>;
    RecordingCustomizer customizer{context};
};

TEST_F(ServiceTrackerCustomizerTest, IsToldOfEveryChange) {
    Tracker tracker(context, &customizer);
    auto present = context.RegisterService<Codec>(codec(1));
    tracker.Open();
    EXPECT_THAT(customizer.take(), ElementsAre("add 1"));
    auto later = context.RegisterService<Codec>(codec(2));
    later.SetProperties({{"a", 1}});
    present.Unregister();
    EXPECT_THAT(customizer.take(), ElementsAre("add 2", "modify 2", "remove 1"));
    EXPECT_EQ(tracker.GetService()->number, 2);
    tracker.Close();
    EXPECT_THAT(customizer.take(), ElementsAre("remove 2"));
    later.SetProperties({});
    EXPECT_THAT(customizer.take(), ElementsAre());
}

TEST_F(ServiceTrackerCustomizerTest, WorksWithEveryKindOfTracker) {
    auto const registration = context.RegisterService<Codec>(codec(1));
    Tracker byReference(context, registration.GetReference(), &customizer);
    Tracker byName(context, std::string(codecName), &customizer);
    Tracker byFilter(context, LDAPFilter("(objectclass=registry_test::Codec)"), &customizer);
    byReference.Open();
    byName.Open();
    byFilter.Open();
    EXPECT_THAT(customizer.take(), ElementsAre("add 1", "add 1", "add 1"));
}

TEST_F(ServiceTrackerCustomizerTest, LeavesServiceUntrackedWhenItReturnsNull) {
    Tracker tracker(context, &customizer);
    auto present = context.RegisterService<Codec>(codec(-1));
    tracker.Open();
    auto later = context.RegisterService<Codec>(codec(-2));
    EXPECT_EQ(tracker.Size(), 0);
    EXPECT_EQ(tracker.GetTrackingCount(), 0);
    EXPECT_THAT(customizer.take(), ElementsAre("add -1", "add -2"));
    later.SetProperties({{"a", 1}});
    EXPECT_THAT(customizer.take(), ElementsAre("add -2"));
    present.Unregister();
    EXPECT_THAT(customizer.take(), ElementsAre());
}

TEST_F(ServiceTrackerCustomizerTest, ExceptionForPresentServiceLeavesOpen) {
    Tracker tracker(context, &customizer);
    auto const registration = context.RegisterService<Codec>(codec(1));
    customizer.onAdding = [](auto const&) { throw std::runtime_error("adding"); };
    expectThrow<std::runtime_error>([&] { tracker.Open(); }, "adding");
    EXPECT_EQ(tracker.Size(), 0);
    customizer.onAdding = nullptr;
    auto const later = context.RegisterService<Codec>(codec(2));
    EXPECT_EQ(tracker.Size(), 1);
}

TEST_F(ServiceTrackerCustomizerTest, ExceptionForLaterServiceBecomesFrameworkEvent) {
    FrameworkEventRecorder reports(context);
    Tracker tracker(context, &customizer);
    tracker.Open();
    customizer.onAdding = [](auto const&) { throw std::runtime_error("adding"); };
    auto registration = context.RegisterService<Codec>(codec(1));
    EXPECT_EQ(tracker.Size(), 0);
    EXPECT_THAT(
        reports.events,
        ElementsAre("ERROR: Service listener in system_bundle threw an exception! | adding"));
    customizer.onAdding = nullptr;
    registration.SetProperties({{"a", 1}});
    EXPECT_EQ(tracker.Size(), 1);
}

TEST_F(ServiceTrackerCustomizerTest, ServiceUnregisteredWhileBeingAddedIsRemoved) {
    Tracker tracker(context, &customizer);
    auto present = context.RegisterService<Codec>(codec(1));
    customizer.onAdding = [&](auto const&) { present.Unregister(); };
    tracker.Open();
    EXPECT_EQ(tracker.Size(), 0);
    EXPECT_THAT(customizer.take(), ElementsAre("add 1", "remove 1"));
}

TEST_F(ServiceTrackerCustomizerTest, ServiceModifiedWhileBeingAddedIsAddedOnce) {
    Tracker tracker(context, &customizer);
    tracker.Open();
    ServiceRegistration<Codec> registration;
    customizer.onAdding = [&](ServiceReference<Codec> const& reference) {
        auto const found = context.GetServiceReference<Codec>();
        EXPECT_TRUE(found == reference);
    };
    registration = context.RegisterService<Codec>(codec(1));
    customizer.onAdding = nullptr;
    EXPECT_THAT(customizer.take(), ElementsAre("add 1"));
}

TEST_F(ServiceTrackerCustomizerTest, CanUseTrackerAndRegistryWhenCalled) {
    Tracker tracker(context, &customizer);
    std::vector<int> sizes;
    customizer.onAdding = [&](auto const&) { sizes.push_back(tracker.Size()); };
    customizer.onRemoved = [&](auto const&) { sizes.push_back(tracker.Size()); };
    tracker.Open();
    auto registration = context.RegisterService<Codec>(codec(1));
    registration.Unregister();
    EXPECT_THAT(sizes, ElementsAre(0, 0));
}

TEST_F(ServiceTrackerCustomizerTest, ServicesRegisteredWhileOpeningAreTrackedOnce) {
    Tracker tracker(context, &customizer);
    auto const first = context.RegisterService<Codec>(codec(1));
    auto const second = context.RegisterService<Codec>(codec(2));
    ServiceRegistration<Codec> third;
    bool done = false;
    customizer.onAdding = [&](auto const&) {
        if (!std::exchange(done, true)) {
            third = context.RegisterService<Codec>(codec(3));
        }
    };
    tracker.Open();
    EXPECT_EQ(tracker.Size(), 3);
    EXPECT_EQ(customizer.calls.size(), 3U);
}

TEST_F(ServiceTrackerCustomizerTest, ServicesModifiedWhileOpeningAreTrackedOnce) {
    Tracker tracker(context, &customizer);
    auto first = context.RegisterService<Codec>(codec(1));
    auto second = context.RegisterService<Codec>(codec(2));
    bool done = false;
    customizer.onAdding = [&](auto const&) {
        if (!std::exchange(done, true)) {
            second.SetProperties({{"a", 1}});
        }
    };
    tracker.Open();
    EXPECT_EQ(tracker.Size(), 2);
    EXPECT_THAT(customizer.take(), ElementsAre("add 1", "add 2"));
}

TEST_F(ServiceTrackerCustomizerTest, ServicesUnregisteredWhileOpeningAreNotTracked) {
    Tracker tracker(context, &customizer);
    auto first = context.RegisterService<Codec>(codec(1));
    auto second = context.RegisterService<Codec>(codec(2));
    customizer.onAdding = [&](auto const&) { second.Unregister(); };
    tracker.Open();
    EXPECT_EQ(tracker.Size(), 1);
    EXPECT_THAT(customizer.take(), ElementsAre("add 1"));
}

TEST_F(ServiceTrackerCustomizerTest, NeedsACustomizerForForeignTypes) {
    Tracker tracker(context);
    tracker.Open();
    FrameworkEventRecorder reports(context);
    auto const registration = context.RegisterService<Codec>(codec(1));
    EXPECT_THAT(
        reports.events,
        ElementsAre("ERROR: Service listener in system_bundle threw an exception! | A custom "
                    "ServiceTrackerCustomizer instance is required for custom tracked objects."));
    ServiceTracker<void, Wrapper> untyped(
        context, LDAPFilter("(objectclass=registry_test::Codec)"));
    EXPECT_THROW(untyped.Open(), std::runtime_error);
}

TEST_F(ServiceTrackerCustomizerTest, DerivedTrackerCustomizesItself) {
    struct Derived : ServiceTracker<Codec> {
        using ServiceTracker<Codec>::ServiceTracker;

        ~Derived() override { Close(); }

        std::shared_ptr<Codec> AddingService(ServiceReference<Codec> const& reference) override {
            ++added;
            return ServiceTracker<Codec>::AddingService(reference);
        }

        void ModifiedService(
            ServiceReference<Codec> const& reference,
            std::shared_ptr<Codec> const& service) override {
            ++modified;
            ServiceTracker<Codec>::ModifiedService(reference, service);
        }

        void RemovedService(
            ServiceReference<Codec> const& reference,
            std::shared_ptr<Codec> const& service) override {
            ++removed;
            ServiceTracker<Codec>::RemovedService(reference, service);
        }

        int added = 0;
        int modified = 0;
        int removed = 0;
    };

    Derived tracker(context);
    tracker.Open();
    auto registration = registerCodec();
    registration.SetProperties({{"a", 1}});
    registration.Unregister();
    EXPECT_EQ(tracker.added, 1);
    EXPECT_EQ(tracker.modified, 1);
    EXPECT_EQ(tracker.removed, 1);
}

TEST_F(ServiceTrackerCustomizerTest, DestructorRemovesWhatIsTracked) {
    auto const registration = context.RegisterService<Codec>(codec(1));
    {
        Tracker tracker(context, &customizer);
        tracker.Open();
        customizer.take();
    }
    EXPECT_THAT(customizer.take(), ElementsAre("remove 1"));
}

TEST_F(ServiceTrackerCustomizerTest, ExceptionWhileClosingStaysInsideDestructor) {
    auto const registration = context.RegisterService<Codec>(codec(1));
    {
        Tracker tracker(context, &customizer);
        tracker.Open();
        customizer.onRemoved = [](auto const&) { throw std::runtime_error("removed"); };
    }
    EXPECT_THAT(customizer.take(), testing::Contains("remove 1"));
}

} // namespace
} // namespace registry_test
