#pragma once

#include <orvi/core/ServiceInterface.hpp>
#include <orvi/platform_export.hpp>

#include <vector>

namespace agent::orvi::core {

/// What a component registers with the service framework to offer methods to others.
///
/// The bridge reads the interfaces once, when the provider is registered, and makes each one
/// reachable as an `Invokable` while a configuration's publisher names it. It keeps the provider
/// alive while a method runs. Unregistering blocks until the methods' calls in flight have ended,
/// except those that the unregistering thread itself is inside of.
class ORVI_PLATFORM_EXPORT ServiceProvider {
public:
    /// Describe the interfaces offered. May be called from any thread. A provider whose
    /// description fails is not reachable.
    virtual std::vector<ServiceInterface> getServiceInterfaces() = 0;

    virtual ~ServiceProvider();
};

} // namespace agent::orvi::core
