#pragma once

#include <orvi/platform_export.hpp>

#include <cstdint>
#include <utility>

namespace cppmicroservices {

namespace detail {
class FrameworkCore;
} // namespace detail

using ListenerTokenId = std::uint64_t;

/// Names a listener so that BundleContext::RemoveListener() can remove it. Movable only; destroying
/// it removes nothing.
class ORVI_PLATFORM_EXPORT ListenerToken {
public:
    /// Names no listener.
    ListenerToken() = default;
    ListenerToken(ListenerToken const&) = delete;
    ListenerToken& operator=(ListenerToken const&) = delete;

    ListenerToken(ListenerToken&& other) noexcept
        : id_(std::exchange(other.id_, 0)) {}

    ListenerToken& operator=(ListenerToken&& other) noexcept {
        id_ = std::exchange(other.id_, 0);
        return *this;
    }

    ~ListenerToken() = default;

    /// Tells whether the token names a listener.
    explicit operator bool() const { return id_ != 0; }

private:
    friend class BundleContext;

    explicit ListenerToken(ListenerTokenId id)
        : id_(id) {}

    ListenerTokenId id_ = 0;
};

} // namespace cppmicroservices
