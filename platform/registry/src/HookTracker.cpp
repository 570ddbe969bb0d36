#include "HookTracker.hpp"

#include <algorithm>

namespace cppmicroservices::detail {

HookTracker::HookTracker(std::weak_ptr<FrameworkCore> core, BundleContext const& context)
    : core_(std::move(core))
    , context_(context)
    , tracker_(context, this) {}

std::vector<HookTracker::Hook> HookTracker::hooks() const {
    std::vector<Hook> result;
    if (tracker_.IsEmpty()) {
        return result;
    }
    auto references = tracker_.GetServiceReferences();
    std::sort(
        references.begin(), references.end(), [](auto const& a, auto const& b) { return b < a; });
    for (auto const& reference : references) {
        if (auto object = tracker_.GetService(reference)) {
            result.push_back({ReferenceData::of(reference)->record->id, std::move(object)});
        }
    }
    return result;
}

std::shared_ptr<ServiceListenerHook>
HookTracker::AddingService(ServiceReference<ServiceListenerHook> const& reference) {
    auto const core = core_.lock();
    auto hook = context_.GetService(reference);
    if (!core || !hook) {
        return nullptr;
    }
    try {
        hook->Added(core->listenerInfos());
    } catch (...) {
        core->sendWarning(
            "Failed to call listener hook # ", ReferenceData::of(reference)->record->id);
    }
    return hook;
}

} // namespace cppmicroservices::detail
