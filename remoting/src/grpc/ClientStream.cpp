#include "grpc/ClientStream.hpp"

#include "carrier/FailedEvents.hpp"
#include "grpc/Frames.hpp"
#include "grpc/StatusCodes.hpp"

#include <utility>

namespace agent::orvi::remoting::details {
namespace {

const char* methodOf(StreamKind kind) {
    return kind == StreamKind::control ? "/orvi.remoting.v1.Streams/Control"
                                       : "/orvi.remoting.v1.Streams/Call";
}

} // namespace

ClientStream::ClientStream(
    std::shared_ptr<ClientConnection> connection, std::shared_ptr<StreamEvents> events,
    StreamKind kind)
    : connection(std::move(connection))
    , kind(kind)
    , events(std::move(events)) {
    // The opening of the stream travels with its first frame.
    context.set_initial_metadata_corked(true);
}

void ClientStream::begin() {
    const std::lock_guard lock(mutex);
    call = connection->stub.PrepareCall(&context, methodOf(kind), &connection->reactor->queue());
    call->StartCall(nullptr);
    connection->reactor->enter();
    self = shared_from_this();
}

void ClientStream::refuse(const StreamEnd& end) {
    std::shared_ptr<StreamEvents> receiver;
    {
        const std::lock_guard lock(mutex);
        over = true;
        receiver = std::move(events);
    }
    receiver->ended(end);
}

void ClientStream::send(OutgoingFrame frame) {
    const grpc::WriteOptions options = optionsOf(frame);
    const grpc::ByteBuffer message = toMessage(std::move(frame));
    {
        const std::lock_guard lock(mutex);
        if (isOpen()) {
            writing.underWay = true;
            call->Write(message, options, writing.tag());
        }
    }
    if (kind == StreamKind::control) {
        connection->reactor->attend(); // whoever waits for the outcome handles no events meanwhile
    }
}

void ClientStream::receive() {
    const std::lock_guard lock(mutex);
    if (isOpen()) {
        reading.underWay = true;
        call->Read(&incoming, reading.tag());
    }
}

void ClientStream::finish(const StreamEnd& end) {
    cancel(end);
}

void ClientStream::cancel(const StreamEnd& end) {
    const std::lock_guard lock(mutex);
    if (self && !ownEnd && !finishing.underWay && process.isHere()) {
        ownEnd = end;
        over = true;
        context.TryCancel();
        finishIfIdle();
    }
}

void ClientStream::messageRead(bool ok) {
    std::shared_ptr<StreamEvents> receiver;
    {
        const std::lock_guard lock(mutex);
        reading.underWay = false;
        if (!ok) {
            over = true;
        }
        if (over) {
            finishIfIdle();
            return;
        }
        receiver = events;
    }
    try {
        deliver(*receiver, incoming);
    } catch (...) {
        cancel(endOfFailedEvent());
    }
    incoming.Clear();
}

void ClientStream::messageWritten(bool ok) {
    std::shared_ptr<StreamEvents> receiver;
    {
        const std::lock_guard lock(mutex);
        writing.underWay = false;
        // What the exporter said before it ended the stream can still be read.
        if (!ok && !reading.underWay) {
            over = true;
        }
        if (over) {
            finishIfIdle();
            return;
        }
        if (!ok) {
            return;
        }
        receiver = events;
    }
    try {
        receiver->sent();
    } catch (...) {
        cancel(endOfFailedEvent());
    }
}

/// Say whether operations may be started. Under the lock.
bool ClientStream::isOpen() const noexcept {
    return !over && !finishing.underWay && process.isHere();
}

/// Ask for the stream's status once nothing else is under way.
void ClientStream::finishIfIdle() {
    if (over && !reading.underWay && !writing.underWay && !finishing.underWay) {
        finishing.underWay = true;
        call->Finish(&status, finishing.tag());
    }
}

void ClientStream::callFinished(bool) {
    StreamEnd reached;
    bool cancelled = false;
    {
        const std::lock_guard lock(mutex);
        cancelled = ownEnd.has_value();
        reached = cancelled ? *ownEnd : fromStatus(status);
    }
    if (cancelled) {
        conclude(reached);
    } else {
        connection->streamLost(shared_from_this(), std::move(reached));
    }
}

void ClientStream::conclude(const StreamEnd& end) {
    std::shared_ptr<ClientStream> last;
    std::shared_ptr<StreamEvents> receiver;
    {
        const std::lock_guard lock(mutex);
        last = std::move(self);
        receiver = std::move(events);
    }
    try {
        receiver->ended(end);
    } catch (...) {
        // There is nobody else to tell. This stream has ended all the same, and others wait.
    }
    receiver.reset();
    connection->reactor->leave();
    connection->streamEnded(*this);
}

} // namespace agent::orvi::remoting::details
