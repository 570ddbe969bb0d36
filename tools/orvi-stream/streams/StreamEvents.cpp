#include "streams/StreamEvents.hpp"

#include <foundation/cppmicroservices/getFramework.hpp>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>

#include <utility>

namespace agent::orvi::tool {

StreamEvents::StreamEvents()
    : tracker(
          foundation::cppmicroservices::getFramework()->GetBundleContext(),
          cppmicroservices::LDAPFilter("(orvi.servicename=orviStreambuf_*)"), this) {
    tracker.Open();
}

StreamEvents::~StreamEvents() {
    tracker.Close();
}

StreamEvents::Event StreamEvents::next() {
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return !events.empty(); });
    Event event = std::move(events.front());
    events.pop_front();
    return event;
}

std::vector<StreamDescription> StreamEvents::present() const {
    std::vector<StreamDescription> result;
    for (const auto& stream : tracker.GetServices()) {
        result.push_back(*stream);
    }
    return result;
}

StreamEvents::Stream StreamEvents::AddingService(const Reference& reference) {
    const auto stream = describe(reference);
    if (!stream) {
        return nullptr;
    }
    add(true, *stream);
    return std::make_shared<StreamDescription>(*stream);
}

void StreamEvents::ModifiedService(const Reference&, const Stream&) {}

void StreamEvents::RemovedService(const Reference&, const Stream& stream) {
    add(false, *stream);
}

void StreamEvents::add(bool added, const StreamDescription& stream) {
    const std::lock_guard lock(mutex);
    events.push_back({added, stream});
    changed.notify_one();
}

} // namespace agent::orvi::tool
