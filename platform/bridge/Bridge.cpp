#include "bridge/Bridge.hpp"

#include "bridge/ProcessEnd.hpp"

#include <cppmicroservices/BundleEvent.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/ServiceEvent.h>

#include <algorithm>
#include <new>
#include <utility>

namespace agent::orvi::core::detail {
namespace {

using cppmicroservices::BundleEvent;
using cppmicroservices::ServiceEvent;
using cppmicroservices::ServiceReferenceBase;
using Taken = OfferingProvider::Taken;

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
    std::unique_lock lock(mutex);
    stopped = true;
    for (const auto& [reference, provider] : providers) {
        if (provider) {
            directory.refuse(*provider);
        }
    }
    while (!providers.empty()) {
        const auto [reference, provider] = *providers.begin();
        // Until this is done, who unregisters it must find it, to wait for its calls as well.
        if (provider) {
            lock.unlock();
            directory.close(*provider);
            lock.lock();
        }
        providers.erase(reference);
    }
}

void Bridge::serviceChanged(const ServiceEvent& event) {
    if (event.GetType() == ServiceEvent::SERVICE_REGISTERED) {
        try {
            addProvider(event.GetServiceReference<ServiceProvider>());
        } catch (const std::bad_alloc&) {
            // Whoever builds the next configuration sees to it, and hears of it if that fails
            // again.
            const std::lock_guard lock(mutex);
            missed = true;
            throw;
        }
    } else if (event.GetType() == ServiceEvent::SERVICE_UNREGISTERING) {
        removeProvider(event.GetServiceReference());
    }
}

void Bridge::addProvider(const cppmicroservices::ServiceReference<ServiceProvider>& reference) {
    ProcessEnd::watch();
    const auto entry = std::make_shared<OfferingProvider>();
    {
        const std::lock_guard lock(mutex);
        if (stopped) {
            return;
        }
        const auto [known, added] = providers.try_emplace(reference, entry);
        if (!added) {
            if (!known->second) {
                providers.erase(known);
            }
            return;
        }
    }
    describe(reference, *entry);
}

void Bridge::seeMissed() {
    {
        const std::lock_guard lock(mutex);
        if (!missed || stopped) {
            return;
        }
        missed = false;
    }
    try {
        for (const auto& reference : context.GetServiceReferences<ServiceProvider>()) {
            std::shared_ptr<OfferingProvider> entry;
            bool known = false;
            {
                const std::lock_guard lock(mutex);
                const auto found = providers.find(reference);
                known = found != providers.end();
                if (known && found->second && found->second->taken == Taken::missed) {
                    entry = found->second;
                    entry->taken = Taken::again;
                }
            }
            if (entry) {
                describe(reference, *entry);
            } else if (!known) {
                addProvider(reference);
            }
        }
    } catch (...) {
        const std::lock_guard lock(mutex);
        missed = true;
        throw;
    }
}

void Bridge::describe(
    const cppmicroservices::ServiceReference<ServiceProvider>& reference, OfferingProvider& entry) {
    try {
        if (const auto provider = context.GetService(reference)) {
            directory.provide(entry, context, provider, provider->getServiceInterfaces());
        }
    } catch (const std::bad_alloc&) {
        const std::lock_guard lock(mutex);
        if (entry.taken == Taken::once) {
            entry.taken = Taken::missed;
        }
        throw;
    } catch (...) {
        // A provider that cannot describe itself is not reachable; its registration stands.
    }
}

void Bridge::removeProvider(const ServiceReferenceBase& reference) {
    std::shared_ptr<OfferingProvider> entry;
    {
        const std::lock_guard lock(mutex);
        const auto known = providers.find(reference);
        if (known == providers.end()) {
            if (!stopped) {
                providers.emplace(reference, nullptr);
            }
            return;
        }
        entry = std::move(known->second);
        providers.erase(known);
    }
    if (entry) {
        directory.refuse(*entry);
        directory.close(*entry);
    }
}

} // namespace agent::orvi::core::detail
