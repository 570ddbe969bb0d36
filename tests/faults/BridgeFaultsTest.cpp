#include "allocations/FailingAllocation.hpp"
#include "platform/bridge/BridgeFixture.hpp"

#include <cstddef>
#include <new>

namespace agent::orvi::core::test {
namespace {

using orvi::test::failEachAllocation;
using orvi::test::FailingAllocation;

/// Fails each allocation while interfaces become reachable, or cease to be.
class BridgeFaults : public BridgeFixture {
protected:
    std::size_t found(const std::string& name) { return find(name).size(); }

    /// Say whether the only service of a name is for other processes, too.
    bool isShownAsExported(const std::string& name) {
        return !references(name).at(0).GetProperty("service.exported.interfaces").Empty();
    }
};

TEST_F(BridgeFaults, AConfigurationThatFailsHasNoEffect) {
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        auto provider = provide({makeInterface("one"), makeInterface("two")});
        Configuration configuration;
        const bool done = failure.allows([&] {
            configuration = configure({"one", "two"}, {"connectToAllEndpoints"});
        });
        EXPECT_EQ(found("one"), done ? 1U : 0U);
        EXPECT_EQ(found("two"), done ? 1U : 0U);
        configuration.reset();
        EXPECT_FALSE(isReachable("one"));
        provider.Unregister();
    });
    EXPECT_GT(failures, 50U);
}

TEST_F(BridgeFaults, AMissedProviderIsSeenBeforeTheNextConfiguration) {
    const auto configuration = configure({"one", "two"});
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        ProviderRegistration provider;
        const bool done = failure.allows([&] {
            provider = provide({makeInterface("one"), makeInterface("two")});
        });
        if (done) {
            bridge->seeMissed();
            EXPECT_EQ(found("one"), 1U);
            EXPECT_EQ(found("two"), 1U);
            provider.Unregister();
        }
        EXPECT_FALSE(isReachable("one"));
        EXPECT_FALSE(isReachable("two"));
    });
    EXPECT_GT(failures, 50U);
}

TEST_F(BridgeFaults, ARegistrationThatIsNotSeenIsReported) {
    const auto configuration = configure({"service"});
    const auto provider = std::make_shared<FixedProvider>(std::vector{makeInterface("service")});
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        int reports = 0;
        auto token =
            context().AddFrameworkListener([&](const cppmicroservices::FrameworkEvent& event) {
                reports +=
                    event.GetType() == cppmicroservices::FrameworkEvent::FRAMEWORK_ERROR ? 1 : 0;
            });
        ProviderRegistration registration;
        if (failure.allows([&] { registration = provide(provider); })) {
            EXPECT_EQ(reports, isReachable("service") ? 0 : 1);
            registration.Unregister();
        }
        context().RemoveListener(std::move(token));
    });
    EXPECT_GT(failures, 50U);
}

/// Asks for more memory than there is.
class ImpossibleProvider : public ServiceProvider {
public:
    std::vector<ServiceInterface> getServiceInterfaces() override {
        ++timesAsked;
        throw std::bad_alloc();
    }

    int timesAsked = 0;
};

TEST_F(BridgeFaults, AProviderThatAsksForTheImpossibleStopsOthersOnlyOnce) {
    const auto impossible = std::make_shared<ImpossibleProvider>();
    const auto first = provide(impossible);
    EXPECT_THROW(bridge->seeMissed(), std::bad_alloc);
    EXPECT_NO_THROW(bridge->seeMissed());
    EXPECT_EQ(impossible->timesAsked, 2);
}

TEST_F(BridgeFaults, TheEndOfAConfigurationClosesWhateverFailsInIt) {
    const auto provider = provide({makeInterface("one"), makeInterface("two")});
    failEachAllocation([&](FailingAllocation& failure) {
        Configuration configuration = configure({"one", "two"});
        const auto service = find("one").at(0);
        EXPECT_TRUE(failure.allows([&] { configuration.reset(); }));
        EXPECT_FALSE(isReachable("one"));
        EXPECT_FALSE(isReachable("two"));
        EXPECT_FALSE(runs(*service));
    });
}

TEST_F(BridgeFaults, AServiceThatOtherProcessesStillSeeIsHiddenAtTheNextChange) {
    const auto provider = provide({makeInterface("service")});
    const auto configuration = configure({"service"});
    std::size_t stillShown = 0;
    failEachAllocation([&](FailingAllocation& failure) {
        Configuration everywhere = configure({"service"}, {"connectToAllEndpoints"});
        EXPECT_TRUE(isShownAsExported("service"));
        EXPECT_TRUE(failure.allows([&] { everywhere.reset(); }));
        stillShown += isShownAsExported("service") ? 1 : 0;
        configure({"service"}).reset();
        EXPECT_FALSE(isShownAsExported("service"));
    });
    EXPECT_GT(stillShown, 0U);
}

TEST_F(BridgeFaults, StoppingClosesWhateverFailsInIt) {
    const auto configuration = configure({"service"});
    failEachAllocation([&](FailingAllocation& failure) {
        auto provider = provide({makeInterface("service")});
        const auto service = find("service").at(0);
        EXPECT_TRUE(failure.allows([&] { bridge->stop(); }));
        EXPECT_FALSE(isReachable("service"));
        EXPECT_FALSE(runs(*service));
        provider.Unregister();
        bridge = detail::Bridge::attach(framework, directory);
    });
}

TEST_F(BridgeFaults, ACallFailsAtItsCallerOrSucceeds) {
    const auto provider = provide({makeInterface("service")});
    const auto configuration = configure({"service"});
    const auto service = find("service").at(0);
    failEachAllocation([&](FailingAllocation& failure) {
        Outcome outcome;
        const std::string method = "run";
        if (failure.allows([&] {
                service->invoke(std::nullopt, method, outcome.handler(), GenericPayload(), false);
            })) {
            EXPECT_EQ(outcome.successes + outcome.errors, 1);
        } else {
            EXPECT_EQ(outcome.successes + outcome.errors, 0);
        }
        EXPECT_TRUE(runs(*service));
    });
}

} // namespace
} // namespace agent::orvi::core::test
