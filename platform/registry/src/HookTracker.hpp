#pragma once

#include "FrameworkCore.hpp"

#include "cppmicroservices/ServiceTracker.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace cppmicroservices::detail {

/// Tracks the listener hooks, and tells each one of every listener once: of its coming, also where
/// it was there before the hook, and then of its going. Calls them without holding a lock.
class HookTracker : private ServiceTrackerCustomizer<ServiceListenerHook> {
public:
    HookTracker(std::weak_ptr<FrameworkCore> core, BundleContext const& context);

    void open() { tracker_.Open(); }

    void close() { tracker_.Close(); }

    /// Adds a listener, and tells the hooks.
    void add(FrameworkCore& core, ListenerIndex::Entry const& entry);

    /// Removes a listener, and tells the hooks, if there is such a listener.
    void remove(FrameworkCore& core, ListenerTokenId id);

private:
    struct Hook {
        Hook(ServiceReference<ServiceListenerHook> const& r, std::shared_ptr<ServiceListenerHook> o)
            : reference(r)
            , object(std::move(o)) {}

        ServiceReference<ServiceListenerHook> const reference;
        std::shared_ptr<ServiceListenerHook> const object;
        std::atomic<bool> removed{false};
    };

    using Hooks = std::vector<std::shared_ptr<Hook>>;

    std::shared_ptr<ServiceListenerHook>
    AddingService(ServiceReference<ServiceListenerHook> const& reference) override;
    void ModifiedService(
        ServiceReference<ServiceListenerHook> const& reference,
        std::shared_ptr<ServiceListenerHook> const& object) override;
    void RemovedService(
        ServiceReference<ServiceListenerHook> const& reference,
        std::shared_ptr<ServiceListenerHook> const& object) override;

    void takeIn(FrameworkCore& core, std::shared_ptr<Hook> const& hook);
    std::shared_ptr<Hook> find(ServiceReference<ServiceListenerHook> const& reference) const;
    std::shared_ptr<Hooks const> with(std::shared_ptr<Hook> const& hook) const;
    std::shared_ptr<Hooks const> without(std::shared_ptr<Hook> const& hook) const;
    template <class Call>
    static void tell(FrameworkCore& core, Hook const& hook, Call const& call);

    std::weak_ptr<FrameworkCore> const core_;
    BundleContext context_;
    /// Held while a listener comes or goes, so that each hook here knows it or is told of it.
    std::mutex mutex_;
    /// Those that know every listener, preferred ones first.
    std::shared_ptr<Hooks const> hooks_ = std::make_shared<Hooks const>();
    ServiceTracker<ServiceListenerHook> tracker_;
};

} // namespace cppmicroservices::detail
