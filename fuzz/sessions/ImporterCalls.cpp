#include "sessions/ImporterCalls.hpp"

#include "sessions/AnyEnd.hpp"
#include "wire/AnyFrame.hpp"

#include "Target.hpp"

#include "imports/ClientSession.hpp"
#include "wire/FrameLimits.hpp"

#include <orvi/core/InvocationErrors.hpp>
#include <orvi/remoting/Errors.hpp>

#include <algorithm>
#include <chrono>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace agent::orvi::fuzz {
namespace {

using namespace remoting::details;
using core::GenericPayload;

/// The endpoint's side of the streams, as far as the importer can see it.
class Peer {
public:
    Peer(Input& input, ScriptedConnection& connection)
        : input(input)
        , connection(connection) {
        connection.whenOpened = [this](ScriptedStream& stream) {
            stream.whenSent = [this](const std::string& frame) { hear(frame); };
            greeted = false;
        };
    }

    void beginCall() {
        delivered.clear();
        texts.clear();
        answering = false;
        unsent = 0;
    }

    /// Do what the script says next, or, at its end, cut the connection.
    bool step() {
        if (connection.streams.empty()) {
            return false;
        }
        ScriptedStream& stream = *connection.streams.back();
        if (input.empty()) {
            stream.lose({StreamEnd::Kind::disconnected, "The script is over."});
            return stream.acknowledge() || stream.conclude();
        }
        switch (input.below(12)) {
        case 0:
        case 1:
            stream.acknowledge();
            break;
        case 2:
            stream.conclude();
            break;
        case 3:
            if (input.oneIn(6)) {
                stream.lose(anyEnd(input));
            }
            break;
        case 4:
            send(stream, anyFrame(input), input.text(50));
            break;
        case 5:
        case 6:
            sendData(stream);
            break;
        default:
            sendProperly(stream);
        }
        return true;
    }

    /// Check that an answer is what was sent.
    void check(const GenericPayload& payload) const {
        require(
            std::count(delivered.begin(), delivered.end(), 'A') > 0 && unsent == 0,
            "an answer is one that was sent, whole");
        std::string got;
        for (std::size_t index = 0; index < payload.size(); ++index) {
            if (payload.slotType(index) == GenericPayload::typeHash<std::string>() &&
                !payload.isEmpty(index) && !payload.holdsFuture(index)) {
                got += payload.peek<std::string>(index);
            }
        }
        require(got == texts, "an answer has the bytes that were sent");
        require(payload.size() == slots, "an answer has the slots that were sent");
    }

    bool sawFailure() const { return delivered.find('F') != std::string::npos; }

private:
    void send(ScriptedStream& stream, const v1::Frame& frame, const std::string& data) {
        if (!stream.isListening()) {
            return;
        }
        if (frame.has_answer()) {
            delivered += 'A';
            answering = true;
            slots = static_cast<std::size_t>(frame.answer().slots_size());
            unsent = announced(frame.answer().slots());
            texts.clear();
        } else if (frame.has_failure()) {
            delivered += 'F';
        }
        if (answering) {
            texts += data;
            unsent -= std::min<std::uint64_t>(unsent, data.size());
        }
        stream.deliver(encoded(frame, data), input.below(50) + 1);
    }

    void sendData(ScriptedStream& stream) {
        const std::uint64_t count = input.oneIn(2)
                                        ? std::min<std::uint64_t>(unsent, maximumFrameSize / 2)
                                        : input.below(40);
        send(stream, v1::Frame(), std::string(count, static_cast<char>('a' + input.below(26))));
    }

    /// Send what a good endpoint might send now.
    void sendProperly(ScriptedStream& stream) {
        v1::Frame frame;
        if (!greeted) {
            greeted = stream.isListening();
            frame.mutable_hello()->set_major(input.oneIn(24) ? 2 : protocolMajor);
            send(stream, frame, {});
        } else if (answering && unsent > 0) {
            sendData(stream);
        } else if (input.oneIn(4)) {
            fillFailure(input, *frame.mutable_failure());
            send(stream, frame, {});
        } else {
            auto& all = *frame.mutable_answer()->mutable_slots();
            fillSlots(input, all, true);
            const std::uint64_t bytes = announced(all);
            send(stream, frame, std::string(input.oneIn(2) ? bytes : bytes / 3, 'z'));
        }
    }

