#pragma once

#include "cppmicroservices/ServiceRegistrationBase.h"

namespace cppmicroservices {

class BundleContext;

/// The registrant's handle of a service with the given interfaces; see ServiceRegistrationBase.
template <class I1, class... Interfaces>
class ServiceRegistration : public ServiceRegistrationBase {
public:
    /// An invalid handle.
    ServiceRegistration() = default;

    /// Returns a reference to the service through one of its interfaces.
    /// @throws std::logic_error as ServiceRegistrationBase::GetReference().
    template <class Interface>
    ServiceReference<Interface> GetReference() const {
        static_assert(
            detail::Contains<Interface, I1, Interfaces...>::value,
            "Requested interface type not available");
        return ServiceRegistrationBase::GetReference(us_service_interface_iid<Interface>());
    }

    /// Returns a reference to the service through its first interface.
    /// @throws std::logic_error as ServiceRegistrationBase::GetReference().
    ServiceReference<I1> GetReference() const {
        return ServiceRegistrationBase::GetReference(us_service_interface_iid<I1>());
    }

    using ServiceRegistrationBase::operator=;

private:
    friend class BundleContext;

    ServiceRegistration(ServiceRegistrationBase const& base)
        : ServiceRegistrationBase(base) {}
};

/// The registrant's handle of a service whose interfaces are not known at compile time.
template <>
class ServiceRegistration<void> : public ServiceRegistrationBase {
public:
    /// An invalid handle.
    ServiceRegistration() = default;

    ServiceRegistration(ServiceRegistrationBase const& base)
        : ServiceRegistrationBase(base) {}

    using ServiceRegistrationBase::operator=;
};

using ServiceRegistrationU = ServiceRegistration<void>;

} // namespace cppmicroservices
