#pragma once

#include <cstddef>
#include <stdexcept>
#include <string_view>

namespace agent::orvi::bench {

enum class Direction { read, write };

/// What one call moves.
struct Transfer {
    Direction direction = Direction::read;
    std::size_t size = 0;
};

/// A way over which one call after another moves the same number of bytes, from or to memory.
///
/// Thread safety: single-thread.
class Exchange {
public:
    /// Make one call and wait for its answer.
    ///
    /// @throws std::runtime_error when it did not move all bytes; whatever the connection throws.
    virtual void call() = 0;

    /// Return the bytes that the last read brought, from a run of `source()`.
    virtual std::string_view received() const = 0;

    /// Return how many calls have reached the other end since this was asked last; where a call
    /// cannot but be one message, `calls`, which is how many were made.
    virtual std::size_t arrived(std::size_t calls) { return calls; }

    virtual ~Exchange() = default;
};

/// Throw unless all bytes have been moved.
inline void expectAll(bool all) {
    if (!all) {
        throw std::runtime_error("A call has not moved all bytes.");
    }
}

} // namespace agent::orvi::bench