    void hear(const std::string& bytes) {
        v1::Frame frame;
        require(frame.ParseFromString(bytes), "an importer sends frames");
        require(
            frame.has_hello() || frame.has_request() || frame.has_abandon() ||
                (frame.body_case() == v1::Frame::BODY_NOT_SET && !frame.data().empty()),
            "an importer greets, calls and abandons calls");
    }

    Input& input;
    ScriptedConnection& connection;
    bool greeted = false;
    std::string delivered; // in the call that is under way: A for an answer, F for a failure
    bool answering = false;
    std::size_t slots = 0;
    std::uint64_t unsent = 0;
    std::string texts;
};

GenericPayload anyArguments(Input& input) {
    switch (input.below(4)) {
    case 0:
        return GenericPayload::fromValues(input.signedNumber());
    case 1:
        return GenericPayload::fromValues(std::string(input.number() % 400000, 'w'));
    case 2:
        return GenericPayload::fromValues(
            std::string(input.take(5)), 7, std::string(input.below(2000), 'v'));
    default:
        return GenericPayload::fromValues(std::int64_t{1}, 1, 1);
    }
}

/// How a call has ended; empty when with an answer.
struct Outcome {
    std::string error;
    bool documented = true;
};

} // namespace

void fuzzImporterCalls(Input& input) {
    const auto connection = std::make_shared<ScriptedConnection>();
    const auto executor = std::make_shared<ScriptedExecutor>();
    auto session = std::make_shared<ClientSession>(connection, executor, 3, "unix:peer");
    Peer peer(input, *connection);
    executor->step = [&] { return executor->runNext() || peer.step(); };
    bool closed = false;
    std::string lost; // what every call must end with
    do {
        connection->refuseNext = input.oneIn(32);
        executor->expired = input.oneIn(8);
        executor->closed = !closed && input.oneIn(32);
        closed = closed || executor->closed;
        const bool limited = input.oneIn(4);
        const bool oneWay = input.oneIn(6);
        const char* const method = input.oneOf<const char*>({"read", "write", "seekoff"});
        peer.beginCall();
        std::string outcome;
        try {
            const GenericPayload answer = session->call(
                limited ? std::optional(std::chrono::milliseconds(0)) : std::nullopt, method,
                anyArguments(input), oneWay);
            require(lost.empty(), "a call over a lost stream is an error");
            if (!oneWay) {
                peer.check(answer);
            } else {
                require(answer.size() == 0, "nobody answers a call that is one-way");
            }
        } catch (const std::exception& error) {
            outcome = std::string(typeid(error).name()) + ": " + error.what();
            require(!outcome.empty(), "an error says what it is");
            require(lost.empty() || outcome == lost, "a lost stream stays lost, as it was lost");
        }
        if (!session->isUsable()) {
            require(!outcome.empty() || oneWay, "the call that loses a stream fails");
            lost = lost.empty() ? outcome : lost;
        }
        // Between calls the stream lives on.
        if (!connection->streams.empty() && input.oneIn(3)) {
            ScriptedStream& stream = *connection->streams.back();
            if (input.oneIn(4)) {
                stream.lose(anyEnd(input));
            }
            stream.acknowledge();
            stream.conclude();
        }
    } while (!input.empty());

    session->close();
    while (executor->runNext() || connection->settle()) {
    }
    for (const auto& stream : connection->streams) {
        stream->lose({StreamEnd::Kind::disconnected, {}});
        stream->conclude();
    }
    connection->streams.clear();
    const std::weak_ptr<ClientSession> watch = session;
    session.reset();
    require(watch.expired(), "nothing holds on to a session that is closed");
}

} // namespace agent::orvi::fuzz
