#pragma once

#include "carrier/Carrier.hpp"
#include "exports/AccessPolicy.hpp"
#include "exports/CallBudget.hpp"
#include "exports/ExportTable.hpp"
#include "wire/FrameCodec.hpp"
#include "wire/Messages.hpp"
#include "wire/PayloadCodec.hpp"

#include <orvi/remoting/Endpoint.hpp>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace agent::orvi::remoting::details {

/// What the call streams of an endpoint have in common.
struct CallTerms {
    explicit CallTerms(const EndpointOptions& options)
        : access(options.access)
        , budget(options.limits.callsInFlight, options.limits.bytesInFlight)
        , bytesPerCall(options.limits.bytesPerCall)
        , oneAtATime(options.callOrder == CallOrder::oneAtATime)
        , positionPerConnection(options.positionPerConnection) {}

    AccessPolicy access;
    CallBudget budget;
    std::uint64_t bytesPerCall;
    bool oneAtATime;
    bool positionPerConnection;
};

/// One call stream on the exporting side: a client calls methods of one service, one after another.
class CallSession final : public StreamEvents, public std::enable_shared_from_this<CallSession> {
public:
    CallSession(
        std::shared_ptr<Stream> stream, PeerNames peer, std::shared_ptr<ExportTable> table,
        std::shared_ptr<CallTerms> terms, Executor& executor);

    void received(google::protobuf::io::ZeroCopyInputStream& input, std::size_t size) override;
    void sent() override;
    void ended(const StreamEnd& end) override;

    /// Answer the call that is running, if any, as if its service had been withdrawn.
    void abandon() noexcept;

private:
    /// One call while it runs: answers once, at the latest when nobody can answer it any more.
    class RunningCall;

    enum class State {
        greeting, // nothing has come yet
        idle,
        receiving, // a request whose data have not all come
        skipping,  // data of a request that was refused
        running
    };

    void greet(const v1::Frame& greeting);
    void request(const v1::Frame& head, FrameReader& reader);
    void admit(const v1::Request& request);
    void refuse(const v1::Request& request, FrameReader& reader, const std::exception_ptr& error);
    void append(FrameReader& reader);
    void skip(FrameReader& reader, const v1::Frame& head);
    void start();
    void invoke(RunningCall& call) noexcept;
    void respond(OutgoingMessage message, const RunningCall& call);
    void giveUp(const RunningCall& call) noexcept;
    void reply(OutgoingMessage message);
    void sendNext() noexcept;
    void trySendNext();
    bool isAwaited(const RunningCall& call);

    const std::shared_ptr<Stream> stream;
    const PeerNames peer;
    const std::shared_ptr<ExportTable> table;
    const std::shared_ptr<CallTerms> terms;
    Executor& executor;
    const PositionKeeper::Client id;

    // Of the events, one at a time:
    v1::Frame frame;
    std::atomic<State> state{State::greeting};
    std::uint64_t serviceNumber = 0;
    std::shared_ptr<ExportedService> service;
    std::string method;
    bool oneWay = false;
    IncomingMessage incoming;
    std::uint64_t toSkip = 0;

    std::mutex mutex;
    bool gone = false;
    bool sending = false;
    bool greetingDue = false;
    RunningCall* awaited = nullptr; // the call that nobody has answered yet
    CallBudget::Share share;        // of the call that is running or being answered
    std::optional<OutgoingMessage> outgoing;
};

} // namespace agent::orvi::remoting::details
