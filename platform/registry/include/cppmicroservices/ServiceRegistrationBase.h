#pragma once

#include "cppmicroservices/ServiceProperties.h"
#include "cppmicroservices/ServiceReference.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <ostream>
#include <string>

namespace cppmicroservices {

class ServiceRegistrationBase;
template <class I1, class... Interfaces>
class ServiceRegistration;

/// The registrant's handle of a registered service: changes its properties and unregisters it.
///
/// A cheap value; copies are handles of the same registration. Destroying it does not unregister
/// the service. Thread-safe, save that one object may not be assigned to while it is used.
class ORVI_PLATFORM_EXPORT ServiceRegistrationBase {
public:
    ServiceRegistrationBase(ServiceRegistrationBase const& reg);
    ServiceRegistrationBase(ServiceRegistrationBase&& reg) noexcept;
    ServiceRegistrationBase& operator=(ServiceRegistrationBase const& registration);
    ServiceRegistrationBase& operator=(ServiceRegistrationBase&& registration) noexcept;
    ServiceRegistrationBase& operator=(std::nullptr_t);
    ~ServiceRegistrationBase();

    /// Tells whether this is the handle of a registration, be it still registered or not.
    explicit operator bool() const { return registration_ != nullptr; }

    /// Returns a reference to the service.
    /// @param interfaceId Name of the interface through which it will be got; empty for any.
    /// @throws std::logic_error "ServiceRegistrationBase object invalid" if default constructed or
    /// reset.
    /// @throws std::logic_error "Service is unregistered" if the service was unregistered.
    ServiceReferenceBase GetReference(std::string const& interfaceId = std::string()) const;

    /// Replaces the properties. Listeners see SERVICE_MODIFIED, or SERVICE_MODIFIED_ENDMATCH where
    /// the filter no longer matches, before this returns. Interface names, service id and scope
    /// cannot be changed.
    /// @throws std::logic_error as GetReference().
    /// @throws std::invalid_argument if the ranking is not an `int`.
    /// @throws std::runtime_error if two names differ only in case.
    void SetProperties(ServiceProperties const& properties);
    void SetProperties(ServiceProperties&& properties);

    /// Unregisters the service.
    ///
    /// Listeners see SERVICE_UNREGISTERING on this thread while the object can still be got; then
    /// it is released. While another thread does the same this returns at once.
    /// @throws std::logic_error as GetReference().
    void Unregister();

    /// Orders as the references do; an invalid handle comes first.
    bool operator<(ServiceRegistrationBase const& o) const;

    /// Tells whether both are handles of the same registration.
    bool operator==(ServiceRegistrationBase const& registration) const {
        return registration_ == registration.registration_;
    }

private:
    template <class I1, class... Interfaces>
    friend class ServiceRegistration;
    friend struct detail::Registration;
    friend struct std::hash<ServiceRegistrationBase>;

    ServiceRegistrationBase();
    explicit ServiceRegistrationBase(std::shared_ptr<detail::Registration> registration);

    std::shared_ptr<detail::Registration> registration_;
};

ORVI_PLATFORM_EXPORT std::ostream& operator<<(std::ostream& os, ServiceRegistrationBase const& reg);

} // namespace cppmicroservices

template <>
struct std::hash<cppmicroservices::ServiceRegistrationBase> {
    std::size_t operator()(cppmicroservices::ServiceRegistrationBase const& registration) const {
        return std::hash<std::shared_ptr<cppmicroservices::detail::Registration>>()(
            registration.registration_);
    }
};
