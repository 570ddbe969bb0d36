#include "support/DeviceError.hpp"
#include "support/StreamBuffers.hpp"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>
#include <cppmicroservices/ServiceEvent.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace agent::orvi::streambuf::test {
namespace {

using details::StreamBufferImpl;
using ::testing::ElementsAre;

std::shared_ptr<StreamBufferImpl> makeRecord(
    Operations operations, std::size_t bufferSize,
    cppmicroservices::ServiceRegistrationBase registration = noRegistration()) {
    return std::make_shared<StreamBufferImpl>(
        exampleUuid(), std::move(operations.read), std::move(operations.write),
        std::move(operations.seekoff), std::move(operations.seekpos), std::move(operations.close),
        bufferSize, std::move(registration), frameworksetup::ORVIConfiguration());
}

TEST(StreamBufferImplTest, FillsABufferForEachDirectionTheDeviceHas) {
    RecordingDevice device;
    for (const std::size_t size : {0U, 1U, 15U, 16U, 1024U}) {
        const std::string filled(size, '0');
        EXPECT_EQ(makeRecord(bothOf(device), size)->getBuffer, filled);
        EXPECT_EQ(makeRecord(bothOf(device), size)->putBuffer, filled);
        EXPECT_EQ(makeRecord(inputOf(device), size)->getBuffer, filled);
        EXPECT_EQ(makeRecord(inputOf(device), size)->putBuffer, "");
        EXPECT_EQ(makeRecord(outputOf(device), size)->getBuffer, "");
        EXPECT_EQ(makeRecord(outputOf(device), size)->putBuffer, filled);
    }
}

TEST(StreamBufferImplTest, KeepsUuidAndOperationsAndNothingElse) {
    RecordingDevice device;
    const auto full = makeRecord(
        {device.read(), device.write(), device.seekoff(), device.seekpos(), device.close()}, 4);
    EXPECT_EQ(full->uuid, exampleUuid());
    EXPECT_TRUE(full->read);
    EXPECT_TRUE(full->write);
    EXPECT_TRUE(full->seekoff);
    EXPECT_TRUE(full->seekpos);
    EXPECT_TRUE(full->close);
    EXPECT_FALSE(full->registration);

    const auto empty = makeRecord({}, 4);
    EXPECT_FALSE(empty->read);
    EXPECT_FALSE(empty->write);
    EXPECT_FALSE(empty->seekoff);
    EXPECT_FALSE(empty->seekpos);
    EXPECT_FALSE(empty->close);
}

TEST(StreamBufferImplTest, PassesTheErrorOfAnImpossibleBufferOnWithoutClosing) {
    RecordingDevice device;
    Operations operations = inputOf(device);
    operations.close = device.close();

    EXPECT_THROW(
        makeRecord(operations, std::numeric_limits<std::size_t>::max()), std::length_error);

    EXPECT_THAT(device.calls(), ::testing::IsEmpty());
}

TEST(StreamBufferImplTest, NeedsNoBufferForAnAbsentDirectionHoweverLarge) {
    const auto record = makeRecord({}, std::numeric_limits<std::size_t>::max());

    EXPECT_EQ(record->getBuffer, "");
    EXPECT_EQ(record->putBuffer, "");
}

/// Calls back when the last copy of what holds it goes.
std::shared_ptr<void> onRelease(std::vector<std::string>& events, const std::string& name) {
    return {nullptr, [&events, name](void*) { events.push_back(name); }};
}

TEST(StreamBufferImplTest, ClosesThenReleasesItsOperationsInReverseOrder) {
    std::vector<std::string> events;
    auto record = makeRecord(
        {[held = onRelease(events, "read")](std::int64_t) { return std::string(); },
         [held = onRelease(events, "write")](const std::string&) { return std::int64_t{0}; },
         [held = onRelease(events, "seekoff")](std::int64_t, int, int) { return std::streampos(); },
         [held = onRelease(events, "seekpos")](std::streampos position, int) { return position; },
         [held = onRelease(events, "close"), &events](const boost::uuids::uuid& uuid) {
             EXPECT_EQ(uuid, exampleUuid());
             events.push_back("closing");
         }},
        4);

    record.reset();

    EXPECT_THAT(events, ElementsAre("closing", "close", "seekpos", "seekoff", "write", "read"));
}

/// A service whose only purpose is to be registered.
class Provider : public core::ServiceProvider {
public:
    std::vector<core::ServiceInterface> getServiceInterfaces() override { return {}; }
};

/// A registered service and what is seen of its end.
class StreamBufferImplRegistrationTest : public ::testing::Test {
protected:
    void SetUp() override {
        framework.Start();
        auto context = framework.GetBundleContext();
        registration = context.RegisterService<core::ServiceProvider>(std::make_shared<Provider>());
        context.AddServiceListener([this](const cppmicroservices::ServiceEvent& event) {
            if (event.GetType() == cppmicroservices::ServiceEvent::SERVICE_UNREGISTERING) {
                events.push_back("unregistering");
            }
        });
    }

