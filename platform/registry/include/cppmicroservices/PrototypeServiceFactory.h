#pragma once

#include "cppmicroservices/ServiceFactory.h"

namespace cppmicroservices {

/// Makes a service object for each ServiceObjects::GetService(). Implementations must be
/// thread-safe.
struct ORVI_PLATFORM_EXPORT PrototypeServiceFactory : public ServiceFactory {
    InterfaceMapConstPtr
    GetService(Bundle const& bundle, ServiceRegistrationBase const& registration) override = 0;
    void UngetService(
        Bundle const& bundle, ServiceRegistrationBase const& registration,
        InterfaceMapConstPtr const& service) override = 0;
};

} // namespace cppmicroservices
