#pragma once

#include "ServiceRecord.hpp"

#include <exception>
#include <memory>

namespace cppmicroservices::detail {

/// Wraps the exception of a service factory that is being handled.
std::exception_ptr factoryException();

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
