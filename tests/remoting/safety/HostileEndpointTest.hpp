#pragma once

#include "allocations/ProcessAllocations.hpp"
#include "remoting/discovery/DescriptorGuard.hpp"
#include "remoting/discovery/TemporaryDirectory.hpp"
#include "remoting/discovery/Waiting.hpp"
#include "remoting/safety/RawEndpoint.hpp"

#include "streambuf/StreamBuffer.hpp"
#include "support/Registry.hpp"
#include "support/StreamBuffers.hpp"
#include "support/ThrowsExactly.hpp"

#include "exports/ExportedService.hpp"
#include "wire/InterfaceCodec.hpp"
#include "wire/PropertyCodec.hpp"

#include <orvi/core/InvocationErrors.hpp>
#include <orvi/remoting/Errors.hpp>
#include <orvi/remoting/Importer.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cppmicroservices/LDAPFilter.h>
#include <cppmicroservices/ServiceEvent.h>
#include <cppmicroservices/ServiceTracker.h>

#include <future>
#include <iostream>
#include <limits>
#include <mutex>
#include <utility>

namespace agent::orvi::remoting::test {

using streambuf::test::take;
using streambuf::test::throwsExactly;
using Stream = RawEndpoint::Stream;
using Script = RawEndpoint::Script;

constexpr std::uint64_t serviceNumber = 17;

inline v1::Frame hello() {
    v1::Frame frame;
    frame.mutable_hello()->set_major(1);
    frame.mutable_hello()->set_framework("another framework");
    frame.mutable_hello()->set_endpoint("hostile");
    return frame;
}

/// Read until the importer ends the stream.
inline void readAll(Stream& stream) {
    v1::Frame frame;
    while (stream.Read(&frame)) {
    }
}

/// Return the offer of a stream as a process that publishes it would make it.
inline v1::Frame offerOf(const boost::uuids::uuid& uuid, std::uint64_t number = serviceNumber) {
    const auto published = streambuf::makeDevice(
        uuid, [](std::int64_t) { return std::string(); },
        [](const std::string& data) { return static_cast<std::int64_t>(data.size()); }, {}, {},
        100);
    const auto reference = streambuf::test::invokablesOf(uuid).at(0);
    v1::Frame frame;
    frame.mutable_offer()->set_service(number);
    details::Properties properties;
    for (const std::string& key : reference.GetPropertyKeys()) {
        if (!key.starts_with("service.exported.")) {
            properties.emplace_back(key, reference.GetProperty(key));
        }
    }
    details::encodeProperties(*frame.mutable_offer(), properties);
    *frame.mutable_offer()->mutable_interface() = details::encodeInterface(
        streambuf::test::registryContext().GetService(reference)->serviceInterface());
    return frame;
}

inline v1::Frame textAnswer(std::uint64_t length, const std::string& data) {
    v1::Frame frame;
    v1::Slot& slot = *frame.mutable_answer()->add_slots();
    slot.set_type(v1::TEXT);
    slot.set_length(length);
    frame.set_data(data);
    return frame;
}

/// An importer that deals with an endpoint which breaks the protocol.
class HostileEndpointTest : public testing::Test {
protected:
    /// Import from an endpoint that offers the stream and then does on call streams what the
    /// script says, after the importer's greeting and request have come.
    void answerWith(const std::function<grpc::Status(Stream&)>& script) {
        start(offering(), [script](grpc::ServerContext&, Stream& stream) {
            v1::Frame frame;
            stream.Read(&frame);
            stream.Read(&frame);
            return script(stream);
        });
    }

    /// Greet, then send frames, then wait for the importer's end of the stream.
    void answerWith(const std::vector<v1::Frame>& frames) {
        answerWith([frames](Stream& stream) {
            stream.Write(hello());
            for (const v1::Frame& frame : frames) {
                stream.Write(frame);
            }
            readAll(stream);
            return grpc::Status::OK;
        });
    }

    void start(const Script& control, const Script& call) {
        endpoint.emplace(control, call);
        ImporterOptions options;
        options.local = false;
        options.targets = {address()};
        options.plainLoopback = true;
        options.limits = limits;
        importer.emplace(options);
    }

    std::string address() const { return "127.0.0.1:" + std::to_string(endpoint->port()); }

    /// Behave well on the control stream.
    Script offering() const { return offering({}); }

    /// The same after some other frames.
    Script offering(const std::vector<v1::Frame>& first) const {
        return [offer = offerOf(uuid), first](grpc::ServerContext&, Stream& stream) {
            stream.Write(hello());
            for (const v1::Frame& frame : first) {
                stream.Write(frame);
            }
            v1::Frame frame;
            while (stream.Read(&frame)) {
                if (frame.has_want()) {
                    v1::Frame settled;
                    settled.mutable_settled()->set_id(frame.want().id());
                    stream.Write(offer);
                    stream.Write(settled);
                }
            }
            return grpc::Status::OK;
        };
    }

    /// Read from the stream, and give the test up when that hangs.
    std::string read(std::size_t count = 5) {
        auto reading = std::async(std::launch::async, [&] {
            if (!connected) {
                connected.emplace(streambuf::makeDevice(uuid, streambuf::noCloseFunction()));
            }
            return take(*connected, count);
        });
        if (reading.wait_for(longTime) != std::future_status::ready) {
            std::cerr << "A call hangs." << std::endl;
            std::_Exit(1);
        }
        return reading.get();
    }

    template <class Error>
    void expectError(const std::string& text) {
        EXPECT_THAT([this] { read(); }, throwsExactly<Error>(text));
        // It stays lost.
        EXPECT_THAT([this] { read(); }, throwsExactly<Error>(text));
    }

    void expectProtocolError(const std::string& text) {
        expectError<ProtocolError>("Peer " + address() + ": " + text);
    }

    /// Return the state of the only peer once it has failed.
    PeerStatus failedPeer() const {
        PeerStatus status;
        EXPECT_TRUE(eventually([&] {
            const auto peers = importer->peers();
            for (const auto& peer : peers) {
                if (peer.state == PeerStatus::State::failed) {
                    status = peer;
                    return true;
                }
            }
            return false;
        }));
        return status;
    }

    const boost::uuids::uuid uuid = streambuf::test::newUuid();
    ImporterLimits limits;
    std::optional<RawEndpoint> endpoint;
    std::optional<Importer> importer;
    std::optional<streambuf::StreamBuffer> connected;
};

} // namespace agent::orvi::remoting::test
