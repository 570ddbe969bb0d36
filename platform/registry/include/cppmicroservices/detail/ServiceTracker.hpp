#pragma once

#include "cppmicroservices/ServiceTracker.h"
#include "cppmicroservices/detail/TrackedServices.hpp"

#include <chrono>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>

namespace cppmicroservices {

template <class S, class T>
struct ServiceTracker<S, T>::State {
    State(BundleContext const& c, std::string const& text, ServiceTrackerCustomizer<S, T>* cust)
        : context(c)
        , filterText(text)
        , customizer(cust) {
        try {
            LDAPFilter const check(text);
        } catch (std::invalid_argument const& e) {
            throw std::invalid_argument(
                std::string("unexpected std::invalid_argument exception: ") + e.what());
        }
    }

    State(BundleContext const& c, LDAPFilter const& filter, ServiceTrackerCustomizer<S, T>* cust)
        : context(c)
        , filterText(filter.ToString())
        , customizer(cust) {}

    BundleContext context;
    std::string const filterText;
    std::string clazz;
    ServiceReference<S> reference;
    ServiceTrackerCustomizer<S, T>* const customizer;
    std::mutex mutex;
    ListenerToken token;
    std::shared_ptr<Tracked> tracked;
};

template <class S, class T>
ServiceTracker<S, T>::ServiceTracker(
    BundleContext const& context, ServiceReference<S> const& reference,
    ServiceTrackerCustomizer<S, T>* customizer)
    : state_(std::make_unique<State>(
          context,
          "(service.id=" + std::to_string(any_cast<long>(reference.GetProperty("service.id"))) +
              ")",
          customizer ? customizer : this)) {
    state_->reference = reference;
}

template <class S, class T>
ServiceTracker<S, T>::ServiceTracker(
    BundleContext const& context, std::string const& clazz,
    ServiceTrackerCustomizer<S, T>* customizer)
    : state_(std::make_unique<State>(
          context, "(objectclass=" + clazz + ")", customizer ? customizer : this)) {
    state_->clazz = clazz;
}

template <class S, class T>
ServiceTracker<S, T>::ServiceTracker(
    BundleContext const& context, LDAPFilter const& filter,
    ServiceTrackerCustomizer<S, T>* customizer)
    : state_(std::make_unique<State>(context, filter, customizer ? customizer : this)) {
    if (!context) {
        throw std::invalid_argument("The bundle context cannot be null.");
    }
}

template <class S, class T>
ServiceTracker<S, T>::ServiceTracker(
    BundleContext const& context, ServiceTrackerCustomizer<S, T>* customizer)
    : ServiceTracker(context, us_service_interface_iid<S>(), customizer) {
    if (us_service_interface_iid<S>().empty()) {
        throw ServiceException(
            "The service interface class has no CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE macro");
    }
}

template <class S, class T>
ServiceTracker<S, T>::~ServiceTracker() {
    try {
        ServiceTracker::Close();
    } catch (...) {
        // A customizer threw from RemovedService(); a destructor has nobody to tell.
    }
}

template <class S, class T>
void ServiceTracker<S, T>::Open() {
    auto const fresh = std::make_shared<Tracked>(state_->customizer, !state_->filterText.empty());
    std::shared_ptr<Tracked> former;
    {
        std::lock_guard const lock(state_->mutex);
        if (state_->tracked && !state_->tracked->isClosed()) {
            return;
        }
        former = std::exchange(state_->tracked, fresh);
    }
    ListenerToken token;
    std::vector<ServiceReference<S>> references;
    try {
        token = state_->context.AddServiceListener(
            [fresh](ServiceEvent const& event) { fresh->serviceChanged(event); },
            state_->filterText);
        references = initialReferences();
    } catch (...) {
        {
            std::lock_guard const lock(state_->mutex);
            state_->tracked = former;
        }
        removeListener(std::move(token));
        // An event may be on its way to it on another thread.
        fresh->closeAndUntrack();
        throw;
    }
    {
        std::lock_guard const lock(state_->mutex);
        if (!fresh->isClosed()) {
            state_->token = std::exchange(token, {});
        }
    }
    if (token) {
        // Closed by another thread before there was a listener to remove.
        removeListener(std::move(token));
        return;
    }
    fresh->trackInitial(references);
}

template <class S, class T>
std::vector<ServiceReference<S>> ServiceTracker<S, T>::initialReferences() {
    if (state_->clazz.empty() && state_->reference) {
        return {state_->reference};
    }
    auto const& filter = state_->clazz.empty() ? state_->filterText : std::string();
    std::vector<ServiceReference<S>> result;
    for (ServiceReference<S> reference :
         state_->context.GetServiceReferences(state_->clazz, filter)) {
        if (reference) {
            result.push_back(std::move(reference));
        }
    }
    return result;
}

template <class S, class T>
void ServiceTracker<S, T>::Close() {
    ListenerToken token;
    std::shared_ptr<Tracked> outgoing;
    {
        std::lock_guard const lock(state_->mutex);
        token = std::move(state_->token);
        outgoing = state_->tracked;
    }
    removeListener(std::move(token));
    if (outgoing) {
        outgoing->closeAndUntrack();
    }
}

template <class S, class T>
void ServiceTracker<S, T>::removeListener(ListenerToken token) {
    try {
        if (token) {
            state_->context.RemoveListener(std::move(token));
        }
    } catch (IllegalStateException const&) {
        // The framework has stopped and dropped the listener.
    }
}

template <class S, class T>
auto ServiceTracker<S, T>::tracked() const -> std::shared_ptr<Tracked> {
    std::lock_guard const lock(state_->mutex);
    return state_->tracked;
}

template <class S, class T>
auto ServiceTracker<S, T>::WaitForService() -> std::shared_ptr<TrackedParamType> {
    return WaitForService(std::chrono::milliseconds::zero());
}

template <class S, class T>
template <class Rep, class Period>
auto ServiceTracker<S, T>::WaitForService(std::chrono::duration<Rep, Period> const& rel_time)
    -> std::shared_ptr<TrackedParamType> {
    using Clock = std::chrono::steady_clock;
    if (rel_time.count() < 0) {
        throw std::invalid_argument("negative timeout");
    }
    if (auto object = GetService()) {
        return object;
    }
    auto const services = tracked();
    if (!services || services->isClosed()) {
        return nullptr;
    }
    if (!state_->context) {
        throw std::logic_error("The bundle context cannot be null.");
    }
    bool const endless = rel_time.count() == 0;
    // Adding the largest durations to the present would overflow.
    constexpr std::chrono::hours years(24 * 365 * 10);
    auto const deadline = rel_time > years
                              ? Clock::now() + years
                              : Clock::now() + std::chrono::ceil<Clock::duration>(rel_time);
    for (;;) {
        // Nothing signals that the framework stops, so an endless wait looks now and then.
        services->waitForService(
            endless ? Clock::now() + std::chrono::milliseconds(200) : deadline);
        if (auto object = GetService()) {
            return object;
        }
        if (services->isClosed() || (!endless && Clock::now() >= deadline)) {
            return nullptr;
        }
        if (endless && !state_->context) {
            throw std::logic_error("The bundle context became null.");
        }
    }
}

template <class S, class T>
std::vector<ServiceReference<S>> ServiceTracker<S, T>::GetServiceReferences() const {
    std::vector<ServiceReference<S>> references;
    if (auto const services = tracked()) {
        for (auto const& entry : services->entries()) {
            references.push_back(entry.first);
        }
    }
    return references;
}

template <class S, class T>
ServiceReference<S> ServiceTracker<S, T>::GetServiceReference() const {
    auto const services = tracked();
    auto reference = services ? services->preferred() : ServiceReference<S>();
    if (!reference) {
        throw ServiceException("No service is being tracked");
    }
    return reference;
}

template <class S, class T>
auto ServiceTracker<S, T>::GetService(ServiceReference<S> const& reference) const
    -> std::shared_ptr<TrackedParamType> {
    auto const services = tracked();
    return services ? services->object(reference) : nullptr;
}

template <class S, class T>
auto ServiceTracker<S, T>::GetServices() const -> std::vector<std::shared_ptr<TrackedParamType>> {
    std::vector<std::shared_ptr<TrackedParamType>> objects;
    if (auto const services = tracked()) {
        for (auto& entry : services->entries()) {
            objects.push_back(entry.second);
        }
    }
    return objects;
}

template <class S, class T>
auto ServiceTracker<S, T>::GetService() const -> std::shared_ptr<TrackedParamType> {
    auto const services = tracked();
    return services ? services->preferredObject() : nullptr;
}

template <class S, class T>
void ServiceTracker<S, T>::Remove(ServiceReference<S> const& reference) {
    if (auto const services = tracked()) {
        services->untrack(reference);
    }
}

template <class S, class T>
int ServiceTracker<S, T>::Size() const {
    auto const services = tracked();
    return services ? static_cast<int>(services->size()) : 0;
}

template <class S, class T>
int ServiceTracker<S, T>::GetTrackingCount() const {
    auto const services = tracked();
    return services ? services->count() : -1;
}

template <class S, class T>
void ServiceTracker<S, T>::GetTracked(TrackingMap& map) const {
    if (auto const services = tracked()) {
        for (auto& entry : services->entries()) {
            map.insert(entry);
        }
    }
}

template <class S, class T>
bool ServiceTracker<S, T>::IsEmpty() const {
    return Size() == 0;
}

template <class S, class T>
auto ServiceTracker<S, T>::AddingService(ServiceReference<S> const& reference)
    -> std::shared_ptr<TrackedParamType> {
    return ServiceTrackerCustomizer<S, T>::TypeTraits::ConvertToTrackedType(
        state_->context.GetService(reference));
}

template <class S, class T>
void ServiceTracker<S, T>::ModifiedService(
    ServiceReference<S> const&, std::shared_ptr<TrackedParamType> const&) {}

template <class S, class T>
void ServiceTracker<S, T>::RemovedService(
    ServiceReference<S> const&, std::shared_ptr<TrackedParamType> const&) {}

} // namespace cppmicroservices
