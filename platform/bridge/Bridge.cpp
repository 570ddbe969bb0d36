#include "bridge/Bridge.hpp"

#include "bridge/ProcessEnd.hpp"

#include <cppmicroservices/BundleEvent.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/ServiceEvent.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace agent::orvi::core::detail {
namespace {

using cppmicroservices::BundleEvent;
using cppmicroservices::ServiceEvent;
using cppmicroservices::ServiceReferenceBase;

long serviceId(const ServiceReferenceBase& reference) {
    return cppmicroservices::any_cast<long>(reference.GetProperty("service.id"));
}

} // namespace

std::shared_ptr<Bridge>
Bridge::attach(const cppmicroservices::Framework& framework, InterfaceDirectory& directory) {
    auto bridge = std::make_shared<Bridge>(framework, directory);
    try {
        bridge->watch();
    } catch (...) {
        bridge->stop();
        throw;
    }
    return bridge;
}

Bridge::Bridge(const cppmicroservices::Framework& framework, InterfaceDirectory& directory)
    : directory(directory)
    , context(framework.GetBundleContext()) {}

bool Bridge::hasStopped() const {
    const std::lock_guard lock(mutex);
    return stopped;
}

void Bridge::watch() {
    // A framework drops its own services without an event of their own when it stops.
    context.AddBundleListener([self = shared_from_this()](const BundleEvent& event) {
        constexpr long frameworkBundle = 0;
        if (event.GetType() == BundleEvent::BUNDLE_STOPPING &&
            event.GetBundle().GetBundleId() == frameworkBundle) {
            self->stop();
        }
    });
    context.AddServiceListener(
        [self = shared_from_this()](const ServiceEvent& event) { self->serviceChanged(event); },
        "(objectclass=" + us_service_interface_iid<ServiceProvider>() + ")");
    // The oldest first, so that it is the one that look-ups by name prefer.
    auto references = context.GetServiceReferences<ServiceProvider>();
    std::sort(references.begin(), references.end(), [](const auto& a, const auto& b) {
        return serviceId(a) < serviceId(b);
    });
    for (const auto& reference : references) {
        addProvider(reference);
    }
}

void Bridge::stop() {
    std::vector<std::shared_ptr<OfferingProvider>> ending;
    {
        const std::lock_guard lock(mutex);
        stopped = true;
        for (const auto& [id, provider] : providers) {
            if (provider) {
                ending.push_back(provider);
            }
        }
    }
    // Until this is done, who unregisters one of them must find it, to wait for its calls as well.
    directory.withdraw(ending);
    const std::lock_guard lock(mutex);
    providers.clear();
}

void Bridge::serviceChanged(const ServiceEvent& event) {
    if (event.GetType() == ServiceEvent::SERVICE_REGISTERED) {
        addProvider(event.GetServiceReference<ServiceProvider>());
    } else if (event.GetType() == ServiceEvent::SERVICE_UNREGISTERING) {
        removeProvider(event.GetServiceReference());
    }
}

void Bridge::addProvider(const cppmicroservices::ServiceReference<ServiceProvider>& reference) {
    ProcessEnd::watch();
    const long id = serviceId(reference);
    const auto entry = std::make_shared<OfferingProvider>();
    {
        const std::lock_guard lock(mutex);
        if (stopped) {
            return;
        }
        const auto [known, added] = providers.try_emplace(id, entry);
        if (!added) {
            if (!known->second) {
                providers.erase(known);
            }
            return;
        }
    }
    try {
        if (const auto provider = context.GetService(reference)) {
            directory.provide(*entry, context, provider, provider->getServiceInterfaces());
        }
    } catch (...) {
        // A provider that cannot describe itself is not reachable; its registration stands.
    }
}

void Bridge::removeProvider(const ServiceReferenceBase& reference) {
    const long id = serviceId(reference);
    std::shared_ptr<OfferingProvider> entry;
    {
        const std::lock_guard lock(mutex);
        const auto known = providers.find(id);
        if (known == providers.end()) {
            if (!stopped) {
                providers.emplace(id, nullptr);
            }
            return;
        }
        entry = std::move(known->second);
        providers.erase(known);
    }
    directory.withdraw({&entry, 1});
}

} // namespace agent::orvi::core::detail
