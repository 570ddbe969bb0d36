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
/// platform's bridge works on it from then on. The framework is not destroyed at process exit;
/// `processIsEnding` tells what an object of static lifetime may still do with it. A host that
/// wants its services withdrawn before that stops it. Its stop waits for the service methods that
/// are running, so a method must not wait for the stop. A stopped framework is returned as it is,
/// and when its host starts it again, the bridge works on it again from the next call of this
/// function on.
///
/// May block while another thread starts the framework. Thread safety: thread-safe; concurrent
/// first calls get the same framework.
///
/// Exceptions of a framework that cannot be started pass unchanged; a later call tries again.
ORVI_PLATFORM_EXPORT std::shared_ptr<::cppmicroservices::Framework> getFramework();

/// Make a host's own framework the process-wide one.
///
/// Call it before the first `getFramework`. A framework that is not yet started is initialised and
/// started here; its bundles may call `getFramework` meanwhile. Nothing happens when the same
/// framework is given again.
///
/// Thread safety: thread-safe.
///
/// Exceptions of a framework that cannot be started pass unchanged; nothing is set then.
///
/// @throws std::invalid_argument when `framework` is null.
/// @throws std::logic_error when another framework is in use already.
ORVI_PLATFORM_EXPORT void setFramework(std::shared_ptr<::cppmicroservices::Framework> framework);

/// Say whether the process has ended so far that services are left registered.
///
/// A destructor of a static object asks before it unregisters a service or changes its properties:
/// a registry may have static objects of its own, and those that are made with the first service
/// are destroyed before what was made earlier, such as an object made before `main`. The methods of
/// such a service can be ended all the same: by resetting the configuration that names it.
///
/// Thread safety: thread-safe.
ORVI_PLATFORM_EXPORT bool processIsEnding() noexcept;

} // namespace foundation::cppmicroservices
