#pragma once

#include "ServiceRecord.hpp"

#include <memory>

namespace cppmicroservices::detail {

/// Reports the exception of a service factory that is being handled, if there is memory for it.
void sendFactoryError(FrameworkCore& core, char const* message) noexcept;

/// Which object of a prototype factory is got.
enum class Instance { Shared, Fresh };

/// Gets a service object through the interface of the reference. It counts as used until the
/// pointer has gone.
/// @return Null if the service has gone or its factory made nothing.
std::shared_ptr<void> useService(ServiceReferenceBase const& reference, Instance instance);

/// Gets a service object with all its interfaces. It counts as used until the map has gone.
/// @return Null if the service has gone or its factory made nothing.
InterfaceMapConstPtr useInterfaces(ServiceReferenceBase const& reference, Instance instance);

} // namespace cppmicroservices::detail
