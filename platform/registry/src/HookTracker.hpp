#pragma once

#include "FrameworkCore.hpp"

#include "cppmicroservices/ServiceTracker.h"

namespace cppmicroservices::detail {

/// Tracks the listener hooks, and tells each new one of the listeners that are there already.
class HookTracker : private ServiceTrackerCustomizer<ServiceListenerHook> {
public:
    HookTracker(std::weak_ptr<FrameworkCore> core, BundleContext const& context);

    void open() { tracker_.Open(); }

    void close() { tracker_.Close(); }

    struct Hook {
        long serviceId;
        std::shared_ptr<ServiceListenerHook> object;
    };

    /// Returns the hooks, preferred ones first.
    std::vector<Hook> hooks() const;

private:
    std::shared_ptr<ServiceListenerHook>
    AddingService(ServiceReference<ServiceListenerHook> const& reference) override;

    void ModifiedService(
        ServiceReference<ServiceListenerHook> const&,
        std::shared_ptr<ServiceListenerHook> const&) override {}

    void RemovedService(
        ServiceReference<ServiceListenerHook> const&,
        std::shared_ptr<ServiceListenerHook> const&) override {}

    std::weak_ptr<FrameworkCore> const core_;
    BundleContext context_;
    ServiceTracker<ServiceListenerHook> tracker_;
};

} // namespace cppmicroservices::detail
