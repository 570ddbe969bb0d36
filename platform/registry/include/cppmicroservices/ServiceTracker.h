#pragma once

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/LDAPFilter.h"
#include "cppmicroservices/ServiceEvent.h"
#include "cppmicroservices/ServiceReference.h"
#include "cppmicroservices/ServiceTrackerCustomizer.h"

#include <chrono>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace cppmicroservices {

namespace detail {
template <class S, class T>
class TrackedServices;
} // namespace detail

/// Keeps the services that match a condition, with an object for each.
///
/// Opened, it finds the present services and follows the later ones until it is closed or
/// destroyed. Without a customizer it tracks the service objects themselves; a customizer, or a
/// derived class, may do otherwise. It can be opened again. No lock is held while a customizer
/// runs. Thread-safe; destroy it when no other thread uses it.
/// @tparam S The interface of the services; `void` for any.
/// @tparam T The type of the tracked objects.
template <class S, class T = S>
class ServiceTracker : protected ServiceTrackerCustomizer<S, T> {
public:
    using TrackedParamType = typename ServiceTrackerCustomizer<S, T>::TrackedParamType;
    using TrackingMap = std::unordered_map<ServiceReference<S>, std::shared_ptr<TrackedParamType>>;

    /// Closes the tracker.
    ~ServiceTracker() override;
    ServiceTracker(ServiceTracker const&) = delete;
    ServiceTracker& operator=(ServiceTracker const&) = delete;

    /// Tracks one service.
    /// @throws BadAnyCastException if @p reference refers to nothing.
    ServiceTracker(
        BundleContext const& context, ServiceReference<S> const& reference,
        ServiceTrackerCustomizer<S, T>* customizer = nullptr);

    /// Tracks the services with the interface named @p clazz.
    /// @throws std::invalid_argument if no filter can be made of the name.
    ServiceTracker(
        BundleContext const& context, std::string const& clazz,
        ServiceTrackerCustomizer<S, T>* customizer = nullptr);

    /// Tracks the services that match a filter.
    /// @throws std::invalid_argument "The bundle context cannot be null." if @p context is invalid.
    ServiceTracker(
        BundleContext const& context, LDAPFilter const& filter,
        ServiceTrackerCustomizer<S, T>* customizer = nullptr);

    /// Tracks the services with interface S.
    /// @throws ServiceException if S is void.
    ServiceTracker(
        BundleContext const& context, ServiceTrackerCustomizer<S, T>* customizer = nullptr);

    /// Starts tracking; does nothing if open. What the customizer throws for a present service
    /// leaves this function.
    /// @throws IllegalStateException if the context is no longer valid.
    virtual void Open();

    /// Stops tracking: waits for customizer calls on other threads, then calls RemovedService() for
    /// what is tracked. Does nothing if closed.
    virtual void Close();

    /// Waits until a service is tracked.
    /// @return The object of the preferred service; null if the tracker is closed.
    /// @throws std::logic_error if the context is or becomes invalid.
    std::shared_ptr<TrackedParamType> WaitForService();

    /// Waits at most @p rel_time, without end if that is zero.
    /// @return The object of the preferred service; null if the time is over or the tracker is
    /// closed.
    /// @throws std::invalid_argument "negative timeout" if @p rel_time is negative.
    /// @throws std::logic_error as WaitForService().
    template <class Rep, class Period>
    std::shared_ptr<TrackedParamType>
    WaitForService(std::chrono::duration<Rep, Period> const& rel_time);

    /// Returns references to the tracked services, in no particular order.
    virtual std::vector<ServiceReference<S>> GetServiceReferences() const;

    /// Returns a reference to the preferred service: highest ranking, among equals lowest service
    /// id.
    /// @throws ServiceException "No service is being tracked" if there is none.
    virtual ServiceReference<S> GetServiceReference() const;

    /// Returns the object of a tracked service, null if it is not tracked.
    virtual std::shared_ptr<TrackedParamType>
    GetService(ServiceReference<S> const& reference) const;

    /// Returns the objects of the tracked services, in no particular order.
    virtual std::vector<std::shared_ptr<TrackedParamType>> GetServices() const;

    /// Returns the object of the preferred service, null if there is none.
    virtual std::shared_ptr<TrackedParamType> GetService() const;

    /// Stops tracking one service as if it had been unregistered.
    virtual void Remove(ServiceReference<S> const& reference);

    /// Returns how many services are tracked.
    virtual int Size() const;

    /// Returns a number that grows whenever a tracked service is added, modified or removed; -1 if
    /// not open.
    virtual int GetTrackingCount() const;

    /// Adds the tracked services and their objects to @p tracked.
    virtual void GetTracked(TrackingMap& map) const;

    /// Tells whether no service is tracked.
    virtual bool IsEmpty() const;

protected:
    /// Gets the service object.
    std::shared_ptr<TrackedParamType> AddingService(ServiceReference<S> const& reference) override;
    /// Does nothing.
    void ModifiedService(
        ServiceReference<S> const& reference,
        std::shared_ptr<TrackedParamType> const& service) override;
    /// Does nothing.
    void RemovedService(
        ServiceReference<S> const& reference,
        std::shared_ptr<TrackedParamType> const& service) override;

private:
    using Tracked = detail::TrackedServices<S, T>;
    struct State;

    std::shared_ptr<Tracked> tracked() const;
    std::vector<ServiceReference<S>> initialReferences();
    void removeListener(ListenerToken token);

    std::unique_ptr<State> state_;
};

} // namespace cppmicroservices

#include "cppmicroservices/detail/ServiceTracker.hpp"
