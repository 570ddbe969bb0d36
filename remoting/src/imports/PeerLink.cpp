#include "imports/PeerLink.hpp"

#include "carrier/FailedEvents.hpp"
#include "wire/CutText.hpp"
#include "wire/FrameCodec.hpp"
#include "wire/FrameLimits.hpp"
#include "wire/NewPart.hpp"

#include <orvi/remoting/Errors.hpp>

#include <algorithm>
#include <new>
#include <string>
#include <utility>

namespace agent::orvi::remoting::details {
namespace {

/// Pieces of news of a peer that wait to be dealt with, each as large as a frame at most.
constexpr std::size_t newsAtOnce = 64;

} // namespace

PeerLink::PeerLink(
    std::shared_ptr<Connection> connection, std::shared_ptr<Receiver> receiver, std::string address,
    std::string framework)
    : peerConnection(std::move(connection))
    , receiver(std::move(receiver))
    , peerAddress(std::move(address))
    , ownFramework(std::move(framework)) {}

void PeerLink::open() {
    v1::Frame greeting;
    auto& hello = newPart<v1::Hello>(greeting);
    hello.set_major(protocolMajor);
    hello.set_minor(protocolMinor);
    hello.set_framework(ownFramework);
    {
        const std::lock_guard lock(mutex);
        outgoing.push_front(std::move(greeting));
    }
    auto opened = peerConnection->open(StreamKind::control, shared_from_this());
    {
        const std::lock_guard lock(mutex);
        if (over) {
            return;
        }
        stream = std::move(opened);
        if (incomplete) {
            stream->cancel(outOfMemory());
            return;
        }
        stream->receive();
    }
    orEnd([this] { sendNext(); });
}

void PeerLink::change(const Wants::Want& want, bool wanted) noexcept {
    orEnd([&] { tell(want, wanted); });
}

/// Do something, or end the stream: a peer that has not heard everything must be told from the
/// beginning.
template <class Action>
void PeerLink::orEnd(const Action& action) noexcept {
    try {
        action();
    } catch (...) {
        const std::lock_guard lock(mutex);
        incomplete = true;
        if (stream) {
            stream->cancel(outOfMemory());
        }
    }
}

void PeerLink::tell(const Wants::Want& want, bool wanted) {
    bool takesAll = false;
    {
        const std::lock_guard lock(mutex);
        if (wanted) {
            ask(want);
        } else if (refused.erase(want.number) > 0) {
            takesAll = refused.empty();
        } else {
            unsettled.erase(want.number);
            newPart<v1::Unwant>(outgoing.emplace_back()).set_id(want.number);
            // There may be room for another one now.
            if (const auto next = refused.begin(); next != refused.end()) {
                ask({next->first, next->second});
                refused.erase(next);
                takesAll = refused.empty();
            }
        }
    }
    sendNext();
    if (takesAll) {
        receiver->connected(*this);
    }
}

/// Under the lock.
void PeerLink::ask(const Wants::Want& want) {
    unsettled[want.number] = want.filter;
    auto& asked = newPart<v1::Want>(outgoing.emplace_back());
    asked.set_id(want.number);
    asked.set_filter(want.filter);
}

bool PeerLink::isSettled() {
    const std::lock_guard lock(mutex);
    return ready && unsettled.empty();
}

std::string PeerLink::refusal() {
    const std::lock_guard lock(mutex);
    return refused.empty() ? std::string() : lastRefusal;
}

void PeerLink::sendNext() {
    const std::lock_guard lock(mutex);
    if (stream && !sending && !outgoing.empty()) {
        const v1::Frame next = std::move(outgoing.front());
        outgoing.pop_front();
        OutgoingFrame encoded = encodeFrame(next);
        sending = true;
        stream->send(std::move(encoded));
    }
}

void PeerLink::sent() {
    {
        const std::lock_guard lock(mutex);
        sending = false;
    }
    orEnd([this] { sendNext(); });
}

void PeerLink::received(google::protobuf::io::ZeroCopyInputStream& input, std::size_t size) {
    FrameReader(input, size).readHead(frame);
    if (frame.has_hello()) {
        greeted(frame.hello());
    } else if (!isGreeted) {
        throw ProtocolError("The endpoint does not greet first.");
    }
    if (frame.has_offer() || frame.has_withdrawal() || frame.has_settled()) {
        const std::lock_guard lock(mutex);
        ++undigested;
    }
    switch (frame.body_case()) {
    case v1::Frame::kOffer:
        receiver->offered(*this, std::shared_ptr<const v1::Offer>(frame.release_offer()));
        break;
    case v1::Frame::kWithdrawal:
        receiver->withdrawn(*this, frame.withdrawal());
        break;
    case v1::Frame::kSettled:
        settled(frame.settled());
        break;
    case v1::Frame::kHello:
    case v1::Frame::BODY_NOT_SET:
        break;
    default:
        throw ProtocolError("A control stream carries nothing but offers to the importer.");
    }
    const std::lock_guard lock(mutex);
    deaf = undigested >= newsAtOnce;
    if (stream && !deaf) {
        stream->receive();
    }
}

void PeerLink::digested() {
    const std::lock_guard lock(mutex);
    --undigested;
    if (deaf && stream) {
        deaf = false;
        stream->receive();
    }
}

void PeerLink::settled(const v1::Settled& settled) {
    bool takesOthers = false;
    {
        const std::lock_guard lock(mutex);
        const bool tookAll = refused.empty();
        auto answered = unsettled.extract(settled.id());
        if (answered && !settled.refusal().empty()) {
            refused.insert(std::move(answered));
            lastRefusal = cutText(settled.refusal(), maximumEndText);
        }
        takesOthers = refused.empty() != tookAll;
    }
    if (takesOthers) {
        receiver->connected(*this);
    }
    receiver->settled(*this);
}

void PeerLink::greeted(const v1::Hello& hello) {
    if (std::exchange(isGreeted, true)) {
        throw ProtocolError("The endpoint greets twice.");
    }
    std::shared_ptr<Stream> open;
    {
        const std::lock_guard lock(mutex);
        open = stream;
    }
    if (hello.major() != protocolMajor) {
        open->cancel(
            {StreamEnd::Kind::versionMismatch,
             "The endpoint speaks version " + std::to_string(hello.major()) +
                 " of the protocol, the importer version " + std::to_string(protocolMajor) + "."});
        return;
    }
    if (hello.framework() == ownFramework) {
        open->cancel({StreamEnd::Kind::cancelled, "The endpoint is of this process."});
        return;
    }
    if (std::max(hello.endpoint().size(), hello.framework().size()) > maximumPeerName) {
        throw ProtocolError(
            "The endpoint's names have more than " + std::to_string(maximumPeerName) + " bytes.");
    }
    endpointId = hello.endpoint();
    frameworkId = hello.framework();
    receiver->greeted(*this);
    {
        const std::lock_guard lock(mutex);
        ready = true;
    }
    receiver->connected(*this);
}

void PeerLink::ended(const StreamEnd& end) {
    {
        const std::lock_guard lock(mutex);
        over = true;
        stream.reset();
        outgoing.clear();
    }
    streamEnd.kind = end.kind;
    try {
        streamEnd.text = end.text;
    } catch (const std::bad_alloc&) {
        // The kind says enough.
    }
    receiver->lost(*this);
}

} // namespace agent::orvi::remoting::details
