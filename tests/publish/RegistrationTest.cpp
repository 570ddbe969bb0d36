#include "streambuf/StreamBuffer.hpp"

#include "publish/RecordedFramework.hpp"
#include "support/DeviceError.hpp"
#include "support/RecordingDevice.hpp"
#include "support/Registry.hpp"
#include "support/StreamBuffers.hpp"
#include "support/ThrowsExactly.hpp"

#include <cppmicroservices/AnyMap.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace agent::orvi::streambuf {
namespace {

using cppmicroservices::Any;
using cppmicroservices::any_cast;
using cppmicroservices::AnyMap;
using test::FrameworkCalls;
using test::throwsExactly;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::size_t impossibleSize = std::numeric_limits<std::size_t>::max();

class RegistrationTest : public testing::Test {
protected:
    RegistrationTest() { calls = FrameworkCalls(); }

    ~RegistrationTest() override { calls = FrameworkCalls(); }

    StreamBuffer publish(std::size_t bufferSize = 16) const {
        return makeDevice(
            test::exampleUuid(), device.read(), device.write(), device.seekoff(), device.seekpos(),
            bufferSize);
    }

    static void expectNothingPublished() {
        EXPECT_THAT(test::providers(), IsEmpty());
        EXPECT_THAT(test::invokablesOf(test::exampleUuid()), IsEmpty());
    }

