#include "RegistryFixture.hpp"

#include <cppmicroservices/ServiceObjects.h>

#include <map>

namespace registry_test {
namespace {

template <class Action>
void expectInvalid(Action const& action) {
    expectThrow<IllegalStateException>(action, "The bundle context is no longer valid");
}

void expectEverythingRefused(BundleContext context) {
    EXPECT_FALSE(context);
    expectInvalid([&] { context.GetProperty("a"); });
    expectInvalid([&] { context.GetProperties(); });
    expectInvalid([&] { context.GetBundle(); });
    expectInvalid([&] { context.GetBundle(0); });
    expectInvalid([&] { context.GetBundles(); });
    expectInvalid([&] { context.GetBundles("x"); });
    expectInvalid([&] { (void)context.RegisterService(InterfaceMapConstPtr()); });
    expectInvalid([&] { context.RegisterService<Codec>(codec()); });
    expectInvalid([&] { context.GetServiceReferences("x"); });
    expectInvalid([&] { context.GetServiceReferences<Codec>(); });
    expectInvalid([&] { context.GetServiceReference("x"); });
    expectInvalid([&] { context.GetServiceReference<Codec>(); });
    expectInvalid([&] { context.AddServiceListener([](ServiceEvent const&) {}); });
    expectInvalid([&] { context.AddBundleListener([](BundleEvent const&) {}); });
    expectInvalid([&] { context.AddFrameworkListener([](FrameworkEvent const&) {}); });
    expectInvalid([&] { context.RemoveListener(ListenerToken()); });
}

class BundleContextTest : public RegistryTest {};

TEST(InvalidBundleContextTest, RefusesEverything) {
    expectEverythingRefused(BundleContext());
    expectThrow<std::invalid_argument>(
        [] { BundleContext().GetService(ServiceReference<Codec>()); },
        "Default constructed ServiceReference is not a valid input to GetService()");
    expectInvalid([] { BundleContext().GetServiceObjects(ServiceReference<Codec>()); });
}

TEST_F(BundleContextTest, RefusesEverythingAfterStop) {
    auto const registration = registerCodec();
    auto const reference = registration.GetReference();
    stop();
    expectEverythingRefused(context);
    expectInvalid([&] { context.GetService(reference); });
    expectInvalid([&] { context.GetService(ServiceReferenceU(reference)); });
}

TEST_F(BundleContextTest, ComparesAsValue) {
    BundleContext const same = framework.GetBundleContext();
    BundleContext const invalid;
    EXPECT_TRUE(context == same);
    EXPECT_FALSE(context != same);
    EXPECT_FALSE(context == invalid);
    EXPECT_TRUE(invalid == BundleContext());
    EXPECT_TRUE(context < invalid);
    EXPECT_FALSE(invalid < context);
    EXPECT_FALSE(context < same);
    EXPECT_EQ((std::map<BundleContext, int>{{context, 1}, {same, 2}}.size()), 1U);
    BundleContext copy = context;
    BundleContext moved = std::move(copy);
    EXPECT_TRUE(moved == context);
    moved = nullptr;
    EXPECT_FALSE(moved);
    moved = context;
    EXPECT_TRUE(moved);
}

TEST_F(BundleContextTest, RefusesIncompleteServices) {
    expectThrow<std::invalid_argument>(
        [&] { (void)context.RegisterService(InterfaceMapConstPtr()); },
        "Can't register empty InterfaceMap as a service");
    expectThrow<std::invalid_argument>(
        [&] { (void)context.RegisterService(std::make_shared<InterfaceMap const>()); },
        "Can't register empty InterfaceMap as a service");
    expectThrow<std::invalid_argument>(
        [&] { context.RegisterService<Codec>(std::shared_ptr<CodecImpl>()); },
        "Can't register as null class");
    auto const unnamed = std::make_shared<InterfaceMap>();
    unnamed->emplace("", codec());
    expectThrow<std::invalid_argument>(
        [&] { (void)context.RegisterService(InterfaceMapConstPtr(unnamed)); },
        "Can't register as null class");
    expectThrow<ServiceException>(
        [&] { context.RegisterService<Codec>(std::shared_ptr<ServiceFactory>()); },
        "The service factory argument must not be nullptr.");
}

TEST_F(BundleContextTest, RefusesPropertiesThatDifferOnlyInCase) {
    // Which of the two it names depends on the order of a hash map.
    std::string const text = "Properties contain case variants of the key: ";
    try {
        registerCodec({{"key", 1}, {"KEY", 1}});
        ADD_FAILURE() << "nothing thrown";
    } catch (std::runtime_error const& e) {
        EXPECT_EQ(typeid(e), typeid(std::runtime_error));
        EXPECT_THAT(
            e.what(), testing::AnyOf(testing::StrEq(text + "key"), testing::StrEq(text + "KEY")));
    }
    EXPECT_FALSE(context.GetServiceReference<Codec>());
}

TEST_F(BundleContextTest, RefusesLookUpByNamelessInterface) {
    std::string const text =
        "The service interface class has no CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE macro";
    expectThrow<ServiceException>([&] { context.GetServiceReference<void>(); }, text);
    expectThrow<ServiceException>([&] { context.GetServiceReferences<void>(); }, text);
}

TEST_F(BundleContextTest, RefusesReferencesToNothing) {
    std::string const text =
        "Default constructed ServiceReference is not a valid input to GetService()";
    expectThrow<std::invalid_argument>([&] { context.GetService(ServiceReferenceU()); }, text);
    expectThrow<std::invalid_argument>(
        [&] { context.GetService(ServiceReference<Codec>()); }, text);
    expectThrow<std::invalid_argument>(
        [&] { context.GetServiceObjects(ServiceReference<Codec>()); },
        "The service reference is invalid");
    auto registration = registerCodec();
    auto const reference = registration.GetReference();
    registration.Unregister();
    expectThrow<std::invalid_argument>([&] { context.GetService(reference); }, text);
}

TEST_F(BundleContextTest, FindsByInterfaceInOrderOfPreference) {
    auto const low = registerCodec({{"service.ranking", -1}});
    auto const first = registerCodec();
    auto const second = registerCodec();
    auto const high = registerCodec({{"service.ranking", 5}});
    EXPECT_THAT(
        context.GetServiceReferences<Codec>(),
        testing::ElementsAre(
            high.GetReference(), first.GetReference(), second.GetReference(), low.GetReference()));
    EXPECT_TRUE(context.GetServiceReference<Codec>() == high.GetReference());
    EXPECT_TRUE(context.GetServiceReference(codecName) == ServiceReferenceU(high.GetReference()));
    EXPECT_EQ(context.GetServiceReferences(codecName).front().GetInterfaceId(), codecName);
    EXPECT_TRUE(context.GetServiceReferences("unknown").empty());
    EXPECT_FALSE(context.GetServiceReference("unknown"));
}

TEST_F(BundleContextTest, FindsByFilter) {
    auto const red = registerCodec({{"color", std::string("red")}});
    auto const blue = registerCodec({{"color", std::string("blue")}});
    EXPECT_THAT(
        context.GetServiceReferences<Codec>("(color=b*)"),
        testing::ElementsAre(blue.GetReference()));
    EXPECT_THAT(
        context.GetServiceReferences("", "(color=*)"),
        testing::ElementsAre(
            ServiceReferenceU(red.GetReference()), ServiceReferenceU(blue.GetReference())));
    EXPECT_EQ(context.GetServiceReferences("", "(color=red)").front().GetInterfaceId(), "");
    EXPECT_TRUE(context.GetServiceReferences<Encoder>("(color=red)").empty());
}

TEST_F(BundleContextTest, FindsInterfacesNamedInTheFilter) {
    auto const low = registerCodec();
    auto const high = registerCodec({{"service.ranking", 5}, {"x", 1}});
    auto const encoder = context.RegisterService<Encoder>(codec());
    std::string const isCodec = std::string("(objectclass=") + codecName + ")";
    auto const found = [&](std::string const& filter) {
        return context.GetServiceReferences("", filter);
    };
    EXPECT_THAT(
        found(isCodec),
        testing::ElementsAre(
            ServiceReferenceU(high.GetReference()), ServiceReferenceU(low.GetReference())));
    EXPECT_EQ(found("(&" + isCodec + "(x=1))").size(), 1U);
    EXPECT_EQ(found("(&(x=1)" + isCodec + "(objectClass=registry_test::*))").size(), 1U);
    EXPECT_EQ(found("(|" + isCodec + "(objectclass=registry_test::Encoder))").size(), 3U);
    EXPECT_EQ(found("(|" + isCodec + "(x=1))").size(), 2U);
    EXPECT_EQ(found("(&" + isCodec + "(objectclass=registry_test::Encoder))").size(), 0U);
    EXPECT_EQ(found("(objectclass=registry_test::*)").size(), 3U);
    EXPECT_EQ(found("(!" + isCodec + ")").size(), 1U);
    EXPECT_EQ(found("(objectclass=unknown)").size(), 0U);
}

TEST_F(BundleContextTest, FindsEverythingWithoutConditionInOrderOfRegistration) {
    auto const first = registerCodec();
    auto const second = registerCodec({{"service.ranking", 5}});
    EXPECT_THAT(
        context.GetServiceReferences(""),
        testing::ElementsAre(
            ServiceReferenceU(first.GetReference()), ServiceReferenceU(second.GetReference())));
}

TEST_F(BundleContextTest, IgnoresLeadingColonsOfInterfaceNames) {
    auto const map = std::make_shared<InterfaceMap>();
    map->emplace("::some::Name", codec());
    auto const registration = context.RegisterService(InterfaceMapConstPtr(map));
    EXPECT_EQ(registration.GetReference().GetProperty("objectclass").ToString(), "[some::Name]");
    EXPECT_TRUE(context.GetServiceReference("some::Name"));
    EXPECT_TRUE(context.GetServiceReference("::some::Name"));
    EXPECT_EQ(context.GetServiceReferences("::some::Name").size(), 1U);
    EXPECT_FALSE(context.GetServiceReference("::"));
}

TEST_F(BundleContextTest, ParsesFilterOnlyWhereThereIsSomethingToFilter) {
    EXPECT_TRUE(context.GetServiceReferences("unknown", "(((").empty());
    EXPECT_THROW(context.GetServiceReferences("", "((("), std::invalid_argument);
    auto const registration = registerCodec();
    expectThrow<std::invalid_argument>(
        [&] { context.GetServiceReferences<Codec>("(a"); }, "Unexpected end of query: ");
}

TEST_F(BundleContextTest, GetsServiceObjectsAndCountsTheirUse) {
    auto const impl = codec(42);
    auto const registration = context.RegisterService<Codec, Encoder>(impl);
    auto const reference = registration.GetReference<Codec>();
    EXPECT_TRUE(reference.GetUsingBundles().empty());
    auto service = context.GetService(reference);
    EXPECT_EQ(service.get(), impl.get());
    EXPECT_EQ(service->number(), 42);
    auto second = context.GetService(reference);
    EXPECT_THAT(reference.GetUsingBundles(), testing::ElementsAre(Bundle(framework)));
    second.reset();
    EXPECT_EQ(reference.GetUsingBundles().size(), 1U);
    service.reset();
    EXPECT_TRUE(reference.GetUsingBundles().empty());
}

TEST_F(BundleContextTest, GetsAllInterfacesOfAService) {
    auto const impl = codec(1);
    auto const registration = context.RegisterService<Codec, Encoder>(impl);
    auto map = context.GetService(ServiceReferenceU(registration.GetReference()));
    ASSERT_EQ(map->size(), 2U);
    EXPECT_EQ(ExtractInterface<Codec>(map).get(), static_cast<Codec*>(impl.get()));
    EXPECT_EQ(ExtractInterface<Encoder>(map).get(), static_cast<Encoder*>(impl.get()));
    EXPECT_EQ(registration.GetReference().GetUsingBundles().size(), 1U);
    map.reset();
    EXPECT_TRUE(registration.GetReference().GetUsingBundles().empty());
}

TEST_F(BundleContextTest, ServiceObjectOutlivesItsRegistration) {
    auto registration = context.RegisterService<Codec>(codec(7));
    auto const service = context.GetService(registration.GetReference());
    registration.Unregister();
    stop();
    EXPECT_EQ(service->number(), 7);
}

TEST_F(BundleContextTest, FindsReferenceOfServiceObject) {
    auto const registration = context.RegisterService<Codec, Encoder>(codec());
    auto const service = context.GetService(registration.GetReference<Encoder>());
    EXPECT_TRUE(ServiceReferenceFromService(service) == registration.GetReference<Encoder>());
    EXPECT_TRUE(
        (ServiceReferenceFromService<Encoder, Codec>(service) ==
         registration.GetReference<Codec>()));
    EXPECT_EQ(
        ServiceReferenceFromService(std::static_pointer_cast<void>(service)).GetInterfaceId(),
        "registry_test::Encoder");
    expectThrow<std::runtime_error>(
        [] { ServiceReferenceFromService(codec()); },
        "The input is not a CppMicroServices managed ServiceObject");
}

TEST_F(BundleContextTest, RemovesListenersOfEachKindByToken) {
    int calls = 0;
    auto service = context.AddServiceListener([&](ServiceEvent const&) { ++calls; });
    auto bundle = context.AddBundleListener([&](BundleEvent const&) { ++calls; });
    auto frame = context.AddFrameworkListener([&](FrameworkEvent const&) { ++calls; });
    EXPECT_TRUE(service);
    ListenerToken moved = std::move(service);
    EXPECT_TRUE(moved);
    EXPECT_FALSE(service);
    ListenerToken assigned;
    assigned = std::move(moved);
    context.RemoveListener(std::move(assigned));
    context.RemoveListener(std::move(bundle));
    context.RemoveListener(std::move(frame));
    context.RemoveListener(ListenerToken());
    context.AddServiceListener([](ServiceEvent const&) { throw 1; });
    auto const registration = registerCodec();
    stop();
    EXPECT_EQ(calls, 0);
}

} // namespace
} // namespace registry_test
