#include "exports/ControlSession.hpp"

#include "carrier/FailedEvents.hpp"
#include "wire/FrameCodec.hpp"
#include "wire/FrameLimits.hpp"
#include "wire/InterfaceCodec.hpp"
#include "wire/NewPart.hpp"
#include "wire/PropertyCodec.hpp"

#include <orvi/remoting/Errors.hpp>

#include <exception>
#include <new>
#include <utility>

namespace agent::orvi::remoting::details {
namespace {

/// How much a peer may not have taken yet of what there is to tell it when it is listened to.
constexpr std::size_t newsOfAListener = 1024;

} // namespace

ControlSession::ControlSession(
    std::shared_ptr<Stream> stream, std::shared_ptr<ExportTable> table, EndpointName name,
    std::size_t maximumWants, Executor& executor)
    : stream(std::move(stream))
    , table(std::move(table))
    , name(std::move(name))
    , maximumWants(maximumWants)
    , executor(executor) {}

/// Do something, or end the stream: a peer that has missed some of the news must begin again.
template <class Action>
void ControlSession::orEnd(const Action& action) noexcept {
    try {
        action();
    } catch (...) {
        stream->cancel(outOfMemory());
    }
}

void ControlSession::received(google::protobuf::io::ZeroCopyInputStream& input, std::size_t size) {
    auto frame = std::make_shared<v1::Frame>();
    FrameReader(input, size).readHead(*frame);
    if (!greeted) {
        greet(*frame);
        return;
    }
    // Looking through many services takes time. The next frame waits for that.
    executor.postBrief([self = shared_from_this(), frame] {
        self->orEnd([&] {
            try {
                self->handle(*frame);
                self->listen();
            } catch (...) {
                self->stream->finish(endOfFailedEvent());
            }
        });
    });
}

void ControlSession::greet(const v1::Frame& frame) {
    if (!frame.has_hello()) {
        throw ProtocolError("A control stream begins with a greeting.");
    }
    greeted = true;
    tell(News::Greeting());
    if (frame.hello().major() != protocolMajor) {
        stream->finish(
            {StreamEnd::Kind::versionMismatch, "The endpoint speaks version " +
                                                   std::to_string(protocolMajor) +
                                                   " of the protocol, the importer version " +
                                                   std::to_string(frame.hello().major()) + "."});
        return;
    }
    stream->receive();
}

/// Wait for the next frame, unless the peer has much to hear first: who does not listen is not
/// listened to.
void ControlSession::listen() {
    {
        const std::lock_guard lock(mutex);
        deaf = news.size() >= newsOfAListener;
        if (deaf) {
            return;
        }
    }
    stream->receive();
}

void ControlSession::handle(const v1::Frame& frame) {
    switch (frame.body_case()) {
    case v1::Frame::kWant:
        want(frame.want());
        break;
    case v1::Frame::kUnwant:
        wants -= table->unwant(*this, frame.unwant().id()) ? 1 : 0;
        break;
    case v1::Frame::BODY_NOT_SET:
        break; // something that a later version has added
    default:
        throw ProtocolError("A control stream carries nothing but look-ups to the endpoint.");
    }
}

void ControlSession::want(const v1::Want& want) {
    std::string refusal = whyNot(want);
    if (refusal.empty()) {
        table->want(*this, want.id(), want.filter());
        ++wants;
    }
    tell(News::Settled{want.id(), std::move(refusal)});
    bool late = false;
    {
        const std::lock_guard lock(mutex);
        late = over;
    }
    if (late) {
        table->leave(*this);
    }
}

/// Return why the peer cannot look for that as well, nothing when it can.
std::string ControlSession::whyNot(const v1::Want& want) const {
    if (want.filter().size() > maximumFilterSize) {
        return "A filter has " + std::to_string(want.filter().size()) + " bytes; " +
               std::to_string(maximumFilterSize) + " are allowed.";
    }
    if (wants >= maximumWants) {
        return "There are " + std::to_string(maximumWants) +
               " look-ups already, which is the limit.";
    }
    return {};
}

void ControlSession::sayGoodbye() {
    tell(News::Goodbye());
}

void ControlSession::offered(std::uint64_t service) {
    tell(News::Offered{service});
}

void ControlSession::withdrawn(std::uint64_t service, bool unwanted) {
    tell(News::Withdrawn{service, unwanted});
}

/// Take note of something to be sent. It is sent later, because the table may tell it with its own
/// lock held.
void ControlSession::tell(const News::Item& item) noexcept {
    orEnd([&] {
        const std::lock_guard lock(mutex);
        if (!over) {
            news.add(item);
            if (!sending) {
                sending = true;
                executor.postBrief([self = shared_from_this()] { self->sendNext(); });
            }
        }
    });
}

void ControlSession::sent() {
    orEnd([this] { executor.postBrief([self = shared_from_this()] { self->sendNext(); }); });
}

/// Send the next piece of news that is still worth sending.
void ControlSession::sendNext() noexcept {
    orEnd([this] { trySendNext(); });
}

void ControlSession::trySendNext() {
    for (;;) {
        News::Item next;
        bool listenAgain = false;
        {
            const std::lock_guard lock(mutex);
            const auto first = news.take();
            if (!first) {
                sending = false;
                return;
            }
            next = *first;
            listenAgain = deaf && news.size() < newsOfAListener;
            deaf = deaf && !listenAgain;
        }
        if (listenAgain) {
            stream->receive();
        }
        if (std::holds_alternative<News::Goodbye>(next)) {
            stream->finish(StreamEnd());
            return;
        }
        OutgoingFrame frame;
        if (encode(next, frame)) {
            stream->send(std::move(frame));
            return;
        }
    }
}

bool ControlSession::encode(const News::Item& item, OutgoingFrame& outgoing) {
    v1::Frame frame;
    if (std::holds_alternative<News::Greeting>(item)) {
        auto& hello = newPart<v1::Hello>(frame);
        hello.set_major(protocolMajor);
        hello.set_minor(protocolMinor);
        hello.set_framework(name.framework);
        hello.set_endpoint(name.endpoint);
    } else if (const auto* withdrawal = std::get_if<News::Withdrawn>(&item)) {
        auto& told = newPart<v1::Withdrawal>(frame);
        told.set_service(withdrawal->service);
        told.set_unwanted(withdrawal->unwanted);
    } else if (const auto* settled = std::get_if<News::Settled>(&item)) {
        auto& told = newPart<v1::Settled>(frame);
        told.set_id(settled->want);
        told.set_refusal(settled->refusal);
    } else {
        const std::uint64_t number = std::get<News::Offered>(item).service;
        const auto service = std::as_const(*table).find(number);
        if (!service) {
            return false; // its withdrawal is on its way
        }
        try {
            auto& offer = newPart<v1::Offer>(frame);
            offer.set_service(number);
            *offer.mutable_interface() = encodeInterface(service->service->serviceInterface());
            encodeProperties(offer, service->properties);
            outgoing = encodeFrame(frame);
        } catch (const std::bad_alloc&) {
            throw;
        } catch (...) {
            return false; // a service that cannot be described in a frame cannot be offered
        }
        return true;
    }
    outgoing = encodeFrame(frame);
    return true;
}

void ControlSession::ended(const StreamEnd&) {
    {
        const std::lock_guard lock(mutex);
        over = true;
        news.clear();
    }
    table->leave(*this);
}

} // namespace agent::orvi::remoting::details
