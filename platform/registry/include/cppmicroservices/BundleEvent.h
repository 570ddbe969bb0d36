#pragma once

#include <orvi/platform_export.hpp>

#include <cstdint>
#include <memory>
#include <ostream>

namespace cppmicroservices {

class Bundle;

/// Tells a bundle listener what happened to a bundle. An immutable value.
class ORVI_PLATFORM_EXPORT BundleEvent {
public:
    enum Type : std::uint32_t {
        BUNDLE_INSTALLED = 0x00000001,
        BUNDLE_STARTED = 0x00000002,
        BUNDLE_STOPPED = 0x00000004,
        BUNDLE_UPDATED = 0x00000008,
        BUNDLE_UNINSTALLED = 0x00000010,
        BUNDLE_RESOLVED = 0x00000020,
        BUNDLE_UNRESOLVED = 0x00000040,
        BUNDLE_STARTING = 0x00000080,
        /// The framework begins to stop; its services and its context can still be used.
        BUNDLE_STOPPING = 0x00000100,
        BUNDLE_LAZY_ACTIVATION = 0x00000200
    };

    /// An invalid event.
    BundleEvent() = default;

    /// @throws std::invalid_argument "invalid bundle" or "invalid origin" if the bundle is invalid.
    BundleEvent(Type type, Bundle const& bundle);
    BundleEvent(Type type, Bundle const& bundle, Bundle const& origin);

    /// Tells whether the event is valid.
    explicit operator bool() const { return data_ != nullptr; }

    /// Returns the bundle, an invalid one if the event is.
    Bundle GetBundle() const;

    /// Returns what happened, BUNDLE_UNINSTALLED if the event is invalid.
    Type GetType() const;

    /// Returns the bundle that caused the event, an invalid one if the event is.
    Bundle GetOrigin() const;

    bool operator==(BundleEvent const& other) const;

private:
    struct Data;
    std::shared_ptr<Data const> data_;
};

ORVI_PLATFORM_EXPORT std::ostream& operator<<(std::ostream& os, BundleEvent::Type eventType);
ORVI_PLATFORM_EXPORT std::ostream& operator<<(std::ostream& os, BundleEvent const& event);

} // namespace cppmicroservices
