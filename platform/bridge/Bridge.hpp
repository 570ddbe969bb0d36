#pragma once

#include "bridge/InterfaceDirectory.hpp"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/ServiceReference.h>

#include <map>
#include <memory>
#include <mutex>

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

    /// Say whether the framework or `stop` has ended this.
    bool hasStopped() const;

private:
    void watch();
    void serviceChanged(const cppmicroservices::ServiceEvent& event);
    void addProvider(const cppmicroservices::ServiceReference<ServiceProvider>& reference);
    void removeProvider(const cppmicroservices::ServiceReferenceBase& reference);

    InterfaceDirectory& directory;
    cppmicroservices::BundleContext context;

    mutable std::mutex mutex;
    bool stopped = false;
    // By service id. Null: it went before it was seen to come.
    std::map<long, std::shared_ptr<OfferingProvider>> providers;
};

} // namespace agent::orvi::core::detail
