#pragma once

#include "MemoryDevice.hpp"

#include <cstddef>

namespace agent::orvi::bench {

/// Hands out the source piece by piece, round and round. Thread safety: single-thread.
class ServedBytes {
public:
    /// Return the next `count` bytes, which lie side by side.
    const char* next(std::size_t count) {
        if (count > source().size() - position) {
            position = 0;
        }
        const char* const begin = source().data() + position;
        position += count;
        return begin;
    }

    void restart() noexcept { position = 0; }

private:
    std::size_t position = 0;
};

} // namespace agent::orvi::bench
