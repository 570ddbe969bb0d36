#pragma once

#include "cppmicroservices/Any.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace cppmicroservices {

class Bundle;

namespace detail {
struct ReferenceData;
struct Registration;
template <class S, class T>
class TrackedServices;
} // namespace detail
template <class S>
class ServiceReference;

/// Refers to a registered service without keeping its object alive.
///
/// A cheap value; all references to one registration compare equal. Its properties can be read even
/// after the service has gone. Thread-safe.
class ORVI_PLATFORM_EXPORT ServiceReferenceBase {
public:
    ServiceReferenceBase(ServiceReferenceBase const& ref);
    ServiceReferenceBase& operator=(ServiceReferenceBase const& reference);

    /// Makes the reference refer to nothing.
    ServiceReferenceBase& operator=(std::nullptr_t);
    ~ServiceReferenceBase();

    /// Tells whether the service is registered.
    explicit operator bool() const;

    /// Returns the value of a property, an empty Any if absent. The case of @p key is ignored.
    Any GetProperty(std::string const& key) const;

    /// Returns the names of the properties.
    std::vector<std::string> GetPropertyKeys() const;
    void GetPropertyKeys(std::vector<std::string>& keys) const;

    /// Returns the bundle that registered the service, an invalid one if the service has gone.
    Bundle GetBundle() const;

    /// Returns the bundles that have got the service object and not released it.
    std::vector<Bundle> GetUsingBundles() const;

    /// Returns the name of the interface through which the service is got; empty for any.
    std::string GetInterfaceId() const;

    /// Tells whether the service has the interface named @p interfaceid.
    bool IsConvertibleTo(std::string const& interfaceid) const;

    /// Orders by preference: a lower ranking comes first, among equals the later registration.
    bool operator<(ServiceReferenceBase const& reference) const;

    /// Tells whether both refer to the same registration.
    bool operator==(ServiceReferenceBase const& reference) const;

private:
    template <class S>
    friend class ServiceReference;
    template <class S, class T>
    friend class detail::TrackedServices;
    friend struct detail::ReferenceData;
    friend struct std::hash<ServiceReferenceBase>;

    ServiceReferenceBase();
    explicit ServiceReferenceBase(std::shared_ptr<detail::ReferenceData const> data);
    std::size_t Hash() const;
    /// Tells whether the service has gone or is about to: its last event may have been sent.
    bool isLeaving() const;
    void SetInterfaceId(std::string const& interfaceId);
    std::shared_ptr<detail::ReferenceData const> load() const;
    void store(std::shared_ptr<detail::ReferenceData const> data);

    std::shared_ptr<detail::ReferenceData const> data_;
};

/// Writes the registering bundle and the properties.
ORVI_PLATFORM_EXPORT std::ostream&
operator<<(std::ostream& os, ServiceReferenceBase const& serviceRef);

} // namespace cppmicroservices

template <>
struct std::hash<cppmicroservices::ServiceReferenceBase> {
    std::size_t operator()(cppmicroservices::ServiceReferenceBase const& reference) const {
        return reference.Hash();
    }
};
