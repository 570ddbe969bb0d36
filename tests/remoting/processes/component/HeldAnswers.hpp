#pragma once

/// Keeps everything that this process sends over sockets from leaving it, from one point on: what
/// has been done by then is done, and nobody can have heard of it.
///
/// Thread safety: thread-safe.
namespace agent::orvi::remoting::test::heldAnswers {

/// Hold whatever is sent next, and all that follows.
void hold() noexcept;

/// Wait until something is held.
void awaitHeld() noexcept;

/// Let go, and hold nothing any more.
void release() noexcept;

} // namespace agent::orvi::remoting::test::heldAnswers
