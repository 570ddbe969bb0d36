#include "imports/RegistryListeners.hpp"

#include <cppmicroservices/ServiceReference.h>
#include <cppmicroservices/ServiceRegistration.h>

namespace agent::orvi::remoting::details {

std::shared_ptr<RegistryListeners> RegistryListeners::of(cppmicroservices::BundleContext context) {
    auto listeners = find(context);
    if (!listeners) {
        const auto added = std::make_shared<RegistryListeners>();
        begin(context, added);
        // Another thread may have been quicker. Then everybody uses the other one.
        listeners = find(context);
        if (!listeners) {
            listeners = added; // hidden from us, but told
        }
    }
    if (!listeners->isComplete) {
        listeners->complete(context, listeners);
    }
    return listeners;
}

void RegistryListeners::begin(
    cppmicroservices::BundleContext context, const std::shared_ptr<RegistryListeners>& listeners) {
    context.RegisterService<RegistryListeners, ServiceListenerHook>(listeners);
}

std::shared_ptr<RegistryListeners>
RegistryListeners::find(cppmicroservices::BundleContext context) {
    const auto reference = context.GetServiceReference<RegistryListeners>();
    return reference ? context.GetService(reference) : nullptr;
}

/// Hear of what came or went while the registry took in the hook: it may be told to nobody, being
/// too late for the listeners that the hook begins with, and too early for news.
void RegistryListeners::complete(
    cppmicroservices::BundleContext context, const std::shared_ptr<RegistryListeners>& self) {
    context.RegisterService<ServiceListenerHook>(
        std::static_pointer_cast<ServiceListenerHook>(self));
    std::vector<ListenerInfo> gone;
    {
        const std::lock_guard lock(mutex);
        for (const ListenerInfo& listener : known) {
            if (listener.IsRemoved()) {
                gone.push_back(listener);
            }
        }
    }
    Removed(gone);
    isComplete = true;
}

void RegistryListeners::tell(const std::shared_ptr<ServiceListenerHook>& follower) {
    std::vector<ListenerInfo> listeners; // dropped without the lock: it may be the last to have one
    const std::lock_guard lock(mutex);
    std::erase_if(followers, [](const auto& each) { return each.expired(); });
    followers.push_back(follower);
    try {
        listeners.assign(known.begin(), known.end());
        follower->Added(listeners);
    } catch (...) {
        followers.pop_back();
        throw;
    }
}

void RegistryListeners::tellNoMore(const std::shared_ptr<ServiceListenerHook>& follower) noexcept {
    const std::lock_guard lock(mutex);
    std::erase_if(followers, [&](const auto& each) {
        return !each.owner_before(follower) && !follower.owner_before(each);
    });
}

void RegistryListeners::Added(const std::vector<ListenerInfo>& listeners) {
    const std::lock_guard lock(mutex);
    std::exception_ptr error;
    try {
        for (const ListenerInfo& listener : listeners) {
            if (!listener.IsRemoved()) {
                known.insert(listener);
            }
        }
    } catch (...) {
        error = std::current_exception();
    }
    if (const auto thrown = tellAll(&ServiceListenerHook::Added, listeners)) {
        error = thrown;
    }
    if (error) {
        std::rethrow_exception(error);
    }
}

void RegistryListeners::Removed(const std::vector<ListenerInfo>& listeners) {
    const std::lock_guard lock(mutex);
    for (const ListenerInfo& listener : listeners) {
        known.erase(listener);
    }
    if (const auto error = tellAll(&ServiceListenerHook::Removed, listeners)) {
        std::rethrow_exception(error);
    }
}

/// @return what a follower has thrown. The others are told all the same.
std::exception_ptr RegistryListeners::tellAll(
    void (ServiceListenerHook::*event)(const std::vector<ListenerInfo>&),
    const std::vector<ListenerInfo>& listeners) noexcept {
    std::exception_ptr error;
    for (const auto& each : followers) {
        if (const auto follower = each.lock()) {
            try {
                (follower.get()->*event)(listeners);
            } catch (...) {
                error = std::current_exception();
            }
        }
    }
    return error;
}

} // namespace agent::orvi::remoting::details
