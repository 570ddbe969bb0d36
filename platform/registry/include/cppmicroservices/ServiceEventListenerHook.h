#pragma once

#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceListenerHook.h"
#include "cppmicroservices/ShrinkableMap.h"
#include "cppmicroservices/ShrinkableVector.h"

namespace cppmicroservices {

class BundleContext;
class ServiceEvent;

/// A service that can hide service events from listeners.
///
/// Register an implementation under this interface. What it throws becomes a FRAMEWORK_WARNING.
/// Implementations must be thread-safe.
struct ORVI_PLATFORM_EXPORT ServiceEventListenerHook {
    using ShrinkableMapType =
        ShrinkableMap<BundleContext, ShrinkableVector<ServiceListenerHook::ListenerInfo>>;

    virtual ~ServiceEventListenerHook();

    /// Called before each event is delivered.
    /// @param listeners All listeners, by context, from which the hook may remove.
    virtual void Event(ServiceEvent const& event, ShrinkableMapType& listeners) = 0;
};

} // namespace cppmicroservices
