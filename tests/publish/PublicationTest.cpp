#include "streambuf/StreamBuffer.hpp"

#include "support/DeviceError.hpp"
#include "support/RecordingDevice.hpp"
#include "support/Registry.hpp"
#include "support/StreamBuffers.hpp"

#include <orvi/core/InvocationErrors.hpp>

#include <cppmicroservices/ServiceEvent.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cwchar>
#include <functional>
#include <ios>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>

namespace agent::orvi::streambuf {
namespace {

using core::GenericPayload;
using core::ServiceUnavailable;
using cppmicroservices::any_cast;
using std::ios_base;
using test::Operation;
using test::Reply;
using testing::ElementsAre;
using testing::IsEmpty;

StreamBuffer publish(
    const boost::uuids::uuid& uuid, const test::RecordingDevice& device,
    std::size_t bufferSize = 4) {
    return makeDevice(
        uuid, device.read(), device.write(), device.seekoff(), device.seekpos(), bufferSize);
}

std::string readOf(core::Invokable& service, std::int64_t count) {
    return test::invokeAtOnce(service, "read", GenericPayload::fromValues(count))
        .take<std::string>(0);
}

TEST(PublicationTest, IsFoundAndUsedThroughTheRegistryAlone) {
    test::RecordingDevice device("0123456789");
    const StreamBuffer buffer = publish(test::exampleUuid(), device, 4096);

    auto context = foundation::cppmicroservices::getFramework()->GetBundleContext();
    const auto references = context.GetServiceReferences<core::Invokable>(
        "(orvi.servicename=orviStreambuf_00112233-4455-6677-8899-aabbccddeeff)");
    ASSERT_EQ(references.size(), 1u);
    const auto property = [&](const std::string& key) {
        return any_cast<std::string>(references[0].GetProperty(key));
    };
    EXPECT_EQ(property("orvi.servicename"), "orviStreambuf_00112233-4455-6677-8899-aabbccddeeff");
    EXPECT_EQ(property("orvi.serviceproperty.hasRead"), "true");
    EXPECT_EQ(property("orvi.serviceproperty.hasWrite"), "true");
    EXPECT_EQ(property("orvi.serviceproperty.hasSeekOff"), "true");
    EXPECT_EQ(property("orvi.serviceproperty.hasSeekPos"), "true");
    EXPECT_EQ(property("orvi.serviceproperty.bufferSize"), "4096");

    const std::shared_ptr<core::Invokable> service = context.GetService(references[0]);
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(
        service->serviceInterface().name(), "orviStreambuf_00112233-4455-6677-8899-aabbccddeeff");
    for (const char* method : {"read", "write", "seekoff", "seekpos"}) {
        EXPECT_TRUE(service->hasMethod(method)) << method;
    }
    EXPECT_FALSE(service->hasMethod("close"));

    // The completion runs before invoke returns: a local call needs no other thread.
    std::string text;
    std::int64_t number = 0;
    const core::CompletionHandler toText{
        [&](GenericPayload answer) { text = answer.take<std::string>(0); },
        [](const std::exception_ptr&) { ADD_FAILURE(); }};
    const core::CompletionHandler toNumber{
        [&](GenericPayload answer) { number = answer.take<std::int64_t>(0); },
        [](const std::exception_ptr&) { ADD_FAILURE(); }};
    service->invoke(
        std::nullopt, "read", toText, GenericPayload::fromValues(std::int64_t{4}), false);
    EXPECT_EQ(text, "0123");
    service->invoke(
        std::nullopt, "seekoff", toNumber, GenericPayload::fromValues(std::int64_t{-2}, 2, 2),
        false);
    EXPECT_EQ(number, 8);
    service->invoke(
        std::nullopt, "write", toNumber, GenericPayload::fromValues(std::string("abc")), false);
    EXPECT_EQ(number, 3);
    service->invoke(
        std::nullopt, "seekpos", toNumber,
        GenericPayload::fromPackedArguments(std::tuple<std::int64_t, int>(9, 1)), false);
    EXPECT_EQ(number, 9);
    EXPECT_THAT(
        device.calls(), ElementsAre(
                            test::readCall(4), test::seekOffCall(-2, ios_base::end, ios_base::out),
                            test::writeCall("abc"), test::seekPosCall(9, ios_base::in)));
    EXPECT_EQ(device.bytes(), "01234567abc");
}

TEST(PublicationTest, ShowsWhatTheDeviceLacks) {
    const test::RecordingDevice device;
    const boost::uuids::uuid uuid = test::newUuid();
    const StreamBuffer buffer = makeDevice(uuid, device.read(), {}, {}, {}, 0);
    const auto reference = test::invokablesOf(uuid).at(0);
    const auto property = [&](const std::string& key) {
        return any_cast<std::string>(reference.GetProperty("orvi.serviceproperty." + key));
    };
    EXPECT_EQ(property("hasRead"), "true");
    EXPECT_EQ(property("hasWrite"), "false");
    EXPECT_EQ(property("hasSeekOff"), "false");
    EXPECT_EQ(property("hasSeekPos"), "false");
    EXPECT_EQ(property("bufferSize"), "0");
    const auto service = test::invokableOf(uuid);
    EXPECT_THROW(
        test::invokeAtOnce(*service, "write", GenericPayload::fromValues(std::string("x"))),
        core::UnknownMethod);
}

TEST(PublicationTest, OfADeviceThatCanDoNothingJustExists) {
    const boost::uuids::uuid uuid = test::newUuid();
    StreamBuffer buffer = makeDevice(uuid, {}, {}, {}, {}, 16);
    EXPECT_EQ(test::invokablesOf(uuid).size(), 1u);
    EXPECT_EQ(buffer.sgetc(), std::char_traits<char>::eof());
    EXPECT_EQ(buffer.sputc('x'), std::char_traits<char>::eof());
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_EQ(buffer.pubseekoff(0, ios_base::beg, ios_base::in), std::streampos(-1));
}

TEST(PublicationTest, HasNoCloseOperation) {
    const StreamBuffer buffer = publish(test::newUuid(), test::RecordingDevice());
    EXPECT_FALSE(details::StreamBufferAccess::record(buffer)->close);
}

TEST(PublicationGuardTest, TurnsWhateverAnOperationThrowsIntoItsNeutralResultForEverybody) {
    for (const Reply& failure : {Reply::throwing(test::DeviceError("no")), Reply::throwing(42)}) {
        test::RecordingDevice device("0123456789");
        for (const Operation operation :
             {Operation::read, Operation::write, Operation::seekoff, Operation::seekpos}) {
            device.always(operation, failure);
        }
        const boost::uuids::uuid uuid = test::newUuid();
        StreamBuffer buffer = publish(uuid, device);

        EXPECT_EQ(buffer.sgetc(), std::char_traits<char>::eof());
        EXPECT_EQ(buffer.sputn("too long", 8), 0);
        EXPECT_EQ(buffer.pubseekoff(1, ios_base::beg, ios_base::in), std::streampos(-1));
        EXPECT_EQ(buffer.pubseekpos(1, ios_base::in), std::streampos(-1));
        EXPECT_EQ(device.takeCalls().size(), 4u);

        const auto service = test::invokableOf(uuid);
        const auto number = [&](const char* method, GenericPayload arguments) {
            return test::invokeAtOnce(*service, method, std::move(arguments)).take<std::int64_t>(0);
        };
        EXPECT_EQ(readOf(*service, 5), "");
        EXPECT_EQ(number("write", GenericPayload::fromValues(std::string("x"))), 0);
        EXPECT_EQ(number("seekoff", GenericPayload::fromValues(std::int64_t{1}, 1, 1)), -1);
        EXPECT_EQ(number("seekpos", GenericPayload::fromValues(std::int64_t{1}, 1)), -1);
        EXPECT_EQ(device.takeCalls().size(), 4u);
    }
}

TEST(PublicationGuardTest, MakesAnInvalidPositionWithAnInitialConversionState) {
    StreamBuffer buffer = makeDevice(
        test::newUuid(), [](std::int64_t) { return std::string(); }, {},
        [](std::int64_t, int, int) -> std::streampos { throw test::DeviceError("stuck"); }, {}, 4);
    const std::streampos position = buffer.pubseekoff(0, ios_base::beg, ios_base::in);
    EXPECT_EQ(std::streamoff(position), -1);
    const std::mbstate_t state = position.state();
    EXPECT_NE(std::mbsinit(&state), 0);
}

TEST(PublicationGuardTest, LetsPayloadErrorsOut) {
    const test::RecordingDevice device;
    const boost::uuids::uuid uuid = test::newUuid();
    const StreamBuffer buffer = publish(uuid, device);
    const auto service = test::invokableOf(uuid);
    EXPECT_THROW(
        test::invokeAtOnce(*service, "read", GenericPayload::fromValues(5)), core::BadAnyCast);
    EXPECT_THAT(device.calls(), IsEmpty());
}

/// Counts the providers that leave the registry.
class UnregistrationCounter {
public:
    UnregistrationCounter()
        : token(context.AddServiceListener(
              [this](const cppmicroservices::ServiceEvent& event) {
                  if (event.GetType() == cppmicroservices::ServiceEvent::SERVICE_UNREGISTERING) {
                      ++count;
                  }
              },
              "(objectclass=agent::orvi::core::ServiceProvider)")) {}

