#pragma once

#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/IllegalStateException.h"
#include "cppmicroservices/ListenerFunctors.h"
#include "cppmicroservices/ListenerToken.h"
#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceRegistration.h"

#include <memory>
#include <string>
#include <vector>

namespace cppmicroservices {

class Bundle;
class ServiceFactory;
template <class S>
class ServiceObjects;

namespace detail {
class FrameworkCore;
struct ContextData;
} // namespace detail

/// A bundle's access to the framework: registers, finds, gets services, and listens.
///
/// A cheap value, valid from Framework::Init() until the framework stops. All functions but the
/// operators throw IllegalStateException "The bundle context is no longer valid" on an invalid one.
/// Listeners, hooks, factories and destructors of services run without any lock of the framework,
/// so they may call whatever they like. Thread-safe, save that one object may not be assigned to
/// while it is used.
class ORVI_PLATFORM_EXPORT BundleContext {
public:
    /// An invalid context.
    BundleContext();
    BundleContext(BundleContext const&);
    BundleContext(BundleContext&&) noexcept;
    BundleContext& operator=(BundleContext const&);
    BundleContext& operator=(BundleContext&&) noexcept;
    BundleContext& operator=(std::nullptr_t);
    ~BundleContext();

    bool operator==(BundleContext const& rhs) const;

    bool operator!=(BundleContext const& rhs) const { return !(*this == rhs); }

    bool operator<(BundleContext const& rhs) const;

    /// Tells whether the context is valid.
    explicit operator bool() const;

    /// Returns a framework property, an empty Any if absent.
    Any GetProperty(std::string const& key) const;

    /// Returns all framework properties.
    AnyMap GetProperties() const;

    /// Returns the bundle of this context.
    Bundle GetBundle() const;

    /// Returns the bundle with the given number, an invalid one if there is none.
    Bundle GetBundle(long id) const;

    /// Returns the bundles at a location.
    std::vector<Bundle> GetBundles(std::string const& location) const;

    /// Returns all bundles.
    std::vector<Bundle> GetBundles() const;

    /// Registers a service object, or a factory of them. Listeners see SERVICE_REGISTERED before
    /// this returns.
    /// @param service The object's interfaces; see MakeInterfaceMap.
    /// @param properties Names and values; Constants::OBJECTCLASS, SERVICE_ID and SERVICE_SCOPE are
    /// set by the framework.
    /// @throws std::invalid_argument if @p service is empty or has an empty name or null object, or
    /// if the ranking is not an `int`.
    /// @throws std::runtime_error if two property names differ only in case.
    [[nodiscard]] ServiceRegistrationU RegisterService(
        InterfaceMapConstPtr const& service,
        ServiceProperties const& properties = ServiceProperties());

    /// Registers a service object through the interfaces I1, Interfaces.
    template <class I1, class... Interfaces, class Impl>
    ServiceRegistration<I1, Interfaces...> RegisterService(
        std::shared_ptr<Impl> const& impl,
        ServiceProperties const& properties = ServiceProperties()) {
        InterfaceMapConstPtr const map = MakeInterfaceMap<I1, Interfaces...>(impl);
        return RegisterService(map, properties);
    }

    /// Registers a factory of service objects; see ToFactory().
    template <class I1, class... Interfaces>
    ServiceRegistration<I1, Interfaces...> RegisterService(
        std::shared_ptr<ServiceFactory> const& factory,
        ServiceProperties const& properties = ServiceProperties()) {
        InterfaceMapConstPtr const map = MakeInterfaceMap<I1, Interfaces...>(factory);
        return RegisterService(map, properties);
    }

    /// Finds services, preferred ones first.
    /// @param clazz Name of the interface; empty for any, then in order of registration unless the
    /// filter names interfaces.
    /// @param filter Text of an LDAPFilter; empty for all.
    /// @throws std::invalid_argument if @p filter breaks the grammar, save where no service has the
    /// interface.
    std::vector<ServiceReferenceU>
    GetServiceReferences(std::string const& clazz, std::string const& filter = std::string());

    /// Finds services with interface S, preferred ones first.
    template <class S>
    std::vector<ServiceReference<S>>
    GetServiceReferences(std::string const& filter = std::string()) {
        std::vector<ServiceReference<S>> result;
        for (auto const& reference : GetServiceReferences(checkedInterfaceId<S>(), filter)) {
            result.emplace_back(reference);
        }
        return result;
    }

    /// Finds the preferred service: the one with the highest ranking, among equals the first
    /// registered.
    /// @return A reference to nothing if there is none.
    ServiceReferenceU GetServiceReference(std::string const& clazz);

    template <class S>
    ServiceReference<S> GetServiceReference() {
        return ServiceReference<S>(GetServiceReference(checkedInterfaceId<S>()));
    }

    /// Gets a service object. It is in use until the last copy of the pointer has gone, and the
    /// pointer keeps the object alive even after the service was unregistered.
    /// @return Null if the service has gone meanwhile or its factory made nothing.
    /// @throws std::invalid_argument if @p reference refers to no registered service.
    std::shared_ptr<void> GetService(ServiceReferenceBase const& reference);
    InterfaceMapConstPtr GetService(ServiceReferenceU const& reference);

    template <class S>
    std::shared_ptr<S> GetService(ServiceReference<S> const& reference) {
        return std::static_pointer_cast<S>(
            GetService(static_cast<ServiceReferenceBase const&>(reference)));
    }

    /// Makes an object that gets service objects one by one, which matters for prototype factories.
    /// @throws std::invalid_argument if @p reference refers to no registered service.
    template <class S>
    ServiceObjects<S> GetServiceObjects(ServiceReference<S> const& reference) {
        if (!data_) {
            throw IllegalStateException("The bundle context is no longer valid");
        }
        return ServiceObjects<S>(*this, reference);
    }

    /// Adds a listener for the events of services that match @p filter, of all if it is empty.
    ///
    /// It is called on the thread that causes the event. What it throws becomes a FRAMEWORK_ERROR
    /// event.
    /// @throws std::invalid_argument if @p filter breaks the grammar.
    ListenerToken
    AddServiceListener(ServiceListener const& listener, std::string const& filter = std::string());

    /// Adds a listener for bundle events. What it throws becomes a FRAMEWORK_ERROR event.
    ListenerToken AddBundleListener(BundleListener const& listener);

    /// Adds a listener for framework events. What it throws is dropped.
    ListenerToken AddFrameworkListener(FrameworkListener const& listener);

    /// Removes a listener. Calls to it that are under way on other threads are not waited for.
    void RemoveListener(ListenerToken token);

private:
    friend class detail::FrameworkCore;
    explicit BundleContext(std::shared_ptr<detail::ContextData> data);

    template <class S>
    static std::string const& checkedInterfaceId() {
        auto const& id = us_service_interface_iid<S>();
        if (id.empty()) {
            throw ServiceException("The service interface class has no "
                                   "CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE macro");
        }
        return id;
    }

    std::shared_ptr<detail::ContextData> data_;
};

} // namespace cppmicroservices
