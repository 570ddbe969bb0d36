#include "remoting/carrier/ScriptedCarrier.hpp"

#include "carrier/FailedEvents.hpp"
#include "remoting/wire/SlicedInput.hpp"
#include "wire/FrameLimits.hpp"

#include <orvi/remoting/Errors.hpp>

#include <cstdlib>
#include <iostream>
#include <new>
#include <utility>

namespace agent::orvi::remoting::details::test {
namespace {

/// A carrier's user that breaks its promises ends the program: nothing that follows means anything.
void require(bool holds, const char* what) {
    if (!holds) {
        std::cerr << "Does not hold: " << what << std::endl;
        std::abort();
    }
}

} // namespace

void ScriptedStream::send(OutgoingFrame frame) {
    if (ending) {
        return;
    }
    require(!sending, "one frame is sent at a time");
    require(
        frame.head.size() + frame.data.size <= maximumFrameSize,
        "a frame is not longer than allowed");
    const std::string bytes = frame.head + std::string(frame.data.data, frame.data.size);
    sending = true;
    if (whenSent) {
        whenSent(bytes);
    }
}

void ScriptedStream::receive() {
    if (!ending) {
        require(!listening, "one frame is asked for at a time");
        listening = true;
    }
}

void ScriptedStream::finish(const StreamEnd& end) {
    lose(end);
}

void ScriptedStream::cancel(const StreamEnd& end) {
    if (!over) {
        ending = end;
    }
}

void ScriptedStream::lose(const StreamEnd& end) {
    if (!ending) {
        ending = end;
    }
}

bool ScriptedStream::deliver(const std::string& frame, std::size_t sliceSize) {
    if (!isListening()) {
        return false;
    }
    listening = false;
    const auto receiver = events;
    try {
        SlicedInput source(frame, sliceSize);
        receiver->received(source, frame.size());
    } catch (const ProtocolError&) {
        lose(endOfFailedEvent());
    } catch (const std::bad_alloc&) {
        lose(endOfFailedEvent());
    }
    return true;
}

bool ScriptedStream::acknowledge() noexcept {
    if (!sending) {
        return false;
    }
    sending = false;
    if (!ending) {
        const auto receiver = events;
        receiver->sent();
    }
    return true;
}

bool ScriptedStream::conclude() noexcept {
    if (!ending || over) {
        return false;
    }
    over = true;
    const auto receiver = std::move(events);
    receiver->ended(*ending);
    return true;
}

bool ScriptedExecutor::wait(Wait& wait, std::optional<TimePoint> timeLimit) {
    while (!wait.isOver()) {
        if ((timeLimit && expired) || (!timeLimit && closed)) {
            // The second time it is the end of the stream that is waited for.
            closed = false;
            return false;
        }
        require(step(), "somebody waits for what never comes");
    }
    return true;
}

bool ScriptedExecutor::runNext() {
    if (tasks.empty()) {
        return false;
    }
    const Task task = std::move(tasks.front());
    tasks.pop_front();
    task();
    return true;
}

std::shared_ptr<Stream> ScriptedConnection::open(StreamKind, std::shared_ptr<StreamEvents> events) {
    const auto stream = std::make_shared<ScriptedStream>(std::move(events));
    streams.push_back(stream);
    if (closing || std::exchange(refuseNext, false)) {
        stream->lose(closing.value_or(StreamEnd{StreamEnd::Kind::disconnected, "It was refused."}));
        stream->conclude();
    } else if (whenOpened) {
        whenOpened(*stream);
    }
    return stream;
}

void ScriptedConnection::close(const StreamEnd& end) {
    if (!closing) {
        closing = end;
    }
    for (const auto& stream : streams) {
        stream->lose(end);
    }
}

bool ScriptedConnection::settle() {
    for (std::size_t index = 0; index < streams.size(); ++index) {
        const auto stream = streams[index];
        if (stream->acknowledge() || stream->conclude()) {
            return true;
        }
    }
    return false;
}

} // namespace agent::orvi::remoting::details::test
