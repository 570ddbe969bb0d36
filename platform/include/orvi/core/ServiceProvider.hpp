#pragma once

#include <orvi/core/ServiceInterface.hpp>
#include <orvi/platform_export.hpp>

#include <vector>

namespace agent::orvi::core {

/// What a component registers with the service framework to offer methods to others.
///
/// The bridge reads the interfaces once, when the provider is registered, and makes each one
/// reachable as an `Invokable` while a configuration's publisher names it.
class ORVI_PLATFORM_EXPORT ServiceProvider {
public:
    /// Describe the interfaces offered. May be called from any thread.
    virtual std::vector<ServiceInterface> getServiceInterfaces() = 0;

    virtual ~ServiceProvider();
};

} // namespace agent::orvi::core
