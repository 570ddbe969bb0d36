#pragma once

#include "bridge/CallGate.hpp"

#include <orvi/core/ServiceInterface.hpp>
#include <orvi/core/ServiceProvider.hpp>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/ServiceRegistration.h>

#include <cstdint>
#include <memory>
#include <string>

namespace agent::orvi::core {

class Invokable;

namespace detail {

class InterfaceDirectory;

/// One interface of a registered provider. Immutable.
struct Offer {
    std::uint64_t number; // later ones have higher numbers
    cppmicroservices::BundleContext context;
    std::shared_ptr<ServiceProvider> provider; // outlives its methods
    ServiceInterface description;
};

/// An offer while it is reachable, from the moment that this is decided until its last call has
/// ended. Being a gate, it holds the offer only as long as calls may use it.
///
/// Thread safety: thread-safe.
class Publication final : public CallGate {
public:
    Publication(
        InterfaceDirectory& directory, std::uint64_t number, std::shared_ptr<const Offer> offer);

    /// Return the interface's name.
    const std::string& name() const noexcept { return serviceName; }

    /// Return what is published. Only a call inside of the gate may ask.
    const Offer& offer() const noexcept { return *published; }

private:
    friend class InterfaceDirectory;

    void lastCallEnded() noexcept override;

    InterfaceDirectory& directory;
    const std::string serviceName;
    const std::uint64_t number;
    const std::uint64_t offerNumber;
    std::shared_ptr<const Offer> published;

    // The directory's, under its lock:
    bool withdrawn = false;
    bool shownAsExported = false; // by the registration's properties
    bool showing = false;         // a thread is changing them
    cppmicroservices::ServiceRegistration<Invokable> registration;
};

} // namespace detail
} // namespace agent::orvi::core
