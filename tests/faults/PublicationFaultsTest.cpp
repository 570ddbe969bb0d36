#include "streambuf/StreamBuffer.hpp"

#include "allocations/FailingAllocation.hpp"
#include "support/RecordingDevice.hpp"
#include "support/Registry.hpp"
#include "support/StreamBuffers.hpp"

#include <orvi/frameworksetup/ORVIConfigurationBuilder.hpp>

#include <boost/property_tree/ptree.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace agent::orvi::streambuf {
namespace {

using orvi::test::failEachAllocation;
using orvi::test::FailingAllocation;
using test::pattern;

constexpr std::size_t bufferSize = 64;

/// Fails each allocation while a device is published, or while it is withdrawn.
class PublicationFaults : public testing::Test {
protected:
    // What a process allocates once is there before anything fails.
    PublicationFaults() {
        test::RecordingDevice device;
        const auto uuid = test::newUuid();
        const StreamBuffer published = publish(uuid, device);
        const StreamBuffer connected = makeDevice(uuid, noCloseFunction());
    }

    static StreamBuffer
    publish(const boost::uuids::uuid& uuid, const test::RecordingDevice& device) {
        return makeDevice(
            uuid, device.read(), device.write(), device.seekoff(), device.seekpos(), bufferSize);
    }

    /// Everything of a publication that others can see.
    static void expectNothingOf(const boost::uuids::uuid& uuid) {
        EXPECT_EQ(test::invokablesOf(uuid).size(), 0u);
        EXPECT_EQ(test::providers().size(), 0u);
    }

    static void expectUsable(const boost::uuids::uuid& uuid) {
        ASSERT_EQ(test::invokablesOf(uuid).size(), 1u);
        StreamBuffer connected = makeDevice(uuid, noCloseFunction());
        EXPECT_EQ(test::take(connected, 100), pattern(100));
    }
};

TEST_F(PublicationFaults, ADeviceIsPublishedWholeOrNotAtAll) {
    const std::size_t failures = failEachAllocation([](FailingAllocation& failure) {
        const auto uuid = test::newUuid();
        const test::RecordingDevice device(pattern(1000));
        std::optional<StreamBuffer> published;
        if (failure.allows([&] { published.emplace(publish(uuid, device)); })) {
            expectUsable(uuid);
            published.reset();
        }
        expectNothingOf(uuid);
    });
    EXPECT_GT(failures, 100u);
}

TEST_F(PublicationFaults, AWithdrawalIsCompleteWhateverFailsInIt) {
    const std::size_t failures = failEachAllocation([](FailingAllocation& failure) {
        const auto uuid = test::newUuid();
        const auto owned = std::make_shared<int>();
        std::optional<StreamBuffer> published(makeDevice(
            uuid, [owned](std::int64_t) { return std::string(); }, noWriteFunction(),
            noSeekOffFunction(), noSeekPosFunction(), bufferSize));
        EXPECT_TRUE(failure.allows([&] { published.reset(); }));
        expectNothingOf(uuid);
        EXPECT_EQ(owned.use_count(), 1) << "nobody keeps the operations";
    });
    EXPECT_GT(failures, 0u);
}

TEST_F(PublicationFaults, AnotherDeviceIsPublishedAfterEachFailure) {
    const auto uuid = test::newUuid();
    failEachAllocation([&](FailingAllocation& failure) {
        const test::RecordingDevice device(pattern(1000));
        failure.allows([&] { const StreamBuffer failing = publish(uuid, device); });
        const StreamBuffer published = publish(uuid, device);
        expectUsable(uuid);
    });
    expectNothingOf(uuid);
}

TEST_F(PublicationFaults, AConfigurationThatFailsIsNotInForce) {
    const std::size_t failures = failEachAllocation([](FailingAllocation& failure) {
        const auto uuid = test::newUuid();
        const test::RecordingDevice device(pattern(1000));
        const StreamBuffer published = publish(uuid, device);
        std::optional<frameworksetup::ORVIConfiguration> second;
        const bool done = failure.allows([&] {
            frameworksetup::ORVIConfigurationBuilder builder{"another configuration"};
            builder.addServicePublisher("a publisher", "kind", {}, {}, "", "");
            builder.addServiceInterfaceToServicePublisher(
                "a publisher", "alias", test::serviceNameOf(uuid), boost::property_tree::ptree());
            second.emplace(builder.build());
        });
        EXPECT_EQ(second.has_value(), done);
        expectUsable(uuid);
    });
    EXPECT_GT(failures, 10u);
}

} // namespace
} // namespace agent::orvi::streambuf
