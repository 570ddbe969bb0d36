#include "imports/ClientSession.hpp"

#include "carrier/FailedEvents.hpp"
#include "carrier/TimeLimit.hpp"
#include "imports/StreamErrors.hpp"
#include "wire/ErrorCodec.hpp"
#include "wire/FrameLimits.hpp"
#include "wire/NewPart.hpp"

#include <orvi/remoting/Errors.hpp>

#include <algorithm>
#include <new>
#include <utility>

namespace agent::orvi::remoting::details {
namespace {

/// What an answer may have beyond the bytes that were asked for.
constexpr std::uint64_t unaskedBytes = std::uint64_t{64} << 20;

/// Return how many bytes a call asks for.
std::uint64_t bytesAskedFor(const std::string& method, const core::GenericPayload& arguments) {
    if (method != "read" || arguments.size() == 0 || arguments.isEmpty(0) ||
        arguments.holdsFuture(0) ||
        arguments.slotType(0) != core::GenericPayload::typeHash<std::int64_t>()) {
        return 0;
    }
    const auto count = arguments.peek<std::int64_t>(0);
    return count > 0 ? static_cast<std::uint64_t>(count) : 0;
}

} // namespace

ClientSession::ClientSession(
    std::shared_ptr<Connection> connection, std::shared_ptr<Executor> executor,
    std::uint64_t service, std::string peer)
    : connection(std::move(connection))
    , executor(std::move(executor))
    , service(service)
    , peer(std::move(peer)) {}

core::GenericPayload ClientSession::call(
    std::optional<std::chrono::milliseconds> timeLimit, const std::string& method,
    core::GenericPayload arguments, bool withoutAnswer) {
    std::optional<Executor::TimePoint> end;
    if (timeLimit) {
        end = timeLimitIn(*timeLimit);
    }
    if (!process.isHere()) {
        std::rethrow_exception(errorOf(
            {StreamEnd::Kind::disconnected, "The connection is the parent process's."}, peer));
    }
    const std::uint64_t bytesAsked = bytesAskedFor(method, arguments);
    OutgoingMessage request = OutgoingMessage::request(method, withoutAnswer, std::move(arguments));
    const auto oneCall = end ? std::unique_lock(calls, *end) : std::unique_lock(calls);
    if (!oneCall) {
        throw TimeLimitExceeded("A call before this one has not ended in time.");
    }
    Wait waiting;
    bool inTime = false;
    try {
        begin(std::move(request), bytesAsked, withoutAnswer, waiting);
        inTime = executor->wait(waiting, end);
    } catch (...) {
        // A new stream would have its own position on the device, which the caller cannot know.
        giveUp(waiting, StreamEnd::Kind::disconnected);
        const std::lock_guard lock(mutex);
        endCall();
        throw;
    }
    if (!inTime) {
        giveUp(waiting, StreamEnd::Kind::cancelled);
    }
    const std::lock_guard lock(mutex);
    endCall();
    if (!inTime && end && std::chrono::system_clock::now() >= *end) {
        throw TimeLimitExceeded("Peer " + peer + " has not answered in time.");
    }
    if (!inTime) {
        failure = errorOf({StreamEnd::Kind::disconnected, "The importer has been closed."}, peer);
    }
    if (failure) {
        std::rethrow_exception(std::exchange(failure, nullptr));
    }
    return withoutAnswer ? core::GenericPayload() : incoming.take();
}

void ClientSession::begin(
    OutgoingMessage request, std::uint64_t bytesAsked, bool withoutAnswer, Wait& waiting) {
    bool mustOpen = false;
    {
        const std::lock_guard lock(mutex);
        if (broken) {
            std::rethrow_exception(broken);
        }
        wait = &waiting;
        phase = Phase::calling;
        oneWay = withoutAnswer;
        trustedBytes = bytesAsked;
        outgoing = std::move(request);
        failure = nullptr;
        mustOpen = !stream;
    }
    if (mustOpen) {
        openStream();
    }
    sendNext();
    const std::lock_guard lock(mutex);
    // Only now: what a carrier has to say about its readiness to receive travels with the request.
    if (stream && !reading) {
        reading = true;
        stream->receive();
    }
}

void ClientSession::openStream() {
    {
        const std::lock_guard lock(mutex);
        greetingDue = true;
        peerGreeted = false;
        sending = false;
        reading = false;
        abandonDue = false;
    }
    auto opened = connection->open(StreamKind::call, shared_from_this());
    const std::lock_guard lock(mutex);
    if (phase == Phase::calling) { // it has not ended already
        stream = std::move(opened);
    }
}

/// The caller waits no longer: without the answer the stream is of no use.
void ClientSession::giveUp(Wait& waiting, StreamEnd::Kind kind) noexcept {
    std::shared_ptr<Stream> hopeless;
    {
        const std::lock_guard lock(mutex);
        hopeless = stream;
    }
    if (!hopeless) {
        return;
    }
    try {
        hopeless->cancel({kind, {}});
        executor->wait(waiting, std::nullopt);
    } catch (...) {
        // It ends without anybody waiting for it.
    }
}

/// Nobody waits for the outcome of a call any more. Under the lock.
void ClientSession::endCall() noexcept {
    wait = nullptr;
    phase = Phase::idle;
    outgoing.reset();
}

void ClientSession::sendNext() {
    const std::lock_guard lock(mutex);
    if (sending || !stream) {
        return;
    }
    OutgoingFrame next;
    if (std::exchange(greetingDue, false)) {
        v1::Frame greeting;
        auto& hello = newPart<v1::Hello>(greeting);
        hello.set_major(protocolMajor);
        hello.set_minor(protocolMinor);
        hello.set_service(service);
        next = encodeFrame(greeting);
        next.moreFollow = outgoing && outgoing->hasNext();
    } else if (std::exchange(abandonDue, false)) {
        v1::Frame abandon;
        newPart<v1::Abandon>(abandon);
        next = encodeFrame(abandon);
    } else if (outgoing && outgoing->hasNext()) {
        next = outgoing->next();
        next.moreFollow = outgoing->hasNext();
    } else {
        return;
    }
    sending = true;
    stream->send(std::move(next));
}

void ClientSession::sent() {
    {
        const std::lock_guard lock(mutex);
        sending = false;
        if (oneWay && phase == Phase::calling && !greetingDue && !outgoing->hasNext()) {
            finishCall();
            return;
        }
    }
    try {
        sendNext();
    } catch (...) {
        cancel(outOfMemory());
    }
}

void ClientSession::cancel(const StreamEnd& end) {
    std::shared_ptr<Stream> open;
    {
        const std::lock_guard lock(mutex);
        open = stream;
    }
    if (open) {
        open->cancel(end);
    }
}

void ClientSession::received(google::protobuf::io::ZeroCopyInputStream& input, std::size_t size) {
    FrameReader reader(input, size);
    bool abandon = false;
    {
        const std::lock_guard lock(mutex);
        reader.readHead(frame);
        switch (frame.body_case()) {
        case v1::Frame::kHello:
            greeted(frame.hello());
            break;
        case v1::Frame::kAnswer:
            answered(frame.answer(), reader);
            break;
        case v1::Frame::kFailure:
            failed(frame.failure());
            abandon = abandonDue;
            break;
        case v1::Frame::BODY_NOT_SET:
            append(reader);
            break;
        default:
            throw ProtocolError("A call stream carries nothing but answers to the importer.");
        }
        if (phase != Phase::done && stream) {
            stream->receive();
        } else {
            reading = false;
        }
    }
    if (abandon) {
        sendNext();
    }
}

void ClientSession::greeted(const v1::Hello& hello) {
    if (std::exchange(peerGreeted, true)) {
        throw ProtocolError("The endpoint greets twice.");
    }
    if (hello.major() != protocolMajor) {
        stream->cancel(
            {StreamEnd::Kind::versionMismatch,
             "The endpoint speaks version " + std::to_string(hello.major()) +
                 " of the protocol, the importer version " + std::to_string(protocolMajor) + "."});
    }
}

void ClientSession::answered(const v1::Answer& answer, FrameReader& reader) {
    if (phase != Phase::calling || oneWay || !peerGreeted) {
        throw ProtocolError("The endpoint answers a call that was not made.");
    }
    incoming.begin(answer.slots());
    if (incoming.byteCount() > trustedBytes + std::min(unaskedBytes, ~trustedBytes)) {
        throw ProtocolError(
            "The endpoint announces an answer of " + std::to_string(incoming.byteCount()) +
            " bytes, of which " + std::to_string(trustedBytes) + " were asked for.");
    }
    missing = incoming.byteCount();
    phase = Phase::receivingAnswer;
    try {
        incoming.reserve(trustedBytes);
    } catch (const std::bad_alloc&) {
        dropAnswer();
    }
    append(reader);
}

void ClientSession::append(FrameReader& reader) {
    const std::size_t size = reader.dataSize();
    if (phase != Phase::receivingAnswer && phase != Phase::droppingAnswer) {
        if (size > 0) {
            throw ProtocolError("The endpoint sends data that belong to nothing.");
        }
        return; // something that a later version has added
    }
    if (size > missing) {
        throw ProtocolError("A message has more data than it announced.");
    }
    missing -= size;
    if (phase == Phase::receivingAnswer) {
        try {
            incoming.append(reader);
        } catch (const std::bad_alloc&) {
            dropAnswer();
        }
    }
    reader.skipData();
    if (missing == 0) {
        finishCall();
    }
}

/// There is no memory for an answer. The rest of it is skipped, so that the stream can go on.
void ClientSession::dropAnswer() {
    failure = std::current_exception();
    incoming = IncomingMessage();
    phase = Phase::droppingAnswer;
}

void ClientSession::failed(const v1::Failure& reported) {
    if (phase != Phase::calling || oneWay || !peerGreeted) {
        throw ProtocolError("The endpoint answers a call that was not made.");
    }
    failure = decodeFailure(reported);
    if (outgoing && outgoing->hasNext()) {
        outgoing.reset();
        abandonDue = true;
    }
    finishCall();
}

/// The caller may go on. Under the lock.
void ClientSession::finishCall() {
    phase = Phase::done;
    executor->finish(*wait);
}

void ClientSession::ended(const StreamEnd& end) {
    const std::lock_guard lock(mutex);
    stream.reset();
    const std::exception_ptr error = errorOf(end, peer);
    // A stream that the caller has given up, or that never was, is replaced by the next call's.
    const bool refused = !peerGreeted && (end.kind == StreamEnd::Kind::limitExceeded ||
                                          end.kind == StreamEnd::Kind::accessDenied);
    if (end.kind != StreamEnd::Kind::cancelled && !refused) {
        broken = error;
    }
    if (phase != Phase::idle && phase != Phase::done) {
        failure = error;
        finishCall();
    }
}

void ClientSession::close() {
    cancel({StreamEnd::Kind::cancelled, {}});
}

bool ClientSession::isUsable() {
    const std::lock_guard lock(mutex);
    return !broken;
}

} // namespace agent::orvi::remoting::details
