#include "RegistryFixture.hpp"

#include <cppmicroservices/Constants.h>

#include <sstream>
#include <unordered_set>

namespace registry_test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

class ServiceRegistrationTest : public RegistryTest {};

class ServiceReferenceTest : public RegistryTest {};

TEST_F(ServiceRegistrationTest, InvalidHandleRefusesEverything) {
    ServiceRegistration<Codec> registration;
    EXPECT_FALSE(registration);
    auto const refused = [](auto const& action) {
        expectThrow<std::logic_error>(action, "ServiceRegistrationBase object invalid");
    };
    refused([&] { registration.GetReference(); });
    refused([&] { registration.SetProperties({}); });
    refused([&] { registration.Unregister(); });
    registration = registerCodec();
    EXPECT_TRUE(registration);
    registration = nullptr;
    EXPECT_FALSE(registration);
    refused([&] { registration.GetReference(); });
}

TEST_F(ServiceRegistrationTest, RefusesEverythingOnceUnregistered) {
    auto registration = registerCodec();
    registration.Unregister();
    EXPECT_TRUE(registration);
    auto const refused = [](auto const& action) {
        expectThrow<std::logic_error>(action, "Service is unregistered");
    };
    refused([&] { registration.GetReference(); });
    refused([&] { registration.SetProperties(ServiceProperties()); });
    ServiceProperties const properties;
    refused([&] { registration.SetProperties(properties); });
    refused([&] { registration.Unregister(); });
}

TEST_F(ServiceRegistrationTest, FrameworkSetsItsProperties) {
    auto const first = registerCodec();
    auto const second = context.RegisterService<Codec, Encoder>(codec(), {{"Mine", 1}});
    auto const reference = second.GetReference();
    EXPECT_GT(idOf(reference), idOf(first.GetReference()));
    EXPECT_TRUE(reference.GetProperty(Constants::SERVICE_SCOPE) == Constants::SCOPE_SINGLETON);
    EXPECT_THAT(
        any_cast<std::vector<std::string>>(reference.GetProperty(Constants::OBJECTCLASS)),
        UnorderedElementsAre("registry_test::Codec", "registry_test::Encoder"));
    EXPECT_TRUE(reference.GetProperty("mINE") == 1);
    EXPECT_TRUE(reference.GetProperty("absent").Empty());
    EXPECT_THAT(
        reference.GetPropertyKeys(),
        UnorderedElementsAre("Mine", "service.id", "service.scope", "objectclass"));
    std::vector<std::string> keys{"former"};
    reference.GetPropertyKeys(keys);
    EXPECT_EQ(keys, reference.GetPropertyKeys());
}

TEST_F(ServiceRegistrationTest, SetPropertiesReplacesAllButTheFrameworksOwn) {
    auto registration = registerCodec({{"old", 1}});
    auto const reference = registration.GetReference();
    auto const id = idOf(reference);
    ServiceProperties const properties{
        {"new", 2}, {"service.id", 77L}, {"objectclass", std::string("x")}, {"service.scope", 3}};
    registration.SetProperties(properties);
    EXPECT_THAT(
        reference.GetPropertyKeys(),
        UnorderedElementsAre("new", "service.id", "service.scope", "objectclass"));
    EXPECT_EQ(idOf(reference), id);
    EXPECT_EQ(reference.GetProperty("objectclass").ToString(), "[registry_test::Codec]");
    EXPECT_TRUE(reference.GetProperty("service.scope") == std::string("singleton"));
}

TEST_F(ServiceRegistrationTest, SetPropertiesKeepsThePresentOnesWhenItThrows) {
    auto registration = registerCodec({{"old", 1}});
    EXPECT_THROW(registration.SetProperties({{"k", 1}, {"K", 2}}), std::runtime_error);
    expectThrow<std::invalid_argument>(
        [&] {
            registration.SetProperties({{"service.ranking", std::string("high")}});
        },
        "SERVICE_RANKING property has unexpected value type. "
        "cppmicroservices::BadAnyCastException: any_cast: "
        "Failed to convert from cppmicroservices::Any type std::__cxx11::basic_string<char, "
        "std::char_traits<char>, std::allocator<char> > to target type int");
    EXPECT_TRUE(registration.GetReference().GetProperty("old") == 1);
}

