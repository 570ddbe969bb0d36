#include "exports/CallSession.hpp"

#include "carrier/FailedEvents.hpp"
#include "wire/FrameLimits.hpp"
#include "wire/NewPart.hpp"

#include <orvi/core/InvocationErrors.hpp>
#include <orvi/remoting/Errors.hpp>

#include <algorithm>
#include <atomic>
#include <exception>
#include <future>
#include <utility>

namespace agent::orvi::remoting::details {
namespace {

constexpr std::string_view readMethod = "read";

PositionKeeper::Client nextClient() {
    static std::atomic<PositionKeeper::Client> last{0};
    return ++last;
}

/// Return how many bytes a call asks for.
std::uint64_t bytesAskedFor(const v1::Request& request) {
    if (request.method() == readMethod && request.slots_size() > 0) {
        const v1::Slot& count = request.slots(0);
        if (count.type() == v1::INT64 && count.numbers_size() == 1 && count.numbers(0) > 0) {
            return static_cast<std::uint64_t>(count.numbers(0));
        }
    }
    return 0;
}

} // namespace

class CallSession::RunningCall final : public CallQueue::Call,
                                       public std::enable_shared_from_this<RunningCall> {
public:
    RunningCall(std::shared_ptr<CallSession> session, core::GenericPayload arguments)
        : method(session->method)
        , oneWay(session->oneWay)
        , arguments(std::move(arguments))
        , session(std::move(session)) {}

    /// Nobody has answered: the caller learns it as a local one does.
    ~RunningCall() override {
        if (!responded) {
            try {
                throw std::future_error(std::future_errc::broken_promise);
            } catch (...) {
                fail(std::current_exception());
            }
        }
    }

    RunningCall(const RunningCall&) = delete;
    RunningCall& operator=(const RunningCall&) = delete;

    void run() noexcept override {
        hasTurn = session->terms->oneAtATime;
        session->invoke(*this);
    }

    void succeed(core::GenericPayload result) {
        responded = true;
        endTurn();
        try {
            session->respond(OutgoingMessage::answer(std::move(result)), *this);
        } catch (...) {
            fail(std::current_exception());
        }
    }

    void fail(const std::exception_ptr& error) noexcept {
        responded = true;
        endTurn();
        try {
            session->respond(OutgoingMessage::failure(error), *this);
        } catch (...) {
            session->giveUp(*this);
        }
    }

    const std::string method;
    const bool oneWay;
    core::GenericPayload arguments;

private:
    void endTurn() noexcept {
        if (hasTurn.exchange(false)) {
            session->service->turns->queue.endTurn();
        }
    }

    const std::shared_ptr<CallSession> session;
    std::atomic<bool> hasTurn{false};
    std::atomic<bool> responded{false};
};

CallSession::CallSession(
    std::shared_ptr<Stream> stream, PeerNames peer, std::shared_ptr<ExportTable> table,
    std::shared_ptr<CallTerms> terms, Executor& executor)
    : stream(std::move(stream))
    , peer(std::move(peer))
    , table(std::move(table))
    , terms(std::move(terms))
    , executor(executor)
    , id(nextClient()) {}

void CallSession::received(google::protobuf::io::ZeroCopyInputStream& input, std::size_t size) {
    FrameReader reader(input, size);
    reader.readHead(frame);
    switch (state) {
    case State::greeting:
        greet(frame);
        break;
    case State::idle:
        request(frame, reader);
        break;
    case State::receiving:
        if (frame.body_case() != v1::Frame::BODY_NOT_SET) {
            throw ProtocolError("A request's data are interrupted.");
        }
        append(reader);
        break;
    case State::skipping:
        skip(reader, frame);
        break;
    case State::running:
        throw ProtocolError("A call begins before the one before has been answered.");
    }
}

void CallSession::greet(const v1::Frame& greeting) {
    if (!greeting.has_hello()) {
        throw ProtocolError("A call stream begins with a greeting.");
    }
    if (greeting.hello().major() != protocolMajor) {
        stream->finish(
            {StreamEnd::Kind::versionMismatch, "The endpoint speaks version " +
                                                   std::to_string(protocolMajor) +
                                                   " of the protocol, the importer version " +
                                                   std::to_string(greeting.hello().major()) + "."});
        return;
    }
    serviceNumber = greeting.hello().service();
    service = table->find(serviceNumber);
    state = State::idle;
    {
        const std::lock_guard lock(mutex);
        greetingDue = true;
    }
    sendNext();
    stream->receive();
}

/// Begin with a request. One that is refused is answered at once; its data are skipped.
void CallSession::request(const v1::Frame& head, FrameReader& reader) {
    if (head.body_case() == v1::Frame::kAbandon) {
        stream->receive(); // of a request that was refused when all its data had come
        return;
    }
    if (head.body_case() == v1::Frame::BODY_NOT_SET && reader.dataSize() == 0) {
        stream->receive(); // something that a later version has added
        return;
    }
    if (!head.has_request()) {
        throw ProtocolError("A call stream carries nothing but requests to the endpoint.");
    }
    const v1::Request& request = head.request();
    incoming.begin(request.slots());
    try {
        admit(request);
        incoming.reserve(incoming.byteCount());
    } catch (...) {
        refuse(request, reader, std::current_exception());
        return;
    }
    method = request.method();
    oneWay = request.one_way();
    append(reader);
}

/// Answer a request with an error, and skip its data.
void CallSession::refuse(
    const v1::Request& request, FrameReader& reader, const std::exception_ptr& error) {
    if (incoming.byteCount() < reader.dataSize()) {
        throw ProtocolError("A request has more data than it has announced.");
    }
    toSkip = incoming.byteCount() - reader.dataSize();
    state = toSkip > 0 ? State::skipping : State::idle;
    reader.skipData();
    incoming = IncomingMessage();
    if (request.one_way()) {
        {
            const std::lock_guard lock(mutex);
            share = {};
        }
        stream->receive();
    } else {
        reply(OutgoingMessage::failure(error));
    }
}

/// Let a call in, or throw what it is refused with.
void CallSession::admit(const v1::Request& request) {
    if (!service) {
        throw core::ServiceUnavailable(
            "The endpoint has no service of the number " + std::to_string(serviceNumber) +
            " any more.");
    }
    if (!terms->access.allows(peer, service->name, request.method())) {
        throw AccessDenied(
            "The endpoint does not let this peer call \"" + request.method() + "\" of service \"" +
            service->name + "\".");
    }
    const std::uint64_t bytes = std::max(incoming.byteCount(), bytesAskedFor(request));
    if (bytes > terms->bytesPerCall) {
        throw LimitExceeded(
            "The call moves " + std::to_string(bytes) + " bytes; the endpoint allows " +
            std::to_string(terms->bytesPerCall) + ".");
    }
    CallBudget::Share taken(terms->budget, bytes);
    const std::lock_guard lock(mutex);
    share = std::move(taken);
}

void CallSession::append(FrameReader& reader) {
    incoming.append(reader);
    if (incoming.complete()) {
        start();
    } else {
        state = State::receiving;
        stream->receive();
    }
}

void CallSession::skip(FrameReader& reader, const v1::Frame& head) {
    if (head.body_case() == v1::Frame::kAbandon) {
        state = State::idle;
    } else if (head.body_case() != v1::Frame::BODY_NOT_SET || reader.dataSize() > toSkip) {
        throw ProtocolError("A request has more data than it has announced.");
    } else {
        toSkip -= reader.dataSize();
        reader.skipData();
        state = toSkip > 0 ? State::skipping : State::idle;
    }
    stream->receive();
}

void CallSession::start() {
    const auto call = std::make_shared<RunningCall>(shared_from_this(), incoming.take());
    state = State::running;
    {
        const std::lock_guard lock(mutex);
        awaited = call.get();
    }
    if (terms->oneAtATime) {
        service->turns->queue.add(call);
    } else {
        executor.post([call] { call->run(); });
    }
}

void CallSession::invoke(RunningCall& call) noexcept {
    // What a client has not waited for must not reach the device, which might lose bytes by it.
    if (!isAwaited(call)) {
        return;
    }
    try {
        if (terms->oneAtATime && terms->positionPerConnection) {
            service->turns->positions.prepareFor(id);
            if (!isAwaited(call)) {
                service->turns->positions.forget(id);
                return;
            }
        }
        service->service->invoke(
            std::nullopt, call.method,
            {[call = call.shared_from_this()](core::GenericPayload result) {
                 call->succeed(std::move(result));
             },
             [call = call.shared_from_this()](const std::exception_ptr& error) {
                 call->fail(error);
             }},
            std::move(call.arguments), call.oneWay);
    } catch (...) {
        call.fail(std::current_exception());
    }
}

/// End a call with its outcome, unless it has ended before.
void CallSession::respond(OutgoingMessage message, const RunningCall& call) {
    {
        const std::lock_guard lock(mutex);
        if (awaited != &call) {
            return;
        }
        awaited = nullptr;
        if (call.oneWay) {
            share = {};
            state = State::idle;
        }
    }
    if (call.oneWay) {
        stream->receive();
    } else {
        reply(std::move(message));
    }
}

/// There is no memory to say how a call has ended.
void CallSession::giveUp(const RunningCall& call) noexcept {
    {
        const std::lock_guard lock(mutex);
        if (awaited == &call) {
            awaited = nullptr;
        }
    }
    stream->cancel(outOfMemory());
}

void CallSession::reply(OutgoingMessage message) {
    {
        const std::lock_guard lock(mutex);
        outgoing = std::move(message);
    }
    sendNext();
}

void CallSession::sent() {
    {
        const std::lock_guard lock(mutex);
        sending = false;
    }
    sendNext();
}

void CallSession::sendNext() noexcept {
    try {
        trySendNext();
    } catch (...) {
        stream->cancel(outOfMemory());
    }
}

void CallSession::trySendNext() {
    const std::lock_guard lock(mutex);
    if (gone) {
        outgoing.reset();
        if (awaited == nullptr) {
            share = {};
        }
    }
    if (sending || gone) {
        return;
    }
    if (std::exchange(greetingDue, false)) {
        v1::Frame greeting;
        auto& hello = newPart<v1::Hello>(greeting);
        hello.set_major(protocolMajor);
        hello.set_minor(protocolMinor);
        sending = true;
        stream->send(encodeFrame(greeting));
        return;
    }
    if (!outgoing) {
        return;
    }
    OutgoingFrame next = outgoing->next();
    sending = true;
    if (outgoing->hasNext()) {
        next.moreFollow = true;
        stream->send(std::move(next));
        return;
    }
    outgoing.reset();
    share = {};
    if (state == State::running) {
        state = State::idle;
    }
    stream->send(std::move(next));
    // Who does not listen to answers is not listened to. Besides, what a carrier has to say about
    // its readiness to receive travels with the answer.
    stream->receive();
}

/// Say whether anybody still waits for a call.
bool CallSession::isAwaited(const RunningCall& call) {
    const std::lock_guard lock(mutex);
    return !gone && awaited == &call;
}

void CallSession::ended(const StreamEnd&) {
    {
        const std::lock_guard lock(mutex);
        gone = true;
        outgoing.reset();
        if (awaited == nullptr) {
            share = {};
        }
    }
    if (service && terms->positionPerConnection) {
        service->turns->positions.forget(id);
    }
}

void CallSession::abandon() noexcept {
    std::shared_ptr<const RunningCall> call;
    {
        const std::lock_guard lock(mutex);
        if (awaited != nullptr) {
            call = awaited->weak_from_this().lock();
        }
    }
    if (!call) {
        return;
    }
    try {
        respond(
            OutgoingMessage::failure(std::make_exception_ptr(
                core::ServiceUnavailable("The endpoint closes while the call is running."))),
            *call);
    } catch (...) {
        // The end of the stream tells the caller, too.
    }
}

} // namespace agent::orvi::remoting::details
