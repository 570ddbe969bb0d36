#pragma once

#include <orvi/platform_export.hpp>

#include <memory>

namespace cppmicroservices {
class Framework;
}

namespace foundation::cppmicroservices {

/// Return the process-wide, started service framework.
///
/// The first call creates, initialises and starts it, unless `setFramework` gave one before. The
/// platform's bridge works on it from then on. The framework is not destroyed at process exit, so
/// that objects of static lifetime may still use it; a host that wants its services withdrawn
/// before that stops it.
///
/// Thread safety: thread-safe; concurrent first calls get the same framework.
///
/// @throws std::runtime_error, std::logic_error when the framework cannot be started; a later call
///         tries again.
ORVI_PLATFORM_EXPORT std::shared_ptr<::cppmicroservices::Framework> getFramework();

/// Make a host's own framework the process-wide one.
///
/// Call it before the first `getFramework`. A framework that is not yet started is initialised and
/// started here.
///
/// Thread safety: thread-safe.
///
/// @throws std::invalid_argument when `framework` is null.
/// @throws std::logic_error when another framework is in use already.
/// @throws std::runtime_error when the framework cannot be started; nothing is set then.
ORVI_PLATFORM_EXPORT void setFramework(std::shared_ptr<::cppmicroservices::Framework> framework);

} // namespace foundation::cppmicroservices
