#pragma once

#include "remoting/discovery/DescriptorGuard.hpp"
#include "remoting/discovery/TemporaryDirectory.hpp"
#include "remoting/discovery/Waiting.hpp"
#include "remoting/safety/RawStream.hpp"

#include "streambuf/StreamBuffer.hpp"
#include "support/RecordingDevice.hpp"
#include "support/Registry.hpp"
#include "support/StreamBuffers.hpp"

#include <orvi/remoting/Endpoint.hpp>

#include <grpcpp/create_channel.h>
#include <grpcpp/security/credentials.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

namespace agent::orvi::remoting::test {

inline constexpr auto invalidArgument = grpc::StatusCode::INVALID_ARGUMENT;

using streambuf::test::RecordingDevice;

/// A device that is published, with its number at the endpoint.
struct Published {
    RecordingDevice device;
    boost::uuids::uuid uuid;
    streambuf::StreamBuffer buffer;

    explicit Published(const std::string& bytes)
        : device(bytes)
        , uuid(streambuf::test::newUuid())
        , buffer(streambuf::makeDevice(
              uuid, device.read(), device.write(), device.seekoff(), device.seekpos(), 4096)) {}

    std::string name() const { return streambuf::test::serviceNameOf(uuid); }

    /// Return the filter that a connecting `makeDevice` looks with.
    std::string filter() const { return "(orvi.servicename=" + name() + ")"; }
};

/// What a call has ended with: the text of its answer, or its error's type and text.
struct Outcome {
    std::string type;
    std::string text;

    friend bool operator==(const Outcome&, const Outcome&) = default;

    friend std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
        return out << '{' << outcome.type << ": " << outcome.text << '}';
    }
};

/// An endpoint, and raw importers for it.
class EndpointTest : public testing::Test {
protected:
    EndpointTest() { options.runtimeDirectory = directory.path / "orvi"; }

    ~EndpointTest() override {
        if (endpoint) {
            EXPECT_TRUE(isServed());
        }
    }

    void open() { endpoint.emplace(options); }

    /// Return a connection of its own.
    std::shared_ptr<grpc::Channel> connect() const {
        return connect(endpoint->addresses().at(0), grpc::InsecureChannelCredentials());
    }

    static std::shared_ptr<grpc::Channel> connect(
        const std::string& address, const std::shared_ptr<grpc::ChannelCredentials>& credentials) {
        grpc::ChannelArguments arguments;
        arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
        arguments.SetInt(GRPC_ARG_ENABLE_HTTP_PROXY, 0);
        arguments.SetInt(GRPC_ARG_ENABLE_RETRIES, 0);
        return grpc::CreateCustomChannel(address, credentials, arguments);
    }

    /// Receive until a frame of a kind comes; what comes before is dropped.
    static std::optional<v1::Frame> receiveA(RawStream& stream, v1::Frame::BodyCase kind) {
        auto frame = stream.receive();
        while (frame && frame->body_case() != kind) {
            frame = stream.receive();
        }
        return frame;
    }

    /// Return what the endpoint offers to whoever looks for a device, nothing when it is not
    /// offered.
    static std::optional<v1::Offer>
    offerOf(const Published& published, const std::shared_ptr<grpc::Channel>& channel) {
        RawStream control(channel, "Control");
        control.send(greeting());
        control.send(want(1, published.filter()));
        std::optional<v1::Offer> offer;
        for (auto frame = control.receive(); frame && !frame->has_settled();
             frame = control.receive()) {
            if (frame->has_offer()) {
                offer = frame->offer();
            }
        }
        return offer;
    }

    /// Return the number under which a device is called.
    std::uint64_t numberOf(const Published& published) const {
        const auto offer = offerOf(published, connect());
        EXPECT_TRUE(offer.has_value());
        return offer ? offer->service() : 0;
    }

    /// Send a request on a stream that has been greeted on, and wait for what comes of it.
    static Outcome call(RawStream& stream, const v1::Frame& request) {
        stream.send(request);
        return outcomeOf(stream);
    }

    static Outcome outcomeOf(RawStream& stream) {
        auto frame = stream.receive();
        while (frame && frame->has_hello()) {
            frame = stream.receive();
        }
        if (!frame) {
            return {"end of stream", ""};
        }
        if (frame->has_failure()) {
            return {frame->failure().type(), frame->failure().text()};
        }
        std::string answer = frame->data();
        std::uint64_t length = 0;
        for (const v1::Slot& slot : frame->answer().slots()) {
            length += slot.length();
            for (const std::int64_t number : slot.numbers()) {
                answer += std::to_string(number);
                length += std::to_string(number).size();
            }
        }
        while (answer.size() < length && (frame = stream.receive())) {
            answer += frame->data();
        }
        return {"", answer};
    }

    /// Call a device from a connection of its own.
    Outcome callAnew(std::uint64_t service, const v1::Frame& request) const {
        RawStream stream(connect(), "Call");
        stream.send(greeting(service));
        return call(stream, request);
    }

    /// Say whether somebody who behaves well is served.
    bool isServed() const {
        const Published published("served as ever");
        const auto channel = connect();
        const auto offer = offerOf(published, channel);
        if (!offer) {
            return false;
        }
        RawStream stream(channel, "Call");
        stream.send(greeting(offer->service()));
        return call(stream, readRequest(14)) == Outcome{"", "served as ever"} &&
               call(stream, writeRequest(" and on")) == Outcome{"", "7"};
    }

    TemporaryDirectory directory;
    EndpointOptions options;
    std::optional<Endpoint> endpoint;
};

/// Match the status that a stream has ended with.
inline auto endsWith(grpc::StatusCode code, const std::string& text) {
    return testing::AllOf(
        testing::Property("the code", &grpc::Status::error_code, code),
        testing::Property("the text", &grpc::Status::error_message, text));
}

} // namespace agent::orvi::remoting::test