    void TearDown() override {
        framework.Stop();
        framework.WaitForStop(std::chrono::milliseconds::zero());
    }

    bool isRegistered() {
        return static_cast<bool>(
            framework.GetBundleContext().GetServiceReference<core::ServiceProvider>());
    }

    Operations closing() {
        Operations operations;
        operations.close = [this](const boost::uuids::uuid&) { events.push_back("closing"); };
        return operations;
    }

    cppmicroservices::Framework framework = cppmicroservices::FrameworkFactory().NewFramework();
    cppmicroservices::ServiceRegistration<core::ServiceProvider> registration;
    std::vector<std::string> events;
};

TEST_F(StreamBufferImplRegistrationTest, UnregistersExactlyOnceBeforeClosing) {
    auto record = makeRecord(closing(), 4, registration);
    EXPECT_TRUE(record->registration);
    EXPECT_TRUE(isRegistered());

    record.reset();

    EXPECT_FALSE(isRegistered());
    EXPECT_THAT(events, ElementsAre("unregistering", "closing"));
}

TEST_F(StreamBufferImplRegistrationTest, ClosesEvenWhenUnregisteringThrows) {
    auto record = makeRecord(closing(), 4, registration);
    registration.Unregister();
    events.clear();
    EXPECT_THROW(registration.Unregister(), std::logic_error);

    record.reset();

    EXPECT_THAT(events, ElementsAre("closing"));
}

TEST_F(StreamBufferImplRegistrationTest, IsQuietAfterTheFrameworkHasStopped) {
    auto record = makeRecord(closing(), 4, registration);
    framework.Stop();
    framework.WaitForStop(std::chrono::milliseconds::zero());
    events.clear();

    record.reset();

    EXPECT_THAT(events, ElementsAre("closing"));
}

TEST_F(StreamBufferImplRegistrationTest, FlushesWhileTheServiceStillStands) {
    Operations operations = closing();
    operations.write = [this](const std::string& data) {
        events.push_back("writing " + data + (isRegistered() ? ", registered" : ""));
        return static_cast<std::int64_t>(data.size());
    };
    {
        auto buffer = details::StreamBufferAccess::make(makeRecord(operations, 16, registration));
        put(buffer, "abc");
    }
    EXPECT_THAT(events, ElementsAre("writing abc, registered", "unregistering", "closing"));
}

TEST_F(StreamBufferImplRegistrationTest, UnregistersTheOldServiceAtAMoveAssignment) {
    auto buffer = details::StreamBufferAccess::make(makeRecord(closing(), 16, registration));

    buffer = makeBuffer({}, 1);

    EXPECT_FALSE(isRegistered());
    EXPECT_THAT(events, ElementsAre("unregistering", "closing"));
}

TEST_F(StreamBufferImplRegistrationTest, StaysRegisteredThroughAMoveConstruction) {
    std::optional<StreamBuffer> moved;
    {
        auto buffer = details::StreamBufferAccess::make(makeRecord(closing(), 16, registration));
        moved.emplace(std::move(buffer));
    }
    EXPECT_TRUE(isRegistered());
    EXPECT_THAT(events, ::testing::IsEmpty());

    moved.reset();
    EXPECT_THAT(events, ElementsAre("unregistering", "closing"));
}

} // namespace
} // namespace agent::orvi::streambuf::test
