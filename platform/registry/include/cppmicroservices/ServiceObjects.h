#pragma once

#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/PrototypeServiceFactory.h"
#include "cppmicroservices/ServiceReference.h"

#include <memory>
#include <utility>

namespace cppmicroservices {

/// What ServiceObjects has in common for all interfaces.
class ORVI_PLATFORM_EXPORT ServiceObjectsBase {
public:
    ServiceObjectsBase(ServiceObjectsBase const&) = delete;
    ServiceObjectsBase& operator=(ServiceObjectsBase const&) = delete;
    ServiceObjectsBase(ServiceObjectsBase&& other) noexcept;
    ServiceObjectsBase& operator=(ServiceObjectsBase&& other) noexcept;

protected:
    ServiceObjectsBase(BundleContext context, ServiceReferenceBase const& reference);
    ~ServiceObjectsBase();

    std::shared_ptr<void> GetService() const;
    InterfaceMapConstPtr GetServiceInterfaceMap() const;
    ServiceReferenceBase GetReference() const;

private:
    struct Data;
    std::unique_ptr<Data> data_;
};

/// Gets the objects of one service, a new one each time if its factory is a
/// PrototypeServiceFactory.
///
/// Made by BundleContext::GetServiceObjects(). Thread-safe, save that it may not be moved while it
/// is used.
template <class S>
class ServiceObjects : private ServiceObjectsBase {
public:
    ServiceObjects(ServiceObjects&&) noexcept = default;
    ServiceObjects& operator=(ServiceObjects&&) noexcept = default;

    /// Gets a service object, which goes back to its factory when the last copy of the pointer
    /// goes.
    /// @return Null if the service has gone or its factory made nothing.
    std::shared_ptr<S> GetService() const {
        return std::static_pointer_cast<S>(ServiceObjectsBase::GetService());
    }

    ServiceReference<S> GetServiceReference() const { return GetReference(); }

private:
    friend class BundleContext;

    ServiceObjects(BundleContext context, ServiceReference<S> const& reference)
        : ServiceObjectsBase(std::move(context), reference) {}
};

/// Gets the objects of one service with all their interfaces.
template <>
class ServiceObjects<void> : private ServiceObjectsBase {
public:
    ServiceObjects(ServiceObjects&&) noexcept = default;
    ServiceObjects& operator=(ServiceObjects&&) noexcept = default;

    /// Gets the interfaces of a service object; each pointer in the map keeps the object in use.
    /// @return Null if the service has gone or its factory made nothing.
    InterfaceMapConstPtr GetService() const { return GetServiceInterfaceMap(); }

    ServiceReferenceU GetServiceReference() const { return GetReference(); }

private:
    friend class BundleContext;

    ServiceObjects(BundleContext context, ServiceReferenceU const& reference)
        : ServiceObjectsBase(std::move(context), reference) {}
};

} // namespace cppmicroservices
