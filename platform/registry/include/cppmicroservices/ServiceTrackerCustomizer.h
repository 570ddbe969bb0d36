#pragma once

#include "cppmicroservices/ServiceReference.h"

#include <memory>
#include <stdexcept>
#include <type_traits>

namespace cppmicroservices {

/// Decides which services a ServiceTracker tracks and with which object; is told of changes.
///
/// S is the interface of the services, T the type of the tracked objects. Called without any lock,
/// on the threads that cause the events or that open and close the tracker. Must outlive the
/// tracker.
template <class S, class T = S>
struct ServiceTrackerCustomizer {
    /// How a tracker without a customizer makes tracked objects of service objects.
    struct TypeTraits {
        using ServiceType = S;
        using TrackedType = T;
        /// With no interface given, the tracked object is the interface map.
        using TrackedParamType = std::conditional_t<std::is_void_v<T>, InterfaceMap const, T>;

        /// @throws std::runtime_error if S and T differ: then a tracker needs a customizer.
        template <class Service>
        static std::shared_ptr<TrackedParamType>
        ConvertToTrackedType([[maybe_unused]] Service const& service) {
            if constexpr (std::is_same_v<S, T>) {
                return service;
            } else {
                throw std::runtime_error("A custom ServiceTrackerCustomizer instance is required "
                                         "for custom tracked objects.");
            }
        }
    };

    using TrackedParamType = typename TypeTraits::TrackedParamType;

    virtual ~ServiceTrackerCustomizer() = default;

    /// Called when a matching service appears.
    /// @return The object to track; null leaves the service untracked.
    virtual std::shared_ptr<TrackedParamType>
    AddingService(ServiceReference<S> const& reference) = 0;

    /// Called when the properties of a tracked service have changed.
    virtual void ModifiedService(
        ServiceReference<S> const& reference, std::shared_ptr<TrackedParamType> const& service) = 0;

    /// Called when a service is tracked no longer.
    virtual void RemovedService(
        ServiceReference<S> const& reference, std::shared_ptr<TrackedParamType> const& service) = 0;
};

} // namespace cppmicroservices
