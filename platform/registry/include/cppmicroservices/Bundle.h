#pragma once

#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/BundleVersion.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace cppmicroservices {

class BundleContext;

namespace detail {
class FrameworkCore;
class FrameworkOwner;
} // namespace detail
template <class S>
class ServiceReference;
using ServiceReferenceU = ServiceReference<void>;

/// The owner of services and listeners. Here there is one per framework, the system bundle.
///
/// A cheap value, and a shared owner of the framework: when the last one goes, a running framework
/// is stopped. Thread-safe, save that one object may not be assigned to while it is used.
class ORVI_PLATFORM_EXPORT Bundle {
public:
    using TimeStamp = std::chrono::steady_clock::time_point;

    enum State : std::uint32_t {
        STATE_UNINSTALLED = 0x00000001,
        STATE_INSTALLED = 0x00000002,
        STATE_RESOLVED = 0x00000004,
        STATE_STARTING = 0x00000008,
        STATE_STOPPING = 0x00000010,
        STATE_ACTIVE = 0x00000020
    };

    enum StartOptions : std::uint32_t {
        START_TRANSIENT = 0x00000001,
        START_ACTIVATION_POLICY = 0x00000002
    };

    enum StopOptions : std::uint32_t { STOP_TRANSIENT = 0x00000001 };

    /// An invalid bundle: all functions but the operators throw `std::invalid_argument` "invalid
    /// bundle".
    Bundle();
    Bundle(Bundle const&);
    Bundle(Bundle&&) noexcept;
    Bundle& operator=(Bundle const&);
    Bundle& operator=(Bundle&&) noexcept;
    Bundle& operator=(std::nullptr_t);
    virtual ~Bundle();

    bool operator==(Bundle const& rhs) const;

    bool operator!=(Bundle const& rhs) const { return !(*this == rhs); }

    bool operator<(Bundle const& rhs) const;

    /// Tells whether the bundle is valid.
    explicit operator bool() const { return core_ != nullptr; }

    State GetState() const;

    /// Returns the context of the bundle, an invalid one unless the bundle is starting or active.
    BundleContext GetBundleContext() const;

    /// Returns the number of the bundle: 0.
    long GetBundleId() const;
    std::string GetLocation() const;
    std::string GetSymbolicName() const;
    BundleVersion GetVersion() const;

    /// Returns the bundle headers, which LDAPFilter::Match() examines. They live as long as the
    /// framework.
    AnyMap const& GetHeaders() const;

    /// Returns references to the services that the bundle has registered.
    std::vector<ServiceReferenceU> GetRegisteredServices() const;

    /// Returns references to the services whose objects the bundle has got and not released.
    std::vector<ServiceReferenceU> GetServicesInUse() const;

    /// Returns when the framework was initialised.
    TimeStamp GetLastModified() const;

    /// Starts the framework, initialising it first if needed. Framework listeners see
    /// FRAMEWORK_STARTED.
    /// @param options Without effect on a framework.
    /// @throws std::runtime_error while the framework is stopping.
    void Start(std::uint32_t options);
    void Start();

    /// Starts to stop the framework and returns; Framework::WaitForStop() waits for the end.
    ///
    /// Bundle listeners see BUNDLE_STOPPING on another thread. Then the context becomes invalid,
    /// and services and listeners are dropped without further events.
    /// @param options Without effect on a framework.
    void Stop(std::uint32_t options);
    void Stop();

    /// @throws std::runtime_error always: a framework cannot be uninstalled.
    void Uninstall();

protected:
    explicit Bundle(std::shared_ptr<detail::FrameworkCore> core);
    detail::FrameworkCore& core() const;

private:
    friend class detail::FrameworkCore;

    std::shared_ptr<detail::FrameworkCore> core_;
    std::shared_ptr<detail::FrameworkOwner> owner_;
};

ORVI_PLATFORM_EXPORT std::ostream& operator<<(std::ostream& os, Bundle const& bundle);
ORVI_PLATFORM_EXPORT std::ostream& operator<<(std::ostream& os, Bundle const* bundle);
ORVI_PLATFORM_EXPORT std::ostream& operator<<(std::ostream& os, Bundle::State state);

} // namespace cppmicroservices

template <>
struct std::hash<cppmicroservices::Bundle> {
    std::size_t operator()(cppmicroservices::Bundle const& bundle) const {
        return std::hash<std::string>()(bundle.GetSymbolicName());
    }
};
