#pragma once

#include <functional>

namespace cppmicroservices {

class ServiceEvent;
class BundleEvent;
class FrameworkEvent;

/// Called with each service event whose service matches the listener's filter.
using ServiceListener = std::function<void(ServiceEvent const&)>;
/// Called with each bundle event.
using BundleListener = std::function<void(BundleEvent const&)>;
/// Called with each framework event.
using FrameworkListener = std::function<void(FrameworkEvent const&)>;

} // namespace cppmicroservices
