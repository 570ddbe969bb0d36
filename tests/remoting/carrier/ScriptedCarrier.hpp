#pragma once

#include "carrier/Carrier.hpp"

#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// A carrier without threads and without a network: what happens, and when, a script says.
namespace agent::orvi::remoting::details::test {

/// One side of a stream; the script is the other side and all that lies between.
///
/// It keeps the promises of a carrier: events come one at a time and only when they were asked for,
/// the end is the last. What `received` throws for its documented reasons ends the stream; anything
/// else that an event throws ends the program, as it does with a real carrier. It requires that its
/// user keeps the promises of one: one frame to send and one to receive at a time, frames that are
/// not too long.
class ScriptedStream final : public Stream {
public:
    explicit ScriptedStream(std::shared_ptr<StreamEvents> events)
        : events(std::move(events)) {}

    /// A stream whose events are known later.
    ScriptedStream() = default;

    void follow(std::shared_ptr<StreamEvents> receiver) { events = std::move(receiver); }

    void send(OutgoingFrame frame) override;
    void receive() override;
    void finish(const StreamEnd& end) override;
    void cancel(const StreamEnd& end) override;

    /// Let a frame arrive, in slices.
    ///
    /// @return false when nobody asked for one.
    bool deliver(const std::string& frame, std::size_t sliceSize);

    /// Let the frame that is being sent be on its way.
    bool acknowledge() noexcept;

    /// Let a stream that somebody has ended be over.
    bool conclude() noexcept;

    /// End the stream from outside.
    void lose(const StreamEnd& end);

    bool isListening() const noexcept { return listening && !ending; }

    bool isEnding() const noexcept { return ending.has_value(); }

    bool isOver() const noexcept { return over; }

    const std::optional<StreamEnd>& end() const noexcept { return ending; }

    /// Called with every frame that is sent.
    std::function<void(const std::string& frame)> whenSent;

private:
    std::shared_ptr<StreamEvents> events;
    bool listening = false;
    bool sending = false;
    std::optional<StreamEnd> ending;
    bool over = false;
};

/// Runs tasks when the script says so.
class ScriptedExecutor final : public Executor {
public:
    /// Does something else of what the script holds.
    ///
    /// @return false when there is nothing left to be done.
    using Step = std::function<bool()>;

    void post(Task task) override { tasks.push_back(std::move(task)); }

    void postPrepared(std::list<Task>& prepared) noexcept override {
        tasks.splice(tasks.end(), prepared);
    }

    void postBrief(Task task) override { post(std::move(task)); }

    /// Follow the script until the wait is over. One without a time limit must be over before the
    /// script has nothing left, unless the importer is closed.
    bool wait(Wait& wait, std::optional<TimePoint> timeLimit) override;

    void finish(Wait& wait) override { setOver(wait); }

    /// Run the task that has waited longest.
    bool runNext();

    Step step;            ///< What happens while somebody waits.
    bool closed = false;  ///< Whether waits without a limit end.
    bool expired = false; ///< Whether waits with one do.

private:
    std::list<Task> tasks;
};

/// A connection whose streams the script handles.
class ScriptedConnection final : public Connection {
public:
    std::shared_ptr<Stream> open(StreamKind kind, std::shared_ptr<StreamEvents> events) override;

    void close(const StreamEnd& end) override;

    /// Do what is left to be done by itself: frames leave, streams end.
    bool settle();

    /// Refuse the next stream at once.
    bool refuseNext = false;

    std::vector<std::shared_ptr<ScriptedStream>> streams; ///< All there have been.
    std::function<void(ScriptedStream& stream)> whenOpened;

private:
    std::optional<StreamEnd> closing;
};

} // namespace agent::orvi::remoting::details::test
