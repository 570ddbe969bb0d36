#include "RegistryFixture.hpp"

#include <cppmicroservices/PrototypeServiceFactory.h>
#include <cppmicroservices/ServiceFactory.h>
#include <cppmicroservices/ServiceObjects.h>

#include <functional>

namespace registry_test {
namespace {

using testing::ElementsAre;

/// Makes codecs with growing numbers, and records what it is asked for.
template <class Base>
struct CountingFactory : Base {
    InterfaceMapConstPtr
    GetService(Bundle const& bundle, ServiceRegistrationBase const& registration) override {
        EXPECT_TRUE(bundle);
        EXPECT_TRUE(registration);
        calls.push_back("get");
        if (make) {
            return make();
        }
        return MakeInterfaceMap<Codec>(codec(++made));
    }

    void UngetService(
        Bundle const& bundle, ServiceRegistrationBase const& registration,
        InterfaceMapConstPtr const& service) override {
        EXPECT_TRUE(bundle);
        EXPECT_TRUE(registration);
        calls.push_back("unget " + std::to_string(ExtractInterface<Codec>(service)->number()));
        if (throwsOnUnget) {
            throw std::runtime_error("unget");
        }
    }

    std::vector<std::string> take() { return std::exchange(calls, {}); }

    std::function<InterfaceMapConstPtr()> make;
    bool throwsOnUnget = false;
    int made = 0;
    std::vector<std::string> calls;
};

class ServiceFactoryTest : public RegistryTest {
protected:
    using Factory = CountingFactory<ServiceFactory>;
    std::shared_ptr<Factory> const factory = std::make_shared<Factory>();
    FrameworkEventRecorder reports{context};
};

TEST_F(ServiceFactoryTest, MakesOneObjectAndKeepsItWhileUsed) {
    auto registration = context.RegisterService<Codec>(ToFactory(factory));
    auto const reference = registration.GetReference();
    EXPECT_TRUE(reference.GetProperty("service.scope") == std::string("bundle"));
    EXPECT_THAT(factory->take(), ElementsAre());
    auto first = context.GetService(reference);
    auto second = context.GetService(reference);
    EXPECT_EQ(first->number(), 1);
    EXPECT_EQ(first.get(), second.get());
    EXPECT_EQ(reference.GetUsingBundles().size(), 1U);
    first.reset();
    EXPECT_THAT(factory->take(), ElementsAre("get"));
    second.reset();
    EXPECT_THAT(factory->take(), ElementsAre("unget 1"));
    EXPECT_TRUE(reference.GetUsingBundles().empty());
    EXPECT_EQ(context.GetService(reference)->number(), 2);
    EXPECT_THAT(factory->take(), ElementsAre("get", "unget 2"));
}

TEST_F(ServiceFactoryTest, TakesObjectBackWhenUnregistered) {
    auto registration = context.RegisterService<Codec>(ToFactory(factory));
    auto service = context.GetService(registration.GetReference());
    factory->take();
    registration.Unregister();
    EXPECT_THAT(factory->take(), ElementsAre("unget 1"));
    EXPECT_EQ(service->number(), 1);
    service.reset();
    EXPECT_THAT(factory->take(), ElementsAre());
}

TEST_F(ServiceFactoryTest, ReportsThatNothingWasMade) {
    auto const registration = context.RegisterService<Codec>(ToFactory(factory));
    factory->make = [] { return nullptr; };
    EXPECT_FALSE(context.GetService(registration.GetReference()));
    factory->make = [] { return std::make_shared<InterfaceMap const>(); };
    EXPECT_FALSE(context.GetService(registration.GetReference()));
    std::string const text = "ServiceFactory returned an empty or nullptr interface map.";
    EXPECT_THAT(
        reports.events,
        ElementsAre("ERROR: " + text + " | " + text, "ERROR: " + text + " | " + text));
}

TEST_F(ServiceFactoryTest, ReportsMissingInterface) {
    auto const registration = context.RegisterService<Codec>(ToFactory(factory));
    factory->make = [] { return MakeInterfaceMap<Encoder>(codec()); };
    EXPECT_FALSE(context.GetService(registration.GetReference()));
    std::string const text =
        "ServiceFactory produced an object that did not implement: registry_test::Codec";
    EXPECT_THAT(reports.events, ElementsAre("WARNING: " + text + " | " + text));
}

TEST_F(ServiceFactoryTest, ReportsExceptions) {
    auto registration = context.RegisterService<Codec>(ToFactory(factory));
    factory->make = []() -> InterfaceMapConstPtr { throw std::runtime_error("make"); };
    EXPECT_FALSE(context.GetService(registration.GetReference()));
    factory->make = nullptr;
    factory->throwsOnUnget = true;
    context.GetService(registration.GetReference());
    auto const service = context.GetService(registration.GetReference());
    registration.Unregister();
    EXPECT_THAT(
        reports.events,
        ElementsAre(
            "ERROR: ServiceFactory threw an unknown exception. | make",
            "ERROR: ServiceFactory threw an exception | unget",
            "ERROR: ServiceFactory UngetService implementation threw an exception | unget"));
}

TEST_F(ServiceFactoryTest, ReportsRecursion) {
    auto const registration = context.RegisterService<Codec>(ToFactory(factory));
    auto const reference = registration.GetReference();
    bool inner = true;
    factory->make = [&]() -> InterfaceMapConstPtr {
        inner = static_cast<bool>(context.GetService(reference));
        return MakeInterfaceMap<Codec>(codec(5));
    };
    EXPECT_EQ(context.GetService(reference)->number(), 5);
    EXPECT_FALSE(inner);
    std::string const text = "Recursive call to ServiceFactory::GetService";
    EXPECT_THAT(reports.events, ElementsAre("ERROR: " + text + " | " + text));
}

TEST_F(ServiceFactoryTest, ServiceObjectsShareTheBundlesObject) {
    auto const registration = context.RegisterService<Codec>(ToFactory(factory));
    auto const objects = context.GetServiceObjects(registration.GetReference());
    EXPECT_TRUE(objects.GetServiceReference() == registration.GetReference());
    auto const first = objects.GetService();
    auto const second = objects.GetService();
    EXPECT_EQ(first.get(), second.get());
    EXPECT_THAT(factory->take(), ElementsAre("get"));
}

class PrototypeServiceFactoryTest : public RegistryTest {
protected:
    using Factory = CountingFactory<PrototypeServiceFactory>;
    std::shared_ptr<Factory> const factory = std::make_shared<Factory>();
};

TEST_F(PrototypeServiceFactoryTest, MakesAnObjectEachTime) {
    auto const registration = context.RegisterService<Codec>(ToFactory(factory));
    auto const reference = registration.GetReference();
    EXPECT_TRUE(reference.GetProperty("service.scope") == std::string("prototype"));
    auto objects = context.GetServiceObjects(reference);
    auto first = objects.GetService();
    auto second = objects.GetService();
    EXPECT_EQ(first->number(), 1);
    EXPECT_EQ(second->number(), 2);
    first.reset();
    EXPECT_THAT(factory->take(), ElementsAre("get", "get", "unget 1"));
    auto moved = std::move(objects);
    objects = std::move(moved);
    EXPECT_EQ(objects.GetService()->number(), 3);
    EXPECT_TRUE(ServiceReferenceFromService(second) == reference);
}

TEST_F(PrototypeServiceFactoryTest, ContextSharesOneObject) {
    auto const registration = context.RegisterService<Codec>(ToFactory(factory));
    auto const first = context.GetService(registration.GetReference());
    auto const second = context.GetService(registration.GetReference());
    EXPECT_EQ(first.get(), second.get());
    EXPECT_THAT(factory->take(), ElementsAre("get"));
}

TEST_F(PrototypeServiceFactoryTest, GivesAllInterfacesOfOneObject) {
    auto const registration = context.RegisterService<Codec>(ToFactory(factory));
    auto const objects = context.GetServiceObjects(ServiceReferenceU(registration.GetReference()));
    EXPECT_TRUE(objects.GetServiceReference() == ServiceReferenceU(registration.GetReference()));
    auto map = objects.GetService();
    auto pointer = ExtractInterface<Codec>(map);
    map.reset();
    EXPECT_THAT(factory->take(), ElementsAre("get"));
    EXPECT_EQ(pointer->number(), 1);
    pointer.reset();
    EXPECT_THAT(factory->take(), ElementsAre("unget 1"));
}

TEST_F(PrototypeServiceFactoryTest, TakesObjectsBackWhenUnregistered) {
    auto registration = context.RegisterService<Codec>(ToFactory(factory));
    auto objects = context.GetServiceObjects(registration.GetReference());
    auto untyped = context.GetServiceObjects(ServiceReferenceU(registration.GetReference()));
    auto const first = objects.GetService();
    auto const second = objects.GetService();
    factory->take();
    registration.Unregister();
    EXPECT_THAT(factory->take(), testing::UnorderedElementsAre("unget 1", "unget 2"));
    EXPECT_FALSE(objects.GetService());
    EXPECT_FALSE(untyped.GetService());
}

} // namespace
} // namespace registry_test
