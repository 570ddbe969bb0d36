#pragma once

namespace agent::orvi::core::detail {

/// Notices the moment in the end of the process from which on a registry cannot be used.
///
/// A registry may keep static objects of its own, which it makes when it sends its first service
/// event. What is older than they are, such as an object made before `main`, is destroyed after
/// them.
class ProcessEnd {
public:
    /// Notice it from now on; call this once the registry has sent an event. Thread-safe.
    static void watch();

    /// Say whether what was made before the first call of `watch` is being destroyed. Thread-safe.
    static bool hasBegun() noexcept;
};

} // namespace agent::orvi::core::detail
