#pragma once

#include "streams/StreamDescription.hpp"

#include <orvi/core/Invokable.hpp>

#include <cppmicroservices/ServiceTracker.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

namespace agent::orvi::tool {

/// The streams that come and go in this process's service registry, imported ones included, from
/// its construction on. Thread safety: thread-safe.
class StreamEvents
    : private cppmicroservices::ServiceTrackerCustomizer<core::Invokable, StreamDescription> {
public:
    struct Event {
        bool added;
        StreamDescription stream;
    };

    StreamEvents();
    ~StreamEvents() override;

    StreamEvents(const StreamEvents&) = delete;
    StreamEvents& operator=(const StreamEvents&) = delete;

    /// Block until a stream has come or gone that this has not returned yet, the present ones
    /// first.
    Event next();

    /// Return the streams that are there at this moment.
    std::vector<StreamDescription> present() const;

private:
    using Reference = cppmicroservices::ServiceReference<core::Invokable>;
    using Stream = std::shared_ptr<StreamDescription>;

    Stream AddingService(const Reference& reference) override;
    void ModifiedService(const Reference& reference, const Stream& stream) override;
    void RemovedService(const Reference& reference, const Stream& stream) override;
    void add(bool added, const StreamDescription& stream);

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Event> events;
    cppmicroservices::ServiceTracker<core::Invokable, StreamDescription> tracker;
};

} // namespace agent::orvi::tool