    ~UnregistrationCounter() { context.RemoveListener(std::move(token)); }

    UnregistrationCounter(const UnregistrationCounter&) = delete;
    UnregistrationCounter& operator=(const UnregistrationCounter&) = delete;

    int count = 0;

private:
    cppmicroservices::BundleContext context = test::registryContext();
    cppmicroservices::ListenerToken token;
};

TEST(PublicationLifeTest, EndsWithTheStreamBufferExactlyOnce) {
    const boost::uuids::uuid uuid = test::newUuid();
    UnregistrationCounter unregistered;
    {
        const StreamBuffer buffer = publish(uuid, test::RecordingDevice());
        EXPECT_EQ(test::providers().size(), 1u);
        EXPECT_EQ(test::invokablesOf(uuid).size(), 1u);
        EXPECT_EQ(unregistered.count, 0);
    }
    EXPECT_EQ(unregistered.count, 1);
    EXPECT_THAT(test::providers(), IsEmpty());
    EXPECT_THAT(test::invokablesOf(uuid), IsEmpty());
}

TEST(PublicationLifeTest, ReleasesTheOperationsEvenWhileAClientKeepsTheService) {
    const boost::uuids::uuid uuid = test::newUuid();
    auto resource = std::make_shared<std::string>("data");
    const std::weak_ptr<std::string> observer = resource;
    auto buffer = std::make_optional(makeDevice(
        uuid, [resource = std::move(resource)](std::int64_t) { return *resource; }, {}, {}, {}, 4));
    const auto service = test::invokableOf(uuid);
    EXPECT_EQ(readOf(*service, 4), "data");
    buffer.reset();
    EXPECT_TRUE(observer.expired());
    EXPECT_THROW(readOf(*service, 4), ServiceUnavailable);
}

TEST(PublicationLifeTest, FlushesPendingOutputBeforeItEnds) {
    test::RecordingDevice device;
    const boost::uuids::uuid uuid = test::newUuid();
    std::size_t servicesDuringFlush = 0;
    device.decideBy([&](Operation operation, int, std::int64_t) -> std::optional<Reply> {
        if (operation == Operation::write) {
            servicesDuringFlush = test::invokablesOf(uuid).size();
        }
        return std::nullopt;
    });
    {
        StreamBuffer buffer = publish(uuid, device, 16);
        buffer.sputn("pending", 7);
    }
    EXPECT_THAT(device.calls(), ElementsAre(test::writeCall("pending")));
    EXPECT_EQ(servicesDuringFlush, 1u);
}

TEST(PublicationLifeTest, MovesWithTheStreamBuffer) {
    const test::RecordingDevice device("0123456789");
    const boost::uuids::uuid uuid = test::newUuid();
    UnregistrationCounter unregistered;
    auto first = std::make_optional(publish(uuid, device));
    auto second = std::make_optional(std::move(*first));
    first.reset();
    EXPECT_EQ(test::invokablesOf(uuid).size(), 1u);
    EXPECT_EQ(readOf(*test::invokableOf(uuid), 2), "01");
    EXPECT_EQ(unregistered.count, 0);
    second.reset();
    EXPECT_THAT(test::invokablesOf(uuid), IsEmpty());
    EXPECT_EQ(unregistered.count, 1);
}

TEST(PublicationLifeTest, EndsWhenAnotherIsAssignedOverIt) {
    const boost::uuids::uuid replaced = test::newUuid();
    const boost::uuids::uuid kept = test::newUuid();
    StreamBuffer target = publish(replaced, test::RecordingDevice("replaced"));
    {
        StreamBuffer source = publish(kept, test::RecordingDevice("kept"));
        target = std::move(source);
    }
    EXPECT_THAT(test::invokablesOf(replaced), IsEmpty());
    ASSERT_EQ(test::invokablesOf(kept).size(), 1u);
    EXPECT_EQ(readOf(*test::invokableOf(kept), 4), "kept");
    EXPECT_EQ(test::providers().size(), 1u);
}

TEST(PublicationLifeTest, OfOneUuidTwiceStandsSideBySide) {
    const boost::uuids::uuid uuid = test::newUuid();
    auto older = std::make_optional(publish(uuid, test::RecordingDevice("older")));
    auto younger = std::make_optional(publish(uuid, test::RecordingDevice("young")));
    EXPECT_EQ(test::invokablesOf(uuid).size(), 2u);
    const auto preferred = [&] {
        auto context = test::registryContext();
        const auto references = test::invokablesOf(uuid);
        return context.GetService(*std::max_element(references.begin(), references.end()));
    };
    EXPECT_EQ(readOf(*preferred(), 5), "older");
    older.reset();
    ASSERT_EQ(test::invokablesOf(uuid).size(), 1u);
    EXPECT_EQ(readOf(*preferred(), 5), "young");
    younger.reset();
    EXPECT_THAT(test::invokablesOf(uuid), IsEmpty());
}

TEST(PublicationLifeTest, TakesNoHarmFromAFrameworkThatStopsFirst) {
    test::RecordingDevice device("0123456789");
    const boost::uuids::uuid uuid = test::newUuid();
    auto buffer = std::make_optional(publish(uuid, device));
    const auto service = test::invokableOf(uuid);
    test::stopFramework();
    EXPECT_THROW(readOf(*service, 1), ServiceUnavailable);
    EXPECT_EQ(buffer->sgetc(), '0') << "the publisher's own device needs no framework";
    buffer->sputn("x", 1);
    buffer.reset();
    EXPECT_THAT(device.calls(), ElementsAre(test::readCall(4), test::writeCall("x")));
    foundation::cppmicroservices::getFramework()->Start();
    EXPECT_THAT(test::invokablesOf(uuid), IsEmpty());
}

} // namespace
} // namespace agent::orvi::streambuf
