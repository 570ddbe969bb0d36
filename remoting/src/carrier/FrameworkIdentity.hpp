#pragma once

#include <cppmicroservices/BundleContext.h>

#include <string>

namespace agent::orvi::remoting::details {

/// Return the UUID by which other processes know the framework of this one.
///
/// It is the framework's own where that is unique. An installed CppMicroServices counts frameworks
/// instead, from the same number in every process; there it is one that is made for this process.
///
/// Thread safety: thread-safe.
std::string frameworkIdentity(cppmicroservices::BundleContext context);

} // namespace agent::orvi::remoting::details
