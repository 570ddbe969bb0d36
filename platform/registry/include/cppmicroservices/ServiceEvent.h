#pragma once

#include "cppmicroservices/ServiceReference.h"

#include <cstdint>
#include <memory>
#include <ostream>

namespace cppmicroservices {

/// Tells a service listener what happened to a service. An immutable value.
class ORVI_PLATFORM_EXPORT ServiceEvent {
public:
    enum Type : std::uint32_t {
        /// The service has been registered.
        SERVICE_REGISTERED = 0x00000001,
        /// The properties have changed and the listener's filter matches them.
        SERVICE_MODIFIED = 0x00000002,
        /// The service is being unregistered; its object can still be got.
        SERVICE_UNREGISTERING = 0x00000004,
        /// The properties have changed and the listener's filter matched only the former ones.
        SERVICE_MODIFIED_ENDMATCH = 0x00000008
    };

    /// An invalid event.
    ServiceEvent() = default;
    ServiceEvent(Type type, ServiceReferenceBase const& reference);
    ServiceEvent(ServiceEvent const&) = default;
    ServiceEvent& operator=(ServiceEvent const&) = default;

    /// Tells whether the event is valid; the getters need that.
    explicit operator bool() const { return data_ != nullptr; }

    /// Returns the reference of the service.
    ServiceReferenceU GetServiceReference() const;

    template <class S>
    ServiceReference<S> GetServiceReference() const {
        return GetServiceReference();
    }

    /// Returns what happened.
    Type GetType() const;

private:
    struct Data;
    std::shared_ptr<Data const> data_;
};

ORVI_PLATFORM_EXPORT std::ostream& operator<<(std::ostream& os, ServiceEvent::Type const& type);
ORVI_PLATFORM_EXPORT std::ostream& operator<<(std::ostream& os, ServiceEvent const& event);

} // namespace cppmicroservices
