#include "RegistryFixture.hpp"

#include <cppmicroservices/ServiceTracker.h>

#include <future>

namespace registry_test {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

class ServiceTrackerTest : public RegistryTest {
protected:
    ServiceTracker<Codec> tracker{context};
};

TEST_F(ServiceTrackerTest, TracksNothingUntilOpened) {
    auto const registration = registerCodec();
    EXPECT_EQ(tracker.Size(), 0);
    EXPECT_TRUE(tracker.IsEmpty());
    EXPECT_EQ(tracker.GetTrackingCount(), -1);
    EXPECT_TRUE(tracker.GetServiceReferences().empty());
    EXPECT_TRUE(tracker.GetServices().empty());
    EXPECT_FALSE(tracker.GetService());
    EXPECT_FALSE(tracker.GetService(registration.GetReference()));
    ServiceTracker<Codec>::TrackingMap map;
    tracker.GetTracked(map);
    EXPECT_TRUE(map.empty());
    tracker.Remove(registration.GetReference());
    EXPECT_FALSE(tracker.WaitForService(std::chrono::milliseconds(1)));
    expectThrow<ServiceException>(
        [&] { tracker.GetServiceReference(); }, "No service is being tracked");
    tracker.Close();
}

TEST_F(ServiceTrackerTest, TracksPresentAndLaterServices) {
    auto first = context.RegisterService<Codec>(codec(1));
    tracker.Open();
    EXPECT_EQ(tracker.Size(), 1);
    auto const second = context.RegisterService<Codec>(codec(2));
    EXPECT_EQ(tracker.Size(), 2);
    EXPECT_FALSE(tracker.IsEmpty());
    EXPECT_THAT(
        tracker.GetServiceReferences(),
        UnorderedElementsAre(first.GetReference(), second.GetReference()));
    EXPECT_EQ(tracker.GetServices().size(), 2U);
    EXPECT_EQ(tracker.GetService(second.GetReference())->number(), 2);
    ServiceTracker<Codec>::TrackingMap map;
    tracker.GetTracked(map);
    EXPECT_EQ(map.at(first.GetReference())->number(), 1);
    EXPECT_EQ(map.size(), 2U);
    first.Unregister();
    EXPECT_EQ(tracker.Size(), 1);
    EXPECT_EQ(tracker.GetService()->number(), 2);
}

TEST_F(ServiceTrackerTest, PrefersHighestRankingThenLowestId) {
    auto const low = context.RegisterService<Codec>(codec(1), {{"service.ranking", -5}});
    tracker.Open();
    EXPECT_EQ(tracker.GetService()->number(), 1);
    auto first = context.RegisterService<Codec>(codec(2));
    auto second = context.RegisterService<Codec>(codec(3));
    EXPECT_EQ(tracker.GetService()->number(), 2);
    EXPECT_TRUE(tracker.GetServiceReference() == first.GetReference());
    second.SetProperties({{"service.ranking", 1}});
    EXPECT_EQ(tracker.GetService()->number(), 3);
    EXPECT_TRUE(tracker.GetServiceReference() == second.GetReference());
    second.Unregister();
    EXPECT_EQ(tracker.GetService()->number(), 2);
    first.Unregister();
    EXPECT_TRUE(tracker.GetServiceReference() == low.GetReference());
}

TEST_F(ServiceTrackerTest, CountsChanges) {
    tracker.Open();
    EXPECT_EQ(tracker.GetTrackingCount(), 0);
    auto registration = registerCodec();
    EXPECT_EQ(tracker.GetTrackingCount(), 1);
    registration.SetProperties({{"a", 1}});
    EXPECT_EQ(tracker.GetTrackingCount(), 2);
    registration.Unregister();
    EXPECT_EQ(tracker.GetTrackingCount(), 3);
    tracker.Close();
    EXPECT_EQ(tracker.GetTrackingCount(), -1);
}

TEST_F(ServiceTrackerTest, CanBeOpenedTwiceAndAgain) {
    auto const registration = registerCodec();
    tracker.Open();
    tracker.Open();
    EXPECT_EQ(tracker.GetTrackingCount(), 1);
    tracker.Close();
    EXPECT_EQ(tracker.Size(), 0);
    auto const second = registerCodec();
    EXPECT_EQ(tracker.Size(), 0);
    tracker.Close();
    tracker.Open();
    EXPECT_EQ(tracker.Size(), 2);
}

TEST_F(ServiceTrackerTest, ReleasesServicesWhenClosed) {
    auto const registration = registerCodec();
    tracker.Open();
    EXPECT_EQ(registration.GetReference().GetUsingBundles().size(), 1U);
    tracker.Close();
    EXPECT_TRUE(registration.GetReference().GetUsingBundles().empty());
    expectThrow<ServiceException>(
        [&] { tracker.GetServiceReference(); }, "No service is being tracked");
}

TEST_F(ServiceTrackerTest, RemovesServiceOnDemand) {
    auto const registration = registerCodec();
    tracker.Open();
    tracker.Remove(registration.GetReference());
    EXPECT_EQ(tracker.Size(), 0);
    tracker.Remove(registration.GetReference());
    tracker.Remove(ServiceReference<Codec>());
    EXPECT_EQ(tracker.GetTrackingCount(), 2);
}

TEST_F(ServiceTrackerTest, FollowsFilter) {
    ServiceTracker<Codec> filtered(
        context, LDAPFilter("(&(objectclass=registry_test::Codec)(a=1))"));
    auto registration = registerCodec({{"a", 1}});
    auto const other = registerCodec();
    filtered.Open();
    EXPECT_THAT(filtered.GetServiceReferences(), ElementsAre(registration.GetReference()));
    registration.SetProperties({{"a", 2}});
    EXPECT_EQ(filtered.Size(), 0);
    registration.SetProperties({{"a", 1}});
    EXPECT_EQ(filtered.Size(), 1);
}

TEST_F(ServiceTrackerTest, IgnoresServicesWithoutItsInterface) {
    ServiceTracker<Codec> filtered(context, LDAPFilter("(a=1)"));
    auto const present = context.RegisterService<Encoder>(codec(), {{"a", 1}});
    filtered.Open();
    auto const later = context.RegisterService<Encoder>(codec(), {{"a", 1}});
    auto const wanted = registerCodec({{"a", 1}});
    EXPECT_THAT(filtered.GetServiceReferences(), ElementsAre(wanted.GetReference()));
}

TEST_F(ServiceTrackerTest, FollowsOneReference) {
    auto registration = registerCodec();
    auto const other = registerCodec();
    ServiceTracker<Codec> single(context, registration.GetReference());
    single.Open();
    EXPECT_THAT(single.GetServiceReferences(), ElementsAre(registration.GetReference()));
    auto const third = registerCodec();
    EXPECT_EQ(single.Size(), 1);
    registration.Unregister();
    EXPECT_EQ(single.Size(), 0);
    single.Close();
    single.Open();
    EXPECT_EQ(single.Size(), 0);
}

TEST_F(ServiceTrackerTest, FollowsInterfaceByName) {
    ServiceTracker<Codec> named(context, std::string(codecName));
    auto const registration = registerCodec();
    named.Open();
    EXPECT_EQ(named.Size(), 1);
}

TEST_F(ServiceTrackerTest, TracksInterfaceMapsWithoutInterface) {
    ServiceTracker<void> any(context, LDAPFilter("(a=1)"));
    any.Open();
    auto const registration = context.RegisterService<Codec, Encoder>(codec(6), {{"a", 1}});
    ASSERT_EQ(any.Size(), 1);
    std::shared_ptr<InterfaceMap const> const map = any.GetService();
    EXPECT_EQ(map->size(), 2U);
    EXPECT_EQ(ExtractInterface<Codec>(map)->number(), 6);
    expectThrow<ServiceException>(
        [&] { ServiceTracker<void> nameless(context); },
        "The service interface class has no CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE macro");
}

TEST_F(ServiceTrackerTest, NeedsValidContext) {
    expectThrow<std::invalid_argument>(
        [] { ServiceTracker<Codec> invalid(BundleContext(), LDAPFilter("(a=1)")); },
        "The bundle context cannot be null.");
    ServiceTracker<Codec> invalid{BundleContext()};
    expectThrow<IllegalStateException>(
        [&] { invalid.Open(); }, "The bundle context is no longer valid");
    EXPECT_EQ(invalid.GetTrackingCount(), -1);
}

TEST_F(ServiceTrackerTest, RefusesNamesOfWhichNoFilterCanBeMade) {
    expectThrow<std::invalid_argument>(
        [&] { ServiceTracker<Codec> malformed(context, std::string("a)b")); },
        "unexpected std::invalid_argument exception: Trailing garbage 'b)': b)");
}

TEST_F(ServiceTrackerTest, StaysQuietWhenFrameworkStops) {
    auto const registration = registerCodec();
    tracker.Open();
    stop();
    EXPECT_EQ(tracker.Size(), 1);
    tracker.Close();
    EXPECT_EQ(tracker.Size(), 0);
    expectThrow<IllegalStateException>(
        [&] { tracker.Open(); }, "The bundle context is no longer valid");
}

TEST_F(ServiceTrackerTest, TracksRegistrationMadeByItsOwnListeners) {
    ServiceRegistration<Codec> nested;
    context.AddServiceListener(
        [&](ServiceEvent const& event) {
            if (event.GetType() == ServiceEvent::SERVICE_REGISTERED && !nested) {
                nested = context.RegisterService<Codec>(codec(2), {{"nested", 1}});
            }
        },
        "(!(nested=1))");
    tracker.Open();
    auto const registration = context.RegisterService<Codec>(codec(1));
    EXPECT_EQ(tracker.Size(), 2);
}

class WaitForServiceTest : public ServiceTrackerTest {};

TEST_F(WaitForServiceTest, ReturnsTrackedServiceAtOnce) {
    auto const registration = context.RegisterService<Codec>(codec(4));
    tracker.Open();
    EXPECT_EQ(tracker.WaitForService()->number(), 4);
    EXPECT_EQ(tracker.WaitForService(std::chrono::milliseconds::zero())->number(), 4);
    EXPECT_EQ(tracker.WaitForService(std::chrono::hours(1))->number(), 4);
}

TEST_F(WaitForServiceTest, GivesUpAfterTimeout) {
    tracker.Open();
    auto const start = std::chrono::steady_clock::now();
    EXPECT_FALSE(tracker.WaitForService(std::chrono::milliseconds(20)));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
}

TEST_F(WaitForServiceTest, RefusesNegativeTimeout) {
    tracker.Open();
    expectThrow<std::invalid_argument>(
        [&] { tracker.WaitForService(std::chrono::milliseconds(-1)); }, "negative timeout");
}

TEST_F(WaitForServiceTest, WakesWhenServiceArrivesOnAnotherThread) {
    tracker.Open();
    auto endless =
        std::async(std::launch::async, [&] { return tracker.WaitForService()->number(); });
    auto limited = std::async(std::launch::async, [&] {
        auto const service = tracker.WaitForService(std::chrono::minutes(5));
        return service ? service->number() : -1;
    });
    auto const registration = context.RegisterService<Codec>(codec(8));
    EXPECT_EQ(endless.get(), 8);
    EXPECT_EQ(limited.get(), 8);
}

TEST_F(WaitForServiceTest, WakesWhenTrackerIsClosed) {
    tracker.Open();
    auto endless = std::async(std::launch::async, [&] { return tracker.WaitForService(); });
    auto limited = std::async(
        std::launch::async, [&] { return tracker.WaitForService(std::chrono::minutes(5)); });
    tracker.Close();
    EXPECT_FALSE(endless.get());
    EXPECT_FALSE(limited.get());
}

TEST_F(WaitForServiceTest, EndsWithExceptionWhenFrameworkStops) {
    tracker.Open();
    auto waiter = std::async(std::launch::async, [&] { return tracker.WaitForService(); });
    stop();
    // Which of the two depends on whether the thread had begun to wait.
    try {
        waiter.get();
        FAIL() << "nothing thrown";
    } catch (std::logic_error const& e) {
        EXPECT_THAT(
            e.what(), testing::AnyOf(
                          testing::StrEq("The bundle context became null."),
                          testing::StrEq("The bundle context cannot be null.")));
    }
    expectThrow<std::logic_error>(
        [&] { tracker.WaitForService(); }, "The bundle context cannot be null.");
}

} // namespace
} // namespace registry_test
