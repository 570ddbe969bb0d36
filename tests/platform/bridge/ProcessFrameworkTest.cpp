#include "bridge/ProcessFramework.hpp"

#include "platform/bridge/BridgeFixture.hpp"
#include "support/ThrowsExactly.hpp"

#include <foundation/cppmicroservices/getFramework.hpp>
#include <orvi/frameworksetup/ORVIConfigurationBuilder.hpp>

#include <boost/property_tree/ptree.hpp>

#include <atomic>
#include <latch>
#include <set>
#include <stdexcept>
#include <thread>

namespace agent::orvi::core::test {
namespace {

using cppmicroservices::Bundle;
using cppmicroservices::Framework;
using cppmicroservices::FrameworkEvent;
using cppmicroservices::FrameworkFactory;
using detail::ProcessFramework;
using streambuf::test::throwsExactly;

void stop(Framework& framework) {
    framework.Stop();
    framework.WaitForStop(std::chrono::milliseconds::zero());
}

class ProcessFrameworkTest : public testing::Test {
protected:
    ~ProcessFrameworkTest() override {
        for (Framework& framework : made) {
            stop(framework);
        }
    }

    Framework make() {
        if (failures > 0) {
            --failures;
            throw std::runtime_error("no framework");
        }
        made.push_back(FrameworkFactory().NewFramework());
        return made.back();
    }

    std::shared_ptr<Framework> makeHosts() { return std::make_shared<Framework>(make()); }

    /// Say whether the bridge works on a framework.
    bool isBridged(Framework& framework) {
        frameworksetup::ConfigurationDescription description;
        description.publishers.push_back(
            {"publisher", "", {}, {}, {}, {}, {{"alias", "service", {}}}});
        const frameworksetup::ConfigurationEntry configuration(directory, description);
        auto context = framework.GetBundleContext();
        auto provider = context.RegisterService<ServiceProvider>(
            std::make_shared<FixedProvider>(std::vector{makeInterface("service")}));
        const auto reachable = context.GetServiceReferences<Invokable>().size();
        provider.Unregister();
        return reachable == 1;
    }

