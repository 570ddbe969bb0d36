#include "allocations/FailingAllocation.hpp"
#include "platform/registry/RegistryFixture.hpp"

#include <cppmicroservices/PrototypeServiceFactory.h>
#include <cppmicroservices/ServiceFactory.h>
#include <cppmicroservices/ServiceObjects.h>
#include <cppmicroservices/ServiceTracker.h>

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <vector>

namespace registry_test {
namespace {

using agent::orvi::test::failEachAllocation;
using agent::orvi::test::FailingAllocation;

/// Counts what it has made and not got back. It takes back without memory.
template <class Base>
struct LendingFactory : Base {
    InterfaceMapConstPtr GetService(Bundle const&, ServiceRegistrationBase const&) override {
        InterfaceMapConstPtr made = MakeInterfaceMap<Codec>(codec(1));
        ++lent;
        return made;
    }

    void UngetService(
        Bundle const&, ServiceRegistrationBase const&, InterfaceMapConstPtr const&) override {
        --lent;
        if (throws) {
            throw std::runtime_error("unget");
        }
    }

    int lent = 0;
    bool throws = false;
};

/// Fails each allocation of an operation of the registry.
class RegistryFaults : public RegistryTest {
protected:
    std::size_t registered() { return context.GetServiceReferences<Codec>().size(); }
};

std::string const shortText = "short";
std::string const longText = "a text that no string holds in place";

/// A framework with so many services that it does not look at each.
class ManyServices {
public:
    ManyServices() {
        framework.Start();
        for (int count = 0; count < 50; ++count) {
            registrations.push_back(add(std::to_string(count)));
        }
    }

    ~ManyServices() {
        framework.Stop();
        framework.WaitForStop(std::chrono::milliseconds::zero());
    }

    ServiceRegistration<Codec> add(std::string const& text) {
        return framework.GetBundleContext().RegisterService<Codec>(codec(), {{"key", text}});
    }

    std::size_t found(std::string const& text) {
        return framework.GetBundleContext()
            .GetServiceReferences<Codec>("(key=" + text + ")")
            .size();
    }

private:
    Framework framework = FrameworkFactory().NewFramework();
    std::vector<ServiceRegistration<Codec>> registrations;
};

TEST_F(RegistryFaults, AServiceIsRegisteredWholeOrNotAtAll) {
    ServiceTracker<Codec> tracker(context);
    tracker.Open();
    const auto service = codec(1);
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        ServiceRegistration<Codec> registration;
        const bool done = failure.allows([&] {
            registration = context.RegisterService<Codec>(service, {{"key", std::string("value")}});
        });
        EXPECT_EQ(registered(), done ? 1U : 0U);
        if (done) {
            registration.Unregister();
        }
        EXPECT_EQ(registered(), 0U);
        EXPECT_TRUE(tracker.IsEmpty());
        EXPECT_EQ(service.use_count(), 1) << "nobody keeps it";
    });
    EXPECT_GT(failures, 10U);
}

TEST_F(RegistryFaults, TheEndOfAServiceReachesEveryListener) {
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        int ends = 0;
        const auto listener = [&ends](ServiceEvent const& event) {
            ends += event.GetType() == ServiceEvent::SERVICE_UNREGISTERING ? 1 : 0;
        };
        std::vector<ListenerToken> tokens;
        tokens.push_back(context.AddServiceListener(listener));
        tokens.push_back(context.AddServiceListener(listener, "(key=value)"));
        tokens.push_back(context.AddServiceListener(listener, "(key=other)"));
        auto registration =
            context.RegisterService<Codec>(codec(), {{"key", std::string("value")}});
        EXPECT_TRUE(failure.allows([&] { registration.Unregister(); }));
        EXPECT_EQ(ends, 2);
        EXPECT_EQ(registered(), 0U);
        for (ListenerToken& token : tokens) {
            context.RemoveListener(std::move(token));
        }
    });
    EXPECT_GT(failures, 0U);
}

TEST_F(RegistryFaults, ALookUpAmongManyServicesFindsThemAllOrThrows) {
    const std::size_t failures = failEachAllocation([](FailingAllocation& failure) {
        ManyServices services;
        std::size_t found = 0;
        if (failure.allows([&] { found = services.found("7"); })) {
            EXPECT_EQ(found, 1U);
        }
        EXPECT_EQ(services.found("7"), 1U);
        EXPECT_EQ(services.found("8"), 1U);
    });
    EXPECT_GT(failures, 50U);
}