TEST_F(ServiceRegistrationTest, ChangedRankingChangesPreference) {
    auto first = registerCodec();
    auto second = registerCodec();
    second.SetProperties({{"service.ranking", 1}});
    EXPECT_THAT(
        context.GetServiceReferences<Codec>(),
        ElementsAre(second.GetReference(), first.GetReference()));
    EXPECT_TRUE(context.GetServiceReference<Codec>() == second.GetReference());
    first.SetProperties({{"service.ranking", 2}});
    EXPECT_TRUE(context.GetServiceReference<Codec>() == first.GetReference());
    first.SetProperties({});
    second.SetProperties({});
    EXPECT_THAT(
        context.GetServiceReferences<Codec>(),
        ElementsAre(first.GetReference(), second.GetReference()));
}

TEST_F(ServiceRegistrationTest, UnregisterReleasesTheObject) {
    auto impl = codec();
    std::weak_ptr<CodecImpl> const watch = impl;
    auto registration = context.RegisterService<Codec>(std::move(impl));
    impl.reset();
    EXPECT_FALSE(watch.expired());
    auto const reference = registration.GetReference();
    registration.Unregister();
    EXPECT_TRUE(watch.expired());
    EXPECT_FALSE(reference);
    EXPECT_FALSE(reference.GetBundle());
    EXPECT_TRUE(reference.GetUsingBundles().empty());
    EXPECT_FALSE(context.GetServiceReference<Codec>());
    EXPECT_TRUE(framework.GetRegisteredServices().empty());
}

TEST_F(ServiceRegistrationTest, ServiceStaysWhenTheHandleGoes) {
    { auto const registration = registerCodec(); }
    EXPECT_TRUE(context.GetServiceReference<Codec>());
}

TEST_F(ServiceRegistrationTest, CanUnregisterItselfFromItsOwnEvent) {
    ServiceRegistration<Codec> registration;
    int events = 0;
    context.AddServiceListener([&](ServiceEvent const& event) {
        ++events;
        if (event.GetType() == ServiceEvent::SERVICE_UNREGISTERING) {
            registration.Unregister();
            EXPECT_TRUE(registration.GetReference());
        } else {
            event.GetServiceReference();
        }
    });
    registration = registerCodec();
    registration.Unregister();
    EXPECT_EQ(events, 2);
    expectThrow<std::logic_error>([&] { registration.Unregister(); }, "Service is unregistered");
}

TEST_F(ServiceRegistrationTest, ComparesAndHashesAsValue) {
    auto first = registerCodec();
    auto second = registerCodec({{"service.ranking", 1}});
    auto const copy = first;
    EXPECT_TRUE(copy == first);
    EXPECT_FALSE(first == second);
    EXPECT_TRUE(first < second);
    EXPECT_FALSE(second < first);
    EXPECT_FALSE(first < copy);
    ServiceRegistrationU const invalid;
    ServiceRegistrationU const valid = first;
    EXPECT_TRUE(invalid < valid);
    EXPECT_FALSE(valid < invalid);
    EXPECT_FALSE(invalid < ServiceRegistrationU());
    EXPECT_EQ(std::unordered_set<ServiceRegistrationBase>({first, copy, second}).size(), 2U);
    auto moved = std::move(first);
    EXPECT_TRUE(moved == copy);
    moved = std::move(second);
    EXPECT_FALSE(moved == copy);
    std::ostringstream text;
    text << moved;
    EXPECT_EQ(text.str(), "cppmicroservices::ServiceRegistrationBase object");
}

