#pragma once

#include "carrier/Carrier.hpp"
#include "carrier/OwnProcess.hpp"
#include "wire/FrameCodec.hpp"
#include "wire/Messages.hpp"
#include "wire/PayloadCodec.hpp"

#include <orvi/core/Invokable.hpp>

#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace agent::orvi::remoting::details {

/// One call stream on the importing side, opened with the first call. Each call is made by the
/// thread that wants it: it sends the request and handles the events that bring the answer.
///
/// Once the stream is lost, every call fails as the first one did.
///
/// Thread safety: thread-safe; calls are made one after another.
class ClientSession final : public StreamEvents,
                            public std::enable_shared_from_this<ClientSession> {
public:
    /// @param service the exporter's number of the service that is called.
    /// @param peer names the peer in errors.
    ClientSession(
        std::shared_ptr<Connection> connection, std::shared_ptr<Executor> executor,
        std::uint64_t service, std::string peer);

    /// Call a method and wait for its answer, before that for the calls before it; the time limit
    /// is for both.
    ///
    /// @return the answer; an empty payload for a call without one.
    /// @throws what the method threw, and what orvi/remoting/Errors.hpp names.
    core::GenericPayload call(
        std::optional<std::chrono::milliseconds> timeLimit, const std::string& method,
        core::GenericPayload arguments, bool withoutAnswer);

    /// End the stream. Call it when there are no more calls.
    void close();

    /// Say whether calls can still succeed.
    bool isUsable();

    void received(google::protobuf::io::ZeroCopyInputStream& input, std::size_t size) override;
    void sent() override;
    void ended(const StreamEnd& end) override;

private:
    enum class Phase {
        idle,
        calling,
        receivingAnswer,
        droppingAnswer, // there is no memory for it
        done
    };

    void begin(OutgoingMessage request, std::uint64_t bytesAsked, bool withoutAnswer, Wait& wait);
    void openStream();
    void giveUp(Wait& wait, StreamEnd::Kind kind) noexcept;
    void endCall() noexcept;
    void cancel(const StreamEnd& end);
    void sendNext();
    void greeted(const v1::Hello& hello);
    void answered(const v1::Answer& answer, FrameReader& reader);
    void failed(const v1::Failure& reported);
    void append(FrameReader& reader);
    void dropAnswer();
    void finishCall();

    const OwnProcess process;
    const std::shared_ptr<Connection> connection;
    const std::shared_ptr<Executor> executor;
    const std::uint64_t service;
    const std::string peer;

    std::timed_mutex calls; // one at a time

    std::mutex mutex;
    std::shared_ptr<Stream> stream;
    std::exception_ptr broken; // what every call ends with
    bool greetingDue = false;
    bool peerGreeted = false;
    bool sending = false;
    bool reading = false;
    bool abandonDue = false;
    Phase phase = Phase::idle;
    Wait* wait = nullptr;
    bool oneWay = false;
    std::uint64_t trustedBytes = 0;
    v1::Frame frame;
    std::optional<OutgoingMessage> outgoing;
    IncomingMessage incoming;
    std::uint64_t missing = 0; // of the answer's data
    std::exception_ptr failure;
};

} // namespace agent::orvi::remoting::details
