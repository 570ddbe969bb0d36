#pragma once

#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceRegistration.h"

namespace cppmicroservices {

class Bundle;

/// Makes one service object per bundle that gets the service. Implementations must be thread-safe.
class ORVI_PLATFORM_EXPORT ServiceFactory {
public:
    virtual ~ServiceFactory() = default;

    /// Makes the object for a bundle. It is kept until the bundle has released it.
    /// @return A map with all interfaces that were registered; null or an incomplete map makes the
    /// caller get nothing.
    virtual InterfaceMapConstPtr
    GetService(Bundle const& bundle, ServiceRegistrationBase const& registration) = 0;

    /// Takes back an object that GetService() returned.
    virtual void UngetService(
        Bundle const& bundle, ServiceRegistrationBase const& registration,
        InterfaceMapConstPtr const& service) = 0;
};

} // namespace cppmicroservices