TEST_F(ServiceReferenceTest, RefersToNothingWhenDefaultConstructed) {
    ServiceReference<Codec> const reference;
    EXPECT_FALSE(reference);
    EXPECT_FALSE(reference.GetBundle());
    EXPECT_EQ(reference.GetInterfaceId(), "");
    EXPECT_FALSE(reference.IsConvertibleTo(codecName));
    EXPECT_TRUE(reference == ServiceReference<Codec>());
    EXPECT_FALSE(reference < ServiceReference<Codec>());
    std::ostringstream text;
    text << reference;
    EXPECT_EQ(text.str(), "Invalid service reference");
}

TEST_F(ServiceReferenceTest, SelectsInterface) {
    auto const registration = context.RegisterService<Codec, Encoder>(codec());
    auto const reference = registration.GetReference();
    EXPECT_EQ(reference.GetInterfaceId(), codecName);
    EXPECT_TRUE(reference.IsConvertibleTo("registry_test::Encoder"));
    EXPECT_FALSE(reference.IsConvertibleTo("registry_test::EventRecorder"));
    ServiceReference<Encoder> encoder = reference;
    EXPECT_EQ(encoder.GetInterfaceId(), "registry_test::Encoder");
    EXPECT_TRUE(ServiceReferenceU(encoder) == ServiceReferenceU(reference));
    ServiceReference<int> none = reference;
    EXPECT_FALSE(none);
    encoder = nullptr;
    EXPECT_FALSE(encoder);
    encoder = ServiceReferenceBase(reference);
    EXPECT_EQ(encoder.GetInterfaceId(), "registry_test::Encoder");
    ServiceReferenceU untyped;
    untyped = reference;
    EXPECT_EQ(untyped.GetInterfaceId(), codecName);
    EXPECT_EQ(registration.ServiceRegistrationBase::GetReference().GetInterfaceId(), "");
}

TEST_F(ServiceReferenceTest, OrdersByRankingThenByAge) {
    auto const older = registerCodec();
    auto const younger = registerCodec();
    auto const higher = registerCodec({{"service.ranking", 1}});
    auto const reference = [](auto const& registration) { return registration.GetReference(); };
    EXPECT_TRUE(reference(younger) < reference(older));
    EXPECT_FALSE(reference(older) < reference(younger));
    EXPECT_TRUE(reference(older) < reference(higher));
    EXPECT_FALSE(reference(older) < reference(older));
    EXPECT_TRUE(ServiceReference<Codec>() < reference(older));
    EXPECT_FALSE(reference(older) < ServiceReference<Codec>());
    EXPECT_EQ(
        std::unordered_set<ServiceReference<Codec>>(
            {reference(older), reference(older), reference(younger)})
            .size(),
        2U);
    EXPECT_EQ(
        std::unordered_set<ServiceReferenceBase>({reference(older), reference(higher)}).size(), 2U);
}

TEST_F(ServiceReferenceTest, KeepsPropertiesOfUnregisteredService) {
    auto registration = registerCodec({{"a", 1}});
    auto const reference = registration.GetReference();
    registration.Unregister();
    EXPECT_TRUE(reference.GetProperty("a") == 1);
    EXPECT_THAT(reference.GetPropertyKeys(), Contains("a"));
    EXPECT_FALSE(reference.IsConvertibleTo(codecName));
}

TEST_F(ServiceReferenceTest, PrintsBundleAndProperties) {
    auto const registration = registerCodec({{"a", 1}});
    std::ostringstream text;
    text << registration.GetReference();
    EXPECT_THAT(
        text.str(), testing::StartsWith(
                        "Reference for service object registered from system_bundle " +
                        framework.GetVersion().ToString() + " ("));
    EXPECT_THAT(text.str(), testing::HasSubstr("a=1"));
    EXPECT_THAT(text.str(), testing::HasSubstr("objectclass=[registry_test::Codec]"));
}

} // namespace
} // namespace registry_test
