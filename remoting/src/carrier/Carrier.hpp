#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <optional>
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
    bool moreFollow = false; ///< The next frame is there already; both may go together.
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
/// Called from any thread, one call at a time. What it does must be short and must not wait:
/// everybody else's events wait meanwhile.
class StreamEvents {
public:
    /// A frame has come, which was asked for with `Stream::receive`. It is valid during the call.
    /// An exception ends the stream; see endOfFailedEvent. The other events do not throw.
    virtual void received(google::protobuf::io::ZeroCopyInputStream& frame, std::size_t size) = 0;

    /// The frame that was given to `Stream::send` is on its way; the next one may follow.
    virtual void sent() = 0;

    /// The stream is over. This is the last event.
    virtual void ended(const StreamEnd& end) = 0;

    virtual ~StreamEvents() = default;
};

/// A bidirectional stream of frames. What is sent is received whole and in order, or not at all.
///
/// It lives until it has ended, and keeps its events until then. Thread safety: thread-safe.
class Stream {
public:
    /// Send a frame; `sent` or `ended` follows. One at a time. Does nothing on a stream that is
    /// over.
    virtual void send(OutgoingFrame frame) = 0;

    /// Ask for the next frame; `received` or `ended` follows. One at a time. Does nothing on a
    /// stream that is over.
    virtual void receive() = 0;

    /// End the stream from the exporting side, once what was sent has gone, and tell the importing
    /// side why. `ended` follows. Nothing may be sent after it.
    virtual void finish(const StreamEnd& end) = 0;

    /// End the stream at once; what was sent may be lost. `ended` follows with this end, unless the
    /// stream was over before.
    virtual void cancel(const StreamEnd& end) = 0;

    virtual ~Stream() = default;
};

/// What a thread waits for; see `Executor::wait`.
class Wait {
public:
    /// Say whether `Executor::finish` has been called.
    bool isOver() const noexcept { return over.load(std::memory_order_acquire); }

private:
    friend class Executor;

    std::atomic<bool> over{false};
    std::condition_variable wake;
};

/// Runs what events have prepared, and lets threads wait for events by handling them.
///
/// Thread safety: thread-safe.
class Executor {
public:
    using Task = std::function<void()>;
    using TimePoint = std::chrono::system_clock::time_point;
    /// For the limits of how long closing takes, whoever sets the system's clock meanwhile.
    using SteadyTime = std::chrono::steady_clock::time_point;

    /// Run a task on one of the executor's threads: on the one that calls this from an event, after
    /// the event, where that is possible. Tasks may wait for long.
    virtual void post(Task task) = 0;

    /// Run tasks as `post` does, and take them out of the list. Needs no memory.
    virtual void postPrepared(std::list<Task>& prepared) noexcept = 0;

    /// Run a task that does not wait for long, as `post` does, even while as many tasks wait as
    /// there may be.
    virtual void postBrief(Task task) = 0;

    /// Wait until `finish` has been called, handling whatever events come meanwhile.
    ///
    /// @return whether it was called before the time limit.
    virtual bool wait(Wait& wait, std::optional<TimePoint> timeLimit) = 0;

    /// End a wait.
    virtual void finish(Wait& wait) = 0;

    virtual ~Executor() = default;

protected:
    // For implementations, under a lock of theirs.
    static void setOver(Wait& wait) { wait.over.store(true, std::memory_order_release); }

    static std::condition_variable& wakeOf(Wait& wait) { return wait.wake; }
};

enum class StreamKind { control, call };

/// An importer's connection to one endpoint.
///
/// Thread safety: thread-safe.
class Connection {
public:
    /// Open a stream. Whether that works shows in its first event; that it does not may show before
    /// this returns.
    virtual std::shared_ptr<Stream> open(StreamKind kind, std::shared_ptr<StreamEvents> events) = 0;

    /// End all streams and refuse new ones: they end at once with the end given here.
    virtual void close(const StreamEnd& end) = 0;

    virtual ~Connection() = default;
};

/// Who is on the other side of a stream of an endpoint: its names in the forms of
/// AccessRule::identity.
using PeerNames = std::vector<std::string>;

/// What an endpoint does with a stream that a peer opens.
///
/// It is called as an event is, and must call `Stream::receive` to hear something. Returns where
/// the stream's events go.
using AcceptStream = std::function<std::shared_ptr<StreamEvents>(
    StreamKind kind, std::shared_ptr<Stream> stream, PeerNames peer)>;

} // namespace agent::orvi::remoting::details