    FrameworkCalls& calls = FrameworkCalls::instance();
    const test::RecordingDevice device;
};

/// Return a map's keys and check the map's kind.
std::vector<std::string> keysOf(const AnyMap& map) {
    EXPECT_EQ(map.GetType(), AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    std::vector<std::string> keys;
    for (const auto& entry : map) {
        keys.push_back(entry.first);
    }
    return keys;
}

TEST_F(RegistrationTest, StatesTheInterfaceInTheOrviProperty) {
    using testing::UnorderedElementsAre;
    const StreamBuffer buffer = publish();
    const auto references = test::providers();
    ASSERT_EQ(references.size(), 1u);

    const AnyMap orvi = any_cast<AnyMap>(references[0].GetProperty("orvi"));
    ASSERT_THAT(keysOf(orvi), ElementsAre("serviceinterfaces"));
    const auto interfaces = any_cast<std::vector<Any>>(orvi.at("serviceinterfaces"));
    ASSERT_EQ(interfaces.size(), 1u);
    const AnyMap interface = any_cast<AnyMap>(interfaces[0]);
    ASSERT_THAT(
        keysOf(interface), UnorderedElementsAre("name", "description", "version", "dependencies"));
    EXPECT_EQ(
        any_cast<std::string>(interface.at("name")),
        "orviStreambuf_00112233-4455-6677-8899-aabbccddeeff");
    EXPECT_EQ(any_cast<std::string>(interface.at("description")), "");
    EXPECT_THAT(any_cast<std::vector<Any>>(interface.at("dependencies")), IsEmpty());
    const AnyMap version = any_cast<AnyMap>(interface.at("version"));
    ASSERT_THAT(keysOf(version), UnorderedElementsAre("major", "minor", "patch", "extension"));
    EXPECT_EQ(any_cast<int>(version.at("major")), 1);
    EXPECT_EQ(any_cast<int>(version.at("minor")), 0);
    EXPECT_EQ(any_cast<int>(version.at("patch")), 0);
    EXPECT_EQ(any_cast<int>(version.at("extension")), 0);
}

TEST_F(RegistrationTest, AddsNothingToTheProvidersOwnProperties) {
    const StreamBuffer buffer = publish();
    const auto keys = test::providers().at(0).GetPropertyKeys();
    for (const std::string& key : keys) {
        EXPECT_TRUE(key == "orvi" || key == "objectclass" || key.starts_with("service.")) << key;
    }
}

TEST_F(RegistrationTest, IsForTheInterfaceOfProviders) {
    const StreamBuffer buffer = publish();
    EXPECT_THAT(
        any_cast<std::vector<std::string>>(test::providers().at(0).GetProperty("objectclass")),
        ElementsAre("agent::orvi::core::ServiceProvider"));
}

const char* const uuidText = "00112233-4455-6677-8899-aabbccddeeff";

/// What the factory does with the framework, in order.
std::vector<std::string> allSteps() {
    const std::string publisher = std::string("\"StreamBuffer_") + uuidText + "\"";
    return {
        "getFramework",
        "GetBundleContext",
        "RegisterService",
        "ORVIConfigurationBuilder \"\"",
        "addServicePublisher " + publisher +
            "\"legacyservicepublisher\"{\"connectToAllEndpoints\"}{}\"\"\"localServiceOnly\"",
        "addServiceInterfaceToServicePublisher " + publisher + publisher + "\"orviStreambuf_" +
            uuidText + "\"",
        "build"};
}

TEST_F(RegistrationTest, ComesBeforeTheConfigurationOfThePublisher) {
    const StreamBuffer buffer = publish();
    EXPECT_EQ(calls.steps, allSteps());
}

TEST_F(RegistrationTest, HappensForADeviceThatCanDoNothingAsWell) {
    const StreamBuffer buffer = makeDevice(test::exampleUuid(), {}, {}, {}, {}, 16);
    EXPECT_EQ(calls.steps, allSteps());
    EXPECT_EQ(test::providers().size(), 1u);
    EXPECT_EQ(test::invokablesOf(test::exampleUuid()).size(), 1u);
}

TEST_F(RegistrationTest, ThatIsRefusedIsReportedAndNothingIsConfigured) {
    calls.refuseRegistration = true;
    EXPECT_THAT(
        [this] { publish(); }, throwsExactly<std::runtime_error>("Failed to register service."));
    EXPECT_THAT(calls.steps, ElementsAre("getFramework", "GetBundleContext", "RegisterService"));
    expectNothingPublished();
}

TEST_F(RegistrationTest, ThatIsRefusedReleasesTheOperations) {
    calls.refuseRegistration = true;
    auto resource = std::make_shared<int>(1);
    const std::weak_ptr<int> observer = resource;
    EXPECT_ANY_THROW(makeDevice(
        test::exampleUuid(), [resource](std::int64_t) { return std::string(); }, {}, {}, {}, 16));
    resource.reset();
    EXPECT_TRUE(observer.expired());
}

TEST_F(RegistrationTest, LeavesNothingBehindWhereverTheFrameworkFails) {
    for (const std::string& failing : allSteps()) {
        SCOPED_TRACE(failing);
        calls = FrameworkCalls();
        calls.before = [&](const std::string& step) {
            if (step == failing) {
                throw test::DeviceError("the framework is out of order");
            }
        };
        EXPECT_THAT(
            [this] { publish(); },
            throwsExactly<test::DeviceError>("the framework is out of order"));
        EXPECT_EQ(calls.steps.back(), failing);
        expectNothingPublished();
    }
    calls = FrameworkCalls();
    const StreamBuffer buffer = publish();
    EXPECT_EQ(test::invokablesOf(test::exampleUuid()).size(), 1u) << "and it can be done again";
}

TEST_F(RegistrationTest, IsWithdrawnWhenTheBuffersCannotBeMade) {
    // Which of the two comes first is the standard library's choice.
    for (const std::size_t size : {impossibleSize, impossibleSize / 2, impossibleSize / 4}) {
        SCOPED_TRACE(size);
        calls = FrameworkCalls();
        bool refused = false;
        try {
            publish(size);
        } catch (const std::length_error&) {
            refused = true;
        } catch (const std::bad_alloc&) {
            refused = true;
        }
        EXPECT_TRUE(refused);
        EXPECT_EQ(calls.steps, allSteps()) << "the buffers come last";
        expectNothingPublished();
    }
    EXPECT_THAT(device.calls(), IsEmpty());
}

TEST_F(RegistrationTest, OfAFrameworkThatHasStoppedFailsWithTheFrameworksError) {
    test::stopFramework();
    EXPECT_THROW(publish(), std::runtime_error);
    foundation::cppmicroservices::getFramework()->Start();
    expectNothingPublished();
    const StreamBuffer buffer = publish();
    EXPECT_EQ(test::invokablesOf(test::exampleUuid()).size(), 1u);
}

} // namespace
} // namespace agent::orvi::streambuf
