#include "platform/bridge/BridgeFixture.hpp"
#include "support/ThrowsExactly.hpp"

#include <orvi/frameworksetup/ORVIConfiguration.hpp>
#include <orvi/frameworksetup/ORVIConfigurationBuilder.hpp>

#include <boost/property_tree/ptree.hpp>

#include <stdexcept>
#include <type_traits>

namespace agent::orvi::frameworksetup {
namespace {

using core::test::makeInterface;
using core::test::runs;
using streambuf::test::throwsExactly;

static_assert(std::is_nothrow_default_constructible_v<ORVIConfiguration>);
static_assert(std::is_nothrow_move_constructible_v<ORVIConfiguration>);
static_assert(std::is_nothrow_move_assignable_v<ORVIConfiguration>);
static_assert(!std::is_copy_constructible_v<ORVIConfiguration>);
static_assert(noexcept(std::declval<ORVIConfiguration&>().reset()));

/// Built configurations and a framework whose bridge they work on.
class ORVIConfigurationTest : public core::test::BridgeFixture {
protected:
    void SetUp() override {
        bridge =
            core::detail::Bridge::attach(framework, core::detail::InterfaceDirectory::ofProcess());
        first = provide({makeInterface("first")});
        second = provide({makeInterface("second")});
    }

    static ORVIConfiguration build(const std::string& serviceInterface) {
        ORVIConfigurationBuilder builder{std::string()};
        builder.addServicePublisher("publisher", "kind", {}, {}, "", "")
            .addServiceInterfaceToServicePublisher("publisher", "alias", serviceInterface, {});
        return builder.build();
    }

    ProviderRegistration first;
    ProviderRegistration second;
};

TEST_F(ORVIConfigurationTest, EndsWithReset) {
    ORVIConfiguration configuration = build("first");
    EXPECT_TRUE(isReachable("first"));
    configuration.reset();
    EXPECT_FALSE(isReachable("first"));
    configuration.reset();
    EXPECT_FALSE(isReachable("first"));
}

TEST_F(ORVIConfigurationTest, EndsWithItsDestruction) {
    {
        const ORVIConfiguration configuration = build("first");
        EXPECT_TRUE(isReachable("first"));
    }
    EXPECT_FALSE(isReachable("first"));
}

TEST_F(ORVIConfigurationTest, ADefaultOneConfiguresNothing) {
    ORVIConfiguration configuration;
    configuration.reset();
    EXPECT_FALSE(isReachable("first"));
}

TEST_F(ORVIConfigurationTest, MovesWithoutAnInterruption) {
    ORVIConfiguration configuration = build("first");
    const auto service = find("first").front();
    ORVIConfiguration moved = std::move(configuration);
    configuration.reset(); // NOLINT(bugprone-use-after-move): it configures nothing now
    EXPECT_TRUE(runs(*service));
    EXPECT_EQ(find("first"), std::vector{service});
    moved.reset();
    EXPECT_FALSE(runs(*service));
}

TEST_F(ORVIConfigurationTest, AssignmentEndsTheFormerOne) {
    ORVIConfiguration configuration = build("first");
    configuration = build("second");
    EXPECT_FALSE(isReachable("first"));
    EXPECT_TRUE(isReachable("second"));
    configuration = ORVIConfiguration();
    EXPECT_FALSE(isReachable("second"));
}

TEST_F(ORVIConfigurationTest, AssignmentToItselfChangesNothing) {
    ORVIConfiguration configuration = build("first");
    ORVIConfiguration& same = configuration;
    configuration = std::move(same);
    EXPECT_TRUE(isReachable("first"));
}

class ORVIConfigurationBuilderTest : public ORVIConfigurationTest {
protected:
    ORVIConfigurationBuilder builder{std::string()};
};

TEST_F(ORVIConfigurationBuilderTest, TakesAllPublishersAndInterfaces) {
    builder.addServicePublisher("one", "", {"connectToAllEndpoints"}, {"two"}, "text", "scope")
        .addServicePublisher("two", "", {}, {}, "", "")
        .addServiceInterfaceToServicePublisher("two", "", "second", {})
        .addServiceInterfaceToServicePublisher("one", "", "first", {});
    const ORVIConfiguration configuration = builder.build();
    EXPECT_TRUE(isReachable("first"));
    EXPECT_TRUE(isReachable("second"));
}

TEST_F(ORVIConfigurationBuilderTest, EachBuildIsAConfigurationOfItsOwn) {
    builder.addServicePublisher("one", "", {}, {}, "", "")
        .addServiceInterfaceToServicePublisher("one", "", "first", {});
    ORVIConfiguration former = builder.build();
    builder.addServiceInterfaceToServicePublisher("one", "", "second", {});
    EXPECT_FALSE(isReachable("second"));
    ORVIConfiguration latter = builder.build();
    EXPECT_TRUE(isReachable("second"));
    former.reset();
    EXPECT_TRUE(isReachable("first"));
    latter.reset();
    EXPECT_FALSE(isReachable("first"));
    EXPECT_FALSE(isReachable("second"));
}

TEST_F(ORVIConfigurationBuilderTest, NothingIsInForceBeforeBuild) {
    builder.addServicePublisher("one", "", {}, {}, "", "")
        .addServiceInterfaceToServicePublisher("one", "", "first", {});
    EXPECT_FALSE(isReachable("first"));
}

TEST_F(ORVIConfigurationBuilderTest, RefusesAPublisherWithoutAName) {
    EXPECT_THAT(
        [&] { builder.addServicePublisher("", "kind", {}, {}, "", ""); },
        throwsExactly<std::invalid_argument>("A service publisher must have a name."));
}

TEST_F(ORVIConfigurationBuilderTest, RefusesAPublisherTwice) {
    builder.addServicePublisher("one", "kind", {}, {}, "", "");
    EXPECT_THAT(
        [&] { builder.addServicePublisher("one", "other", {}, {}, "", ""); },
        throwsExactly<std::invalid_argument>("Service publisher \"one\" is declared already."));
}

TEST_F(ORVIConfigurationBuilderTest, RefusesAnInterfaceOfAnUnknownPublisher) {
    builder.addServicePublisher("one", "kind", {}, {}, "", "");
    EXPECT_THAT(
        [&] { builder.addServiceInterfaceToServicePublisher("two", "", "first", {}); },
        throwsExactly<std::invalid_argument>("Service publisher \"two\" is not declared."));
    const ORVIConfiguration configuration = builder.build();
    EXPECT_FALSE(isReachable("first"));
}

TEST_F(ORVIConfigurationBuilderTest, RefusesAnInterfaceWithoutAName) {
    builder.addServicePublisher("one", "kind", {}, {}, "", "");
    EXPECT_THAT(
        [&] { builder.addServiceInterfaceToServicePublisher("one", "alias", "", {}); },
        throwsExactly<std::invalid_argument>("A service interface must have a name."));
}

} // namespace
} // namespace agent::orvi::frameworksetup
