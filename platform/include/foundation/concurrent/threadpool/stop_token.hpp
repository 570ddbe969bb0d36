#pragma once

namespace foundation::concurrent::threadpool {

/// Tells a running method that nobody waits for it any more.
///
/// Every method receives one. The platform has nothing that stops a method yet, so the token of a
/// call is always the default one, which is never stopped.
///
/// Thread safety: thread-safe.
class stop_token {
public:
    /// Say whether the method should give up. Never blocks.
    bool stop_requested() const noexcept { return false; }
};

} // namespace foundation::concurrent::threadpool
