#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace google::protobuf::io {
class ZeroCopyInputStream;
}

/// What carries frames between processes. What exports, imports and calls knows this and no
/// carrier in particular.
namespace agent::orvi::remoting::details {

/// Bytes that somebody owns.
struct Bytes {
    std::shared_ptr<const void> owner;
    const char* data = nullptr;
    std::size_t size = 0;
};

/// A frame on its way out: its encoded head, and the bytes that follow it.
struct OutgoingFrame {
    std::string head;
    Bytes data;
};

/// Why a stream has ended.
struct StreamEnd {
    enum class Kind {
        finished,        ///< In order: the other side has said all it had to say.
        terminated,      ///< The peer's process has ended.
        disconnected,    ///< The connection was closed or reset.
        unresponsive,    ///< Nothing was heard for the keepalive time.
        protocolError,   ///< One side saw the other one break the protocol.
        versionMismatch, ///< The peer speaks another major version.
        accessDenied,    ///< The exporter does not talk to this importer.
        limitExceeded,   ///< The exporter has no room for it, or a frame was too long.
        cancelled        ///< This side gave up.
    };

    Kind kind = Kind::finished;
    std::string text;
};

/// Receives the events of a stream.
///
/// Called from any thread, one call at a time for each stream; never from inside of a member
/// function of the stream. What it does must be short and must not wait: everybody else's events
/// wait meanwhile.
class StreamEvents {
public:
    /// A frame has come, which was asked for with `Stream::receive`. It is valid during the call.
    virtual void received(google::protobuf::io::ZeroCopyInputStream& frame, std::size_t size) = 0;

    /// The frame that was given to `Stream::send` is on its way; the next one may follow.
    virtual void sent() = 0;

    /// The stream is over. This is the last event; nothing of the stream uses this object any more.
    virtual void ended(const StreamEnd& end) = 0;

protected:
    ~StreamEvents() = default;
};

/// A bidirectional stream of frames. What is sent is received whole and in order, or not at all.
///
/// Thread safety: thread-safe.
class Stream {
public:
    /// Send a frame; `sent` or `ended` follows. One at a time.
    virtual void send(OutgoingFrame frame) = 0;

    /// Ask for the next frame; `received` or `ended` follows. One at a time.
    virtual void receive() = 0;

    /// End the stream once what was sent has gone: with `finished` nothing is wrong, anything else
    /// tells the peer why. At most one call; nothing may be sent after it.
    virtual void finish(const StreamEnd& end) = 0;

    /// End the stream at once; what was sent may be lost. `ended` follows, unless it was before.
    virtual void cancel(const StreamEnd& end) = 0;

    virtual ~Stream() = default;
};

/// Runs what events have prepared, and lets threads wait for events by handling them.
///
/// Thread safety: thread-safe.
class Executor {
public:
    using Task = std::function<void()>;

    /// What a thread waits for.
    class Wait;

    /// Run a task on one of the executor's threads: on this one, after the event that it handles,
    /// where that is possible. `origin` names who it is for; tasks of one origin that follow each
    /// other closely are likely to stay on one thread.
    virtual void post(Task task, const void* origin) = 0;

    virtual ~Executor() = default;
};

/// What the exporting side knows of the peer of a stream.
struct PeerIdentity {
    std::vector<std::string> names; ///< In the forms of AccessRule::identity.
    std::string connection;         ///< Names the connection: equal for its streams.
};

enum class StreamKind { control, call };

} // namespace agent::orvi::remoting::details
