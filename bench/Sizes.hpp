#pragma once

#include <array>
#include <cstddef>
#include <string>

namespace agent::orvi::bench {

/// The sizes of buffers, in bytes, over which a table shows one call.
constexpr std::array<std::size_t, 12> sweptSizes = [] {
    std::array<std::size_t, 12> sizes{};
    std::size_t size = 512;
    for (std::size_t& each : sizes) {
        each = size;
        size *= 2;
    }
    return sizes;
}();

static_assert(sweptSizes.back() == 1 << 20);

/// Return how rows write a size: "512B", "4KiB", "1MiB".
inline std::string nameOf(std::size_t size) {
    if (size % (1 << 20) == 0) {
        return std::to_string(size >> 20) + "MiB";
    }
    return size % (1 << 10) == 0 ? std::to_string(size >> 10) + "KiB" : std::to_string(size) + "B";
}

} // namespace agent::orvi::bench
