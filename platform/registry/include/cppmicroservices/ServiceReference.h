#pragma once

#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceReferenceBase.h"

#include <cstddef>
#include <functional>
#include <memory>

namespace cppmicroservices {

/// Refers to a registered service with interface S. Thread-safe.
template <class S>
class ServiceReference : public ServiceReferenceBase {
public:
    using ServiceType = S;

    /// Refers to nothing.
    ServiceReference() = default;
    ServiceReference(ServiceReference const&) = default;
    ServiceReference& operator=(ServiceReference const&) = default;

    /// Refers to the same service as @p base, or to nothing if that service has no interface S.
    ServiceReference(ServiceReferenceBase const& base)
        : ServiceReferenceBase(base) {
        selectInterface();
    }

    ServiceReference& operator=(ServiceReferenceBase const& reference) {
        ServiceReferenceBase::operator=(reference);
        selectInterface();
        return *this;
    }

    using ServiceReferenceBase::operator=;

    bool operator==(ServiceReference const& reference) const {
        return ServiceReferenceBase::operator==(reference);
    }

private:
    void selectInterface() {
        std::string const& id = us_service_interface_iid<S>();
        if (GetInterfaceId() == id) {
            return;
        }
        if (IsConvertibleTo(id)) {
            SetInterfaceId(id);
        } else {
            ServiceReferenceBase::operator=(nullptr);
        }
    }
};

/// Refers to a registered service with any interface. Thread-safe.
template <>
class ServiceReference<void> : public ServiceReferenceBase {
public:
    using ServiceType = void;

    /// Refers to nothing.
    ServiceReference() = default;
    ServiceReference(ServiceReference const&) = default;
    ServiceReference& operator=(ServiceReference const&) = default;

    ServiceReference(ServiceReferenceBase const& base)
        : ServiceReferenceBase(base) {}

    using ServiceReferenceBase::operator=;

    bool operator==(ServiceReference const& reference) const {
        return ServiceReferenceBase::operator==(reference);
    }
};

using ServiceReferenceU = ServiceReference<void>;

/// Returns the reference with which a service object was got from a bundle context or from
/// ServiceObjects.
/// @throws std::runtime_error if @p s was not got in such a way.
ORVI_PLATFORM_EXPORT ServiceReferenceU ServiceReferenceFromService(std::shared_ptr<void> const& s);

template <typename T, typename U = T>
ServiceReference<U> ServiceReferenceFromService(std::shared_ptr<T> const& s) {
    return ServiceReference<U>(ServiceReferenceFromService(std::static_pointer_cast<void>(s)));
}

} // namespace cppmicroservices

template <class S>
struct std::hash<cppmicroservices::ServiceReference<S>> {
    std::size_t operator()(cppmicroservices::ServiceReference<S> const& reference) const {
        return std::hash<cppmicroservices::ServiceReferenceBase>()(reference);
    }
};