    int failures = 0;
    std::vector<Framework> made;
    detail::InterfaceDirectory directory;
    ProcessFramework shared{[this] { return make(); }, directory};
};

TEST_F(ProcessFrameworkTest, MakesAStartedFrameworkOnFirstUse) {
    EXPECT_TRUE(made.empty());
    const auto framework = shared.get();
    EXPECT_EQ(framework->GetState(), Bundle::STATE_ACTIVE);
    EXPECT_TRUE(isBridged(*framework));
    EXPECT_EQ(shared.get(), framework);
    EXPECT_EQ(made.size(), 1U);
}

TEST_F(ProcessFrameworkTest, GivesTheSameOneToManyThreads) {
    constexpr int threadCount = 8;
    std::latch ready(threadCount);
    std::vector<std::shared_ptr<Framework>> got(threadCount);
    std::vector<std::thread> threads;
    for (auto& mine : got) {
        threads.emplace_back([&] {
            ready.arrive_and_wait();
            mine = shared.get();
            EXPECT_EQ(mine->GetState(), Bundle::STATE_ACTIVE);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(std::set(got.begin(), got.end()).size(), 1U);
    EXPECT_EQ(made.size(), 1U);
}

TEST_F(ProcessFrameworkTest, TriesAgainAfterAFailure) {
    failures = 2;
    EXPECT_THAT([&] { shared.get(); }, throwsExactly<std::runtime_error>("no framework"));
    EXPECT_THAT([&] { shared.get(); }, throwsExactly<std::runtime_error>("no framework"));
    EXPECT_EQ(shared.get()->GetState(), Bundle::STATE_ACTIVE);
}

TEST_F(ProcessFrameworkTest, TakesAHostsStartedFramework) {
    const auto hosts = makeHosts();
    hosts->Start();
    const auto provider = hosts->GetBundleContext().RegisterService<ServiceProvider>(
        std::make_shared<FixedProvider>(std::vector{makeInterface("earlier")}));
    directory.configure("earlier", false);
    shared.set(hosts);
    EXPECT_EQ(shared.get(), hosts);
    EXPECT_EQ(hosts->GetBundleContext().GetServiceReferences<Invokable>().size(), 1U);
    directory.unconfigure("earlier", false);
    EXPECT_TRUE(isBridged(*hosts));
    EXPECT_EQ(made.size(), 1U);
}

TEST_F(ProcessFrameworkTest, StartsAHostsFramework) {
    const auto hosts = makeHosts();
    shared.set(hosts);
    EXPECT_EQ(hosts->GetState(), Bundle::STATE_ACTIVE);
    EXPECT_TRUE(isBridged(*hosts));
}

TEST_F(ProcessFrameworkTest, RefusesNoFramework) {
    const auto error =
        throwsExactly<std::invalid_argument>("The process-wide framework must not be null.");
    EXPECT_THAT([&] { shared.set(nullptr); }, error);
    const auto moved = makeHosts();
    const Framework taken = std::move(*moved);
    EXPECT_THAT([&] { shared.set(moved); }, error);
}

TEST_F(ProcessFrameworkTest, RefusesASecondFramework) {
    const auto error =
        throwsExactly<std::logic_error>("Another process-wide framework is in use already.");
    const auto first = shared.get();
    EXPECT_THAT([&] { shared.set(makeHosts()); }, error);
    EXPECT_EQ(shared.get(), first);
    EXPECT_EQ(made.back().GetState(), Bundle::STATE_INSTALLED);
}

TEST_F(ProcessFrameworkTest, TheSameFrameworkMayBeGivenAgain) {
    const auto hosts = makeHosts();
    shared.set(hosts);
    EXPECT_NO_THROW(shared.set(hosts));
    EXPECT_NO_THROW(shared.set(std::make_shared<Framework>(*hosts)));
    EXPECT_EQ(shared.get(), hosts);
}

TEST_F(ProcessFrameworkTest, AFrameworkThatCannotBeStartedIsNotSet) {
    // It cannot start while it stops, and it stops for as long as a bundle listener likes.
    const auto hosts = makeHosts();
    hosts->Start();
    std::latch stopping(1);
    std::latch mayStop(1);
    hosts->GetBundleContext().AddBundleListener([&](const cppmicroservices::BundleEvent&) {
        stopping.count_down();
        mayStop.wait();
    });
    hosts->Stop();
    stopping.wait();
    EXPECT_ANY_THROW(shared.set(hosts));
    const auto framework = shared.get();
    EXPECT_NE(framework, hosts);
    EXPECT_EQ(framework->GetState(), Bundle::STATE_ACTIVE);
    mayStop.count_down();
    stop(*hosts);
}

TEST_F(ProcessFrameworkTest, GivesTheFrameworkToWhomItsStartCalls) {
    const auto hosts = makeHosts();
    hosts->Init();
    std::shared_ptr<Framework> inside;
    std::shared_ptr<Framework> elsewhere;
    std::thread other;
    std::latch asking(1);
    std::atomic<bool> started{false};
    hosts->GetBundleContext().AddFrameworkListener([&](const FrameworkEvent& event) {
        if (event.GetType() == FrameworkEvent::FRAMEWORK_STARTED) {
            inside = shared.get();
            other = std::thread([&] {
                asking.count_down();
                elsewhere = shared.get(); // waits for the start
                EXPECT_TRUE(started);
            });
            asking.wait();
            started = true;
        }
    });
    shared.set(hosts);
    EXPECT_EQ(inside, hosts);
    other.join();
    EXPECT_EQ(elsewhere, hosts);
}

TEST_F(ProcessFrameworkTest, KeepsAStoppedFramework) {
    const auto framework = shared.get();
    stop(*framework);
    EXPECT_EQ(shared.get(), framework);
    EXPECT_NE(framework->GetState(), Bundle::STATE_ACTIVE);
    EXPECT_FALSE(framework->GetBundleContext());
}

TEST_F(ProcessFrameworkTest, WorksAgainOnAFrameworkThatItsHostStartedAgain) {
    const auto framework = shared.get();
    stop(*framework);
    framework->Start();
    EXPECT_EQ(shared.get(), framework);
    EXPECT_TRUE(isBridged(*framework));
    EXPECT_EQ(shared.get(), framework);
    EXPECT_TRUE(isBridged(*framework));
}

TEST(GetFrameworkTest, BuiltConfigurationsWorkOnTheFrameworkOfTheProcess) {
    const auto framework = foundation::cppmicroservices::getFramework();
    EXPECT_EQ(foundation::cppmicroservices::getFramework(), framework);
    EXPECT_THROW(
        foundation::cppmicroservices::setFramework(
            std::make_shared<Framework>(FrameworkFactory().NewFramework())),
        std::logic_error);
    auto context = framework->GetBundleContext();
    auto provider = context.RegisterService<ServiceProvider>(
        std::make_shared<FixedProvider>(std::vector{makeInterface("service")}));
    frameworksetup::ORVIConfigurationBuilder builder("test");
    builder.addServicePublisher("publisher", "kind", {}, {}, "", "")
        .addServiceInterfaceToServicePublisher("publisher", "alias", "service", {});
    auto configuration = builder.build();
    const auto isReachable = [&] {
        return !context.GetServiceReferences<Invokable>("(orvi.servicename=service)").empty();
    };
    EXPECT_TRUE(isReachable());
    configuration.reset();
    EXPECT_FALSE(isReachable());
    provider.Unregister();
}

} // namespace
} // namespace agent::orvi::core::test
