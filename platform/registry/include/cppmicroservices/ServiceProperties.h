#pragma once

#include "cppmicroservices/AnyMap.h"

#include <string>
#include <unordered_map>

namespace cppmicroservices {

/// The properties of a service, by name. Names that differ only in case are rejected at
/// registration.
using ServiceProperties = std::unordered_map<std::string, Any>;

} // namespace cppmicroservices
