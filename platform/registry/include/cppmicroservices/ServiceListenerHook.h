#pragma once

#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ShrinkableVector.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace cppmicroservices {

class BundleContext;

namespace detail {
class FrameworkCore;
struct ServiceListenerEntry;
} // namespace detail

/// A service that is told which service listeners come and go, and so learns which services are
/// wanted.
///
/// Register an implementation under this interface. It is called on the thread that adds or removes
/// the listener; opening and closing a ServiceTracker does both. What it throws becomes a
/// FRAMEWORK_WARNING. Implementations must be thread-safe.
struct ORVI_PLATFORM_EXPORT ServiceListenerHook {
    /// Describes a listener. A value; one of the same listener compares equal in Added() and
    /// Removed().
    struct ORVI_PLATFORM_EXPORT ListenerInfo {
        /// Describes nothing; only IsNull() may be asked.
        ListenerInfo();
        ListenerInfo(ListenerInfo const&);
        ListenerInfo& operator=(ListenerInfo const&);
        ~ListenerInfo();

        /// Tells whether this describes nothing.
        bool IsNull() const { return !entry_; }

        /// Returns the context to which the listener was added.
        BundleContext GetBundleContext() const;

        /// Returns the text of the listener's filter, empty if it has none.
        std::string GetFilter() const;

        /// Tells whether the listener has been removed, be it before Added() is called for it.
        bool IsRemoved() const;

        bool operator==(ListenerInfo const& other) const { return entry_ == other.entry_; }

    private:
        friend class detail::FrameworkCore;
        friend struct std::hash<ListenerInfo>;
        explicit ListenerInfo(std::shared_ptr<detail::ServiceListenerEntry> entry);
        std::shared_ptr<detail::ServiceListenerEntry> entry_;
    };

    virtual ~ServiceListenerHook();

    /// Called with all present listeners when the hook is registered, then with each new one.
    virtual void Added(std::vector<ListenerInfo> const& listeners) = 0;

    /// Called with listeners that were removed. Listeners dropped by stopping the framework are not
    /// reported.
    virtual void Removed(std::vector<ListenerInfo> const& listeners) = 0;
};

} // namespace cppmicroservices

template <>
struct std::hash<cppmicroservices::ServiceListenerHook::ListenerInfo> {
    std::size_t operator()(cppmicroservices::ServiceListenerHook::ListenerInfo const& info) const {
        return std::hash<std::shared_ptr<cppmicroservices::detail::ServiceListenerEntry>>()(
            info.entry_);
    }
};
