#pragma once

#include <orvi/core/Invokable.hpp>
#include <orvi/platform_export.hpp>

#include <memory>

namespace agent::orvi::core {

/// A service object that tells its clients apart, if each asks for a connection of its own. An
/// `Invokable` may be one as well; ask with `dynamic_cast`.
///
/// Thread safety: thread-safe.
class ORVI_PLATFORM_EXPORT Connectable {
public:
    /// Return the same service for one client: calls over this object come from that client. The
    /// connection ends when the object is released. Does not block.
    virtual std::shared_ptr<Invokable> connect() = 0;

    virtual ~Connectable();
};

} // namespace agent::orvi::core
