#pragma once

#include "cppmicroservices/Bundle.h"

#include <chrono>
#include <memory>

namespace cppmicroservices {

class FrameworkEvent;

/// The system bundle, which is the framework itself.
///
/// Made by FrameworkFactory. It can be started again after a stop. See Bundle for ownership and
/// thread safety.
class ORVI_PLATFORM_EXPORT Framework : public Bundle {
public:
    /// Makes a framework from the system bundle.
    /// @throws std::invalid_argument "invalid bundle" if @p bundle is invalid.
    explicit Framework(Bundle bundle);
    Framework(Framework const&) = default;
    Framework(Framework&&) noexcept = default;
    Framework& operator=(Framework const&) = default;
    Framework& operator=(Framework&&) noexcept = default;

    /// Makes the bundle context available, so that listeners can be added before Start(). Does
    /// nothing if that is done.
    /// @throws std::logic_error while the framework is stopping.
    void Init();

    /// Waits until the framework has stopped; returns at once unless it is starting, active or
    /// stopping.
    /// @param timeout How long to wait at most; zero waits without end.
    /// @return FRAMEWORK_STOPPED, or FRAMEWORK_WAIT_TIMEDOUT, or FRAMEWORK_ERROR if it was never
    /// started.
    FrameworkEvent WaitForStop(std::chrono::milliseconds const& timeout);

private:
    friend class FrameworkFactory;
    explicit Framework(std::shared_ptr<detail::FrameworkCore> core);
};

} // namespace cppmicroservices
