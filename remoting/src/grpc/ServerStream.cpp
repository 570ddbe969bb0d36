#include "grpc/ServerStream.hpp"

#include "carrier/FailedEvents.hpp"
#include "grpc/Frames.hpp"
#include "grpc/StatusCodes.hpp"

#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace agent::orvi::remoting::details {
namespace {

/// Return an end; what there is no memory for is its text.
StreamEnd endOf(StreamEnd::Kind kind, std::string_view text) noexcept {
    try {
        return {kind, std::string(text)};
    } catch (const std::bad_alloc&) {
        return {kind, {}};
    }
}

StreamEnd importerGone() noexcept {
    return endOf(StreamEnd::Kind::disconnected, "The importer is gone.");
}

} // namespace

ServerStream::ServerStream() {
    remote->context.AsyncNotifyWhenDone(leaving.tag());
}

void ServerStream::begin(std::shared_ptr<StreamEvents> receiver, Executor::Task whenEnded) {
    const std::lock_guard lock(mutex);
    leaving.underWay = true;
    self = shared_from_this();
    events = std::move(receiver);
    onEnd = std::move(whenEnded);
    finishIfIdle();
}

void ServerStream::send(OutgoingFrame frame) {
    const grpc::WriteOptions options = optionsOf(frame);
    const grpc::ByteBuffer message = toMessage(std::move(frame));
    const std::lock_guard lock(mutex);
    if (!ending && process.isHere()) {
        writing.underWay = true;
        remote->call.Write(message, options, writing.tag());
    }
}

void ServerStream::receive() {
    const std::lock_guard lock(mutex);
    if (!ending && process.isHere()) {
        reading.underWay = true;
        remote->call.Read(&incoming, reading.tag());
    }
}

void ServerStream::finish(const StreamEnd& end) {
    const std::lock_guard lock(mutex);
    if (!ending && process.isHere()) {
        ending = endOf(end.kind, end.text);
        finishIfIdle();
    }
}

void ServerStream::cancel(const StreamEnd& end) {
    const std::lock_guard lock(mutex);
    if (!finishing.underWay && !cancelled && process.isHere()) {
        ending = endOf(end.kind, end.text);
        cancelled = true;
        remote->context.TryCancel();
        finishIfIdle();
    }
}

void ServerStream::messageRead(bool ok) {
    std::shared_ptr<StreamEvents> receiver;
    {
        const std::lock_guard lock(mutex);
        reading.underWay = false;
        if (!ok && !ending) {
            ending = StreamEnd();
        }
        finishIfIdle();
        if (!ending) {
            receiver = events;
        }
    }
    if (!receiver) {
        concludeIfDone();
        return;
    }
    try {
        deliver(*receiver, incoming);
    } catch (...) {
        finish(endOfFailedEvent());
    }
    incoming.Clear();
}

void ServerStream::messageWritten(bool ok) {
    std::shared_ptr<StreamEvents> receiver;
    {
        const std::lock_guard lock(mutex);
        writing.underWay = false;
        if (!ok && !ending) {
            ending = importerGone();
        }
        if (ending) {
            finishIfIdle();
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

/// Say the last word once the last message has gone. What is still being read ends by itself then.
void ServerStream::finishIfIdle() {
    if (self && ending && !writing.underWay && !finishing.underWay) {
        finishing.underWay = true;
        try {
            remote->call.Finish(toStatus(*ending), finishing.tag());
        } catch (const std::bad_alloc&) {
            remote->call.Finish(toStatus({ending->kind, {}}), finishing.tag()); // needs none
        }
    }
}

void ServerStream::callFinished(bool) {
    {
        const std::lock_guard lock(mutex);
        finished = true;
    }
    concludeIfDone();
}

/// The call is over, or the peer has cancelled it or is gone: nobody need be reading to learn that.
void ServerStream::peerLeft(bool) {
    {
        const std::lock_guard lock(mutex);
        leaving.underWay = false;
        if (!ending && remote->context.IsCancelled()) {
            ending = importerGone();
        }
        finishIfIdle();
    }
    concludeIfDone();
}

void ServerStream::concludeIfDone() {
    std::shared_ptr<ServerStream> last;
    std::unique_ptr<Remote> connection;
    std::shared_ptr<StreamEvents> receiver;
    Executor::Task whenEnded;
    {
        const std::lock_guard lock(mutex);
        if (!finished || reading.underWay || leaving.underWay) {
            return;
        }
        last = std::move(self);
        connection = std::move(remote);
        receiver = std::move(events);
        whenEnded = std::move(onEnd);
    }
    connection.reset();
    receiver->ended(*ending);
    receiver.reset();
    whenEnded();
}

} // namespace agent::orvi::remoting::details
