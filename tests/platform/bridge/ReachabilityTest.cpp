#include "platform/bridge/BridgeFixture.hpp"

#include <cppmicroservices/Constants.h>
#include <cppmicroservices/ServiceEvent.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <latch>
#include <stdexcept>
#include <thread>

namespace agent::orvi::core::test {
namespace {

using cppmicroservices::Any;
using cppmicroservices::any_cast;
using cppmicroservices::ServiceEvent;
using testing::UnorderedElementsAre;

class ReachabilityTest : public BridgeFixture {};

/// The letters say what happens: p and P, a provider comes and goes; c and C, a configuration.
class ReachabilityOrderTest : public BridgeFixture,
                              public testing::WithParamInterface<std::string> {};

TEST_P(ReachabilityOrderTest, LastsWhileProviderAndConfigurationAreThere) {
    ProviderRegistration provider;
    Configuration configuration;
    bool provided = false;
    for (const char event : GetParam()) {
        switch (event) {
        case 'p':
            provider = provide({makeInterface("service")});
            provided = true;
            break;
        case 'P':
            provider.Unregister();
            provided = false;
            break;
        case 'c':
            configuration = configure({"service"});
            break;
        default:
            configuration.reset();
        }
        EXPECT_EQ(isReachable("service"), provided && configuration) << "after " << event;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Once, ReachabilityOrderTest, testing::Values("pPcC", "cCpP", "pcPC", "pcCP", "cpPC", "cpCP"));
INSTANTIATE_TEST_SUITE_P(
    Again, ReachabilityOrderTest,
    testing::Values("pcCcCP", "cpPpPC", "pcPCpcCP", "cpCPcpPC", "pcPpCc", "cpCcPp"));

TEST_F(ReachabilityTest, PropertiesAreTheNameAndTheMetadata) {
    const auto provider = provide({MultiMethodInterfaceBuilder("service", APIVersion(1, 0))
                                       .addMetadata("hasRead", "true")
                                       .addMetadata("bufferSize", "4096")
                                       .addMetadata("empty", "")
                                       .build()});
    const auto configuration = configure({"service"});
    const auto found = references("service");
    ASSERT_EQ(found.size(), 1U);
    EXPECT_THAT(
        found.front().GetPropertyKeys(),
        UnorderedElementsAre(
            "orvi.servicename", "orvi.serviceproperty.hasRead", "orvi.serviceproperty.bufferSize",
            "orvi.serviceproperty.empty", cppmicroservices::Constants::OBJECTCLASS,
            cppmicroservices::Constants::SERVICE_ID, cppmicroservices::Constants::SERVICE_SCOPE));
    const auto text = [&](const std::string& key) {
        return any_cast<std::string>(found.front().GetProperty(key));
    };
    EXPECT_EQ(text("orvi.servicename"), "service");
    EXPECT_EQ(text("orvi.serviceproperty.hasRead"), "true");
    EXPECT_EQ(text("orvi.serviceproperty.bufferSize"), "4096");
    EXPECT_EQ(text("orvi.serviceproperty.empty"), "");
}

TEST_F(ReachabilityTest, SaysThatItIsForOtherProcessesWhileAConfigurationSaysSo) {
    const auto isExported = [&] {
        const cppmicroservices::Any value =
            references("service").at(0).GetProperty("service.exported.interfaces");
        return !value.Empty() && any_cast<std::string>(value) == "*";
    };
    const std::set<std::string> everywhere{"connectToAllEndpoints"};
    const auto provider = provide({makeInterface("service")});
    const auto local = configure({"service"}, {"somewhere"});
    EXPECT_FALSE(isExported());
    auto first = configure({"service"}, everywhere);
    EXPECT_TRUE(isExported());
    auto second = configure({"service"}, everywhere);
    first.reset();
    EXPECT_TRUE(isExported());
    const auto younger = provide({makeInterface("service")});
    EXPECT_FALSE(references("service").at(1).GetProperty("service.exported.interfaces").Empty());
    second.reset();
    EXPECT_FALSE(isExported());
    EXPECT_EQ(references("service").size(), 2U);
}

TEST_F(ReachabilityTest, OtherInterfacesOfAProviderStayOut) {
    const auto provider =
        provide({makeInterface("first"), makeInterface("second"), makeInterface("third")});
    const auto configuration = configure({"first", "third", "absent"});
    EXPECT_TRUE(isReachable("first"));
    EXPECT_FALSE(isReachable("second"));
    EXPECT_TRUE(isReachable("third"));
    EXPECT_FALSE(isReachable("absent"));
    EXPECT_EQ(context().GetServiceReferences<Invokable>().size(), 2U);
}

TEST_F(ReachabilityTest, NamingAnInterfaceTwiceChangesNothing) {
    auto provider = provide({makeInterface("service")});
    auto first = configure({"service", "service"});
    auto second = configure({"service"});
    EXPECT_EQ(references("service").size(), 1U);
    first.reset();
    EXPECT_EQ(references("service").size(), 1U);
    second.reset();
    EXPECT_FALSE(isReachable("service"));
}

TEST_F(ReachabilityTest, TwoProvidersOfOneNameStandSideBySide) {
    std::vector<std::string> ran;
    auto older = provide({makeInterface("service", [&] { ran.push_back("older"); })});
    auto configuration = configure({"service"});
    auto younger = provide({makeInterface("service", [&] { ran.push_back("younger"); })});
    const auto both = find("service");
    ASSERT_EQ(both.size(), 2U);
    EXPECT_TRUE(runs(*both[0]));
    EXPECT_TRUE(runs(*both[1]));
    EXPECT_THAT(ran, testing::ElementsAre("older", "younger"));

    older.Unregister();
    EXPECT_FALSE(runs(*both[0]));
    EXPECT_TRUE(runs(*both[1]));
    EXPECT_EQ(find("service"), std::vector{both[1]});
}

TEST_F(ReachabilityTest, EndingTheYoungerOfTwoLeavesTheOlder) {
    auto older = provide({makeInterface("service")});
    auto younger = provide({makeInterface("service")});
    const auto configuration = configure({"service"});
    const auto both = find("service");
    ASSERT_EQ(both.size(), 2U);
    younger.Unregister();
    EXPECT_EQ(find("service"), std::vector{both[0]});
    EXPECT_TRUE(runs(*both[0]));
    EXPECT_FALSE(runs(*both[1]));
}

TEST_F(ReachabilityTest, TheOlderOfTwoIsFoundFirstWhenTheConfigurationComesLast) {
    std::vector<std::string> ran;
    const auto older = provide({makeInterface("service", [&] { ran.push_back("older"); })});
    const auto younger = provide({makeInterface("service", [&] { ran.push_back("younger"); })});
    const auto configuration = configure({"service"});
    const auto both = find("service");
    ASSERT_EQ(both.size(), 2U);
    EXPECT_TRUE(runs(*both[0]));
    EXPECT_THAT(ran, testing::ElementsAre("older"));
}

TEST_F(ReachabilityTest, ComesBackAsANewServiceThatRuns) {
    auto provider = provide({makeInterface("service")});
    auto configuration = configure({"service"});
    const auto before = find("service").front();
    configuration.reset();
    configuration = configure({"service"});
    const auto after = find("service").front();
    EXPECT_NE(before, after);
    EXPECT_FALSE(runs(*before));
    EXPECT_TRUE(runs(*after));
}

TEST_F(ReachabilityTest, ReadsTheInterfacesOncePerRegistration) {
    const auto provider = std::make_shared<FixedProvider>(std::vector{makeInterface("service")});
    auto registration = provide(provider);
    for (int round = 0; round < 3; ++round) {
        configure({"service"}).reset();
    }
    EXPECT_EQ(provider->timesAsked, 1);
    registration.Unregister();
    registration = provide(provider);
    EXPECT_EQ(provider->timesAsked, 2);
}

TEST_F(ReachabilityTest, ChangedPropertiesOfAProviderChangeNothing) {
    const auto provider = std::make_shared<FixedProvider>(std::vector{makeInterface("service")});
    auto registration = provide(provider);
    const auto configuration = configure({"service"});
    const auto before = find("service");
    registration.SetProperties({{"key", std::string("value")}});
    EXPECT_EQ(find("service"), before);
    EXPECT_EQ(provider->timesAsked, 1);
}

class ThrowingProvider : public ServiceProvider {
public:
    std::vector<ServiceInterface> getServiceInterfaces() override { throw 1; }
};

TEST_F(ReachabilityTest, AProviderThatCannotDescribeItselfDisturbsNobody) {
    const auto configuration = configure({"service"});
    auto throwing = provide(std::make_shared<ThrowingProvider>());
    EXPECT_TRUE(throwing);
    const auto provider = provide({makeInterface("service")});
    EXPECT_EQ(references("service").size(), 1U);
    throwing.Unregister();
    EXPECT_EQ(references("service").size(), 1U);
}

/// The registry refuses it: its properties would differ in case only.
ServiceInterface unfitInterface(std::string name) {
    return {std::move(name), APIVersion(1, 0), {{"key", "1"}, {"KEY", "2"}}, {}};
}

TEST_F(ReachabilityTest, AnInterfaceThatTheRegistryRefusesDisturbsNoOther) {
    auto configuration = configure({"first", "unfit", "last"});
    auto provider =
        provide({makeInterface("first"), unfitInterface("unfit"), makeInterface("last")});
    EXPECT_TRUE(provider);
    EXPECT_TRUE(isReachable("first"));
    EXPECT_FALSE(isReachable("unfit"));
    EXPECT_TRUE(isReachable("last"));
    configuration.reset();
    provider.Unregister();
}

TEST_F(ReachabilityTest, AConfigurationThatTheRegistryRefusesIsNotInForce) {
    const auto provider =
        provide({makeInterface("first"), unfitInterface("second"), makeInterface("third")});
    EXPECT_THROW(configure({"first", "second", "third"}), std::runtime_error);
    EXPECT_FALSE(isReachable("first"));
    EXPECT_FALSE(isReachable("third"));

    const auto other = provide({makeInterface("second")});
    EXPECT_FALSE(isReachable("second"));
    const auto configuration = configure({"first"});
    EXPECT_TRUE(isReachable("first"));
}

TEST_F(ReachabilityTest, AServiceThatIsNoProviderIsNotAsked) {
    struct Unrelated {};

    const auto configuration = configure({"service"});
    auto other = context().RegisterService<Unrelated>(std::make_shared<Unrelated>());
    EXPECT_FALSE(isReachable("service"));
    other.Unregister();
}

TEST_F(ReachabilityTest, MayBeEndedWhileTheRegistryAnnouncesIt) {
    auto provider = provide({makeInterface("service")});
    Configuration configuration;
    std::shared_ptr<Invokable> announced;
    context().AddServiceListener([&](const ServiceEvent& event) {
        const auto reference = event.GetServiceReference<Invokable>();
        if (event.GetType() == ServiceEvent::SERVICE_REGISTERED && reference) {
            announced = context().GetService(reference);
            if (announced) {
                provider.Unregister();
                EXPECT_FALSE(runs(*announced));
            }
        }
    });
    configuration = configure({"service"});
    ASSERT_TRUE(announced);
    EXPECT_FALSE(isReachable("service"));
    EXPECT_FALSE(runs(*announced));
}

TEST_F(ReachabilityTest, EndsAtOnceWhileAnotherThreadAnnouncesIt) {
    auto provider = provide({makeInterface("service")});
    std::latch announcing(1);
    std::latch mayGoOn(1);
    context().AddServiceListener([&](const ServiceEvent& event) {
        const auto reference = event.GetServiceReference<Invokable>();
        if (event.GetType() == ServiceEvent::SERVICE_REGISTERED &&
            any_cast<std::vector<std::string>>(reference.GetProperty("objectclass")).front() ==
                us_service_interface_iid<Invokable>()) {
            announcing.count_down();
            mayGoOn.wait();
        }
    });
    Configuration configuration;
    std::thread opener([&] { configuration = configure({"service"}); });
    announcing.wait();
    const auto announced = find("service").front();
    EXPECT_TRUE(runs(*announced));
    provider.Unregister();
    EXPECT_FALSE(runs(*announced));
    mayGoOn.count_down();
    opener.join();
    EXPECT_FALSE(isReachable("service"));
    EXPECT_FALSE(runs(*announced));
}

class AttachTest : public BridgeFixture {
    void SetUp() override {}
};

TEST_F(AttachTest, SeesProvidersThatWereRegisteredBefore) {
    std::vector<std::string> ran;
    auto older = provide({makeInterface("service", [&] { ran.push_back("older"); })});
    auto preferred = provide(
        std::make_shared<FixedProvider>(
            std::vector{makeInterface("service", [&] { ran.push_back("preferred"); })}),
        {{cppmicroservices::Constants::SERVICE_RANKING, 7}});
    const auto configuration = configure({"service"});
    EXPECT_FALSE(isReachable("service"));
    bridge = detail::Bridge::attach(framework, directory);
    const auto both = find("service");
    ASSERT_EQ(both.size(), 2U);
    EXPECT_TRUE(runs(*both[0]));
    EXPECT_THAT(ran, testing::ElementsAre("older"));
    older.Unregister();
    preferred.Unregister();
    EXPECT_FALSE(isReachable("service"));
}

TEST_F(AttachTest, FailsOnAFrameworkWithoutAContext) {
    stopFramework();
    EXPECT_ANY_THROW(detail::Bridge::attach(framework, directory));
}

TEST_F(AttachTest, SeesAProviderOnceThatComesMeanwhile) {
    // The first provider's description registers the second while the bridge looks around.
    class Registering : public ServiceProvider {
    public:
        explicit Registering(std::function<void()> action)
            : action(std::move(action)) {}

        std::vector<ServiceInterface> getServiceInterfaces() override {
            action();
            return {};
        }

    private:
        std::function<void()> action;
    };

    ProviderRegistration second;
    const auto late = std::make_shared<FixedProvider>(std::vector{makeInterface("service")});
    const auto first = provide(std::make_shared<Registering>([&] { second = provide(late); }));
    const auto configuration = configure({"service"});
    bridge = detail::Bridge::attach(framework, directory);
    EXPECT_EQ(references("service").size(), 1U);
    EXPECT_EQ(late->timesAsked, 1);
}

TEST_F(AttachTest, MissesAProviderThatGoesMeanwhile) {
    class Unregistering : public ServiceProvider {
    public:
        explicit Unregistering(ProviderRegistration& other)
            : other(other) {}

        std::vector<ServiceInterface> getServiceInterfaces() override {
            other.Unregister();
            return {};
        }

    private:
        ProviderRegistration& other;
    };

    ProviderRegistration second;
    const auto first = provide(std::make_shared<Unregistering>(second));
    second = provide({makeInterface("service")});
    const auto configuration = configure({"service"});
    bridge = detail::Bridge::attach(framework, directory);
    EXPECT_FALSE(isReachable("service"));
}

TEST_F(AttachTest, TwoFrameworksOfOneDirectoryKeepToThemselves) {
    bridge = detail::Bridge::attach(framework, directory);
    auto other = cppmicroservices::FrameworkFactory().NewFramework();
    other.Start();
    detail::Bridge::attach(other, directory);
    const auto configuration = configure({"service"});
    auto provider = other.GetBundleContext().RegisterService<ServiceProvider>(
        std::make_shared<FixedProvider>(std::vector{makeInterface("service")}));
    EXPECT_FALSE(isReachable("service"));
    EXPECT_EQ(other.GetBundleContext().GetServiceReferences<Invokable>().size(), 1U);
    other.Stop();
    other.WaitForStop(std::chrono::milliseconds::zero());
}

} // namespace
} // namespace agent::orvi::core::test
