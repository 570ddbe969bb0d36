#pragma once

#include <unistd.h>

#include <utility>

namespace agent::orvi::remoting::details {

/// Owns a file descriptor and closes it at the end.
///
/// Thread safety: thread-compatible.
class Descriptor {
public:
    /// Own nothing.
    Descriptor() noexcept = default;

    /// Own this descriptor; nothing when it is negative.
    explicit Descriptor(int descriptor) noexcept
        : descriptor(descriptor) {}

    Descriptor(Descriptor&& other) noexcept
        : descriptor(other.release()) {}

    Descriptor& operator=(Descriptor&& other) noexcept {
        Descriptor previous(std::exchange(descriptor, other.release()));
        return *this;
    }

    ~Descriptor() {
        if (descriptor >= 0) {
            ::close(descriptor);
        }
    }

    /// Return the descriptor, negative when there is none.
    int get() const noexcept { return descriptor; }

    /// Give the descriptor away, unclosed.
    int release() noexcept { return std::exchange(descriptor, -1); }

    /// Say whether there is a descriptor.
    explicit operator bool() const noexcept { return descriptor >= 0; }

private:
    int descriptor = -1;
};

} // namespace agent::orvi::remoting::details
