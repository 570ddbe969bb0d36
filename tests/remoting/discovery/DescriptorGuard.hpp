#pragma once

#include "remoting/discovery/Waiting.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>

namespace agent::orvi::remoting::test {

/// Count this process's open descriptors.
inline std::ptrdiff_t openDescriptors() {
    return std::distance(
        std::filesystem::directory_iterator("/proc/self/fd"),
        std::filesystem::directory_iterator());
}

/// Fails a test that leaves descriptors open. The first member of a fixture, so that it looks when
/// everything else has gone.
class DescriptorGuard {
public:
    DescriptorGuard() = default;

    ~DescriptorGuard() {
        // Resolving threads that nobody waits for any more may still have some.
        EXPECT_TRUE(eventually([&] { return openDescriptors() <= before; }))
            << openDescriptors() - before << " descriptors are still open";
    }

    DescriptorGuard(const DescriptorGuard&) = delete;
    DescriptorGuard& operator=(const DescriptorGuard&) = delete;

private:
    const std::ptrdiff_t before = openDescriptors();
};

} // namespace agent::orvi::remoting::test
