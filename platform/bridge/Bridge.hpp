#pragma once

#include "bridge/InterfaceDirectory.hpp"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/ServiceReference.h>

#include <memory>
#include <mutex>
#include <unordered_map>

namespace cppmicroservices {
class Framework;
class ServiceEvent;
} // namespace cppmicroservices

namespace agent::orvi::core::detail {

/// Tells a directory which providers are registered with a framework.
///
/// The framework's listeners own it. It ends when the framework stops: everything that it made
/// reachable is closed then, before the framework's context becomes invalid.
///
/// Thread safety: thread-safe.
class Bridge : public std::enable_shared_from_this<Bridge> {
public:
    /// Watch a framework that is initialised. Providers that are registered already are seen.
    ///
    /// Exceptions of the framework pass unchanged; it is not watched then.
    static std::shared_ptr<Bridge>
    attach(const cppmicroservices::Framework& framework, InterfaceDirectory& directory);

    /// Use `attach`.
    Bridge(const cppmicroservices::Framework& framework, InterfaceDirectory& directory);

    /// Close what was made reachable and watch no more; see CallGate::close.
    void stop();

    /// See the providers that were missed when they came, for want of memory. Each gets one more
    /// chance, lest one that asks for the impossible stops everybody's configurations.
    ///
    /// @throws std::bad_alloc when there is none now, either.
    void seeMissed();

    /// Say whether the framework or `stop` has ended this.
    bool hasStopped() const;

private:
    void watch();
    void serviceChanged(const cppmicroservices::ServiceEvent& event);
    void addProvider(const cppmicroservices::ServiceReference<ServiceProvider>& reference);
    void describe(
        const cppmicroservices::ServiceReference<ServiceProvider>& reference,
        OfferingProvider& entry);
    void removeProvider(const cppmicroservices::ServiceReferenceBase& reference);

    InterfaceDirectory& directory;
    cppmicroservices::BundleContext context;

    mutable std::mutex mutex;
    bool stopped = false;
    bool missed = false; // some were not taken in, for want of memory
    // By what is compared without an allocation: the end of a provider must never be missed. Null:
    // it went before it was seen to come.
    std::unordered_map<cppmicroservices::ServiceReferenceBase, std::shared_ptr<OfferingProvider>>
        providers;
};

} // namespace agent::orvi::core::detail