TEST_F(RegistryFaults, AServiceAmongManyIsRegisteredWholeOrNotAtAll) {
    ManyServices services;
    EXPECT_EQ(services.found(shortText), 0U);
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        ServiceRegistration<Codec> registration;
        const bool done = failure.allows([&] { registration = services.add(longText); });
        EXPECT_EQ(services.found(longText), done ? 1U : 0U);
        if (done) {
            registration.Unregister();
        }
        EXPECT_EQ(services.found(longText), 0U);
    });
    EXPECT_GT(failures, 10U);
}

TEST_F(RegistryFaults, AServiceAmongManyIsFoundByThePropertiesThatItHas) {
    ManyServices services;
    auto registration = services.add(shortText);
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        registration.SetProperties({{"key", shortText}});
        EXPECT_EQ(services.found(shortText), 1U);
        if (failure.allows([&] { registration.SetProperties({{"key", longText}}); })) {
            EXPECT_EQ(services.found(longText), 1U);
        }
        const auto text = any_cast<std::string>(registration.GetReference().GetProperty("key"));
        EXPECT_EQ(services.found(shortText), text == shortText ? 1U : 0U);
        EXPECT_EQ(services.found(longText), text == longText ? 1U : 0U);
        EXPECT_EQ(services.found("7"), 1U);
    });
    EXPECT_GT(failures, 10U);
}

TEST_F(RegistryFaults, AListenerIsAddedWholeOrNotAtAll) {
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        int heard = 0;
        ListenerToken token;
        const bool done = failure.allows([&] {
            token = context.AddServiceListener(
                [&heard](ServiceEvent const&) { ++heard; }, "(objectclass=registry_test::Codec)");
        });
        auto registration = registerCodec();
        EXPECT_EQ(heard, done ? 1 : 0);
        registration.Unregister();
        context.RemoveListener(std::move(token));
    });
    EXPECT_GT(failures, 5U);
}

TEST_F(RegistryFaults, AFactoryGetsBackWhatItHasMade) {
    const auto factory = std::make_shared<LendingFactory<ServiceFactory>>();
    auto registration = context.RegisterService<Codec>(ToFactory(factory));
    const auto reference = registration.GetReference();
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        std::shared_ptr<Codec> service;
        failure.allows([&] { service = context.GetService(reference); });
        EXPECT_TRUE(service || failure.happened());
        EXPECT_EQ(factory->lent, service ? 1 : 0);
        service.reset();
        EXPECT_EQ(factory->lent, 0);
    });
    EXPECT_GT(failures, 3U);
}

TEST_F(RegistryFaults, APrototypeFactoryGetsBackWhatItHasMade) {
    const auto factory = std::make_shared<LendingFactory<PrototypeServiceFactory>>();
    auto registration = context.RegisterService<Codec>(ToFactory(factory));
    auto objects = context.GetServiceObjects(registration.GetReference());
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        std::shared_ptr<Codec> service;
        failure.allows([&] { service = objects.GetService(); });
        EXPECT_TRUE(service || failure.happened());
        EXPECT_EQ(factory->lent, service ? 1 : 0);
        service.reset();
        EXPECT_EQ(factory->lent, 0);
    });
    EXPECT_GT(failures, 3U);
}

TEST_F(RegistryFaults, AUseEndsWhateverFailsInIt) {
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        const auto factory = std::make_shared<LendingFactory<ServiceFactory>>();
        factory->throws = true;
        auto registration = context.RegisterService<Codec>(ToFactory(factory));
        auto service = context.GetService(registration.GetReference());
        EXPECT_TRUE(failure.allows([&] { service.reset(); }));
        EXPECT_EQ(factory->lent, 0);
        registration.Unregister();
    });
    EXPECT_GT(failures, 0U) << "for the text of the error that the factory throws";
}

TEST_F(RegistryFaults, TheEndOfAServiceReturnsItsObjectsWhateverFailsInIt) {
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        const auto factory = std::make_shared<LendingFactory<PrototypeServiceFactory>>();
        factory->throws = true;
        auto registration = context.RegisterService<Codec>(ToFactory(factory));
        auto objects = context.GetServiceObjects(registration.GetReference());
        const auto shared = context.GetService(registration.GetReference());
        const auto one = objects.GetService();
        const auto two = objects.GetService();
        EXPECT_EQ(factory->lent, 3);
        EXPECT_TRUE(failure.allows([&] { registration.Unregister(); }));
        EXPECT_EQ(factory->lent, 0);
    });
    EXPECT_GT(failures, 0U);
}

} // namespace
} // namespace registry_test
