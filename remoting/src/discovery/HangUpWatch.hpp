#pragma once

#include "discovery/Housekept.hpp"

#include <functional>

namespace agent::orvi::remoting::details {

/// Waits for the end of a connection without reading from it.
///
/// Thread safety: thread-compatible.
class HangUpWatch {
public:
    class State;

    /// Watch nothing.
    HangUpWatch() noexcept;

    explicit HangUpWatch(Housekept<State> state) noexcept;

    /// When this returns, the callback is not running and does not run any more; it may be called
    /// from inside of the callback.
    ~HangUpWatch();

    HangUpWatch(HangUpWatch&&) noexcept;
    HangUpWatch& operator=(HangUpWatch&&) noexcept;

private:
    Housekept<State> state;
};

/// Call back once, on the housekeeping thread, when a connection is gone: when the peer has closed
/// or reset it, or will send no more, or when this side has shut it down. What the peer sent before
/// may still be unread.
///
/// The watch keeps a descriptor of its own until it calls back or is destroyed. As long as it does,
/// the connection does not end by closing the other descriptors; shut it down before.
///
/// @param descriptor a connected stream socket, local or TCP; it stays the caller's.
///
/// @throws std::system_error when it cannot be watched.
HangUpWatch watchHangUp(Housekeeper& housekeeper, int descriptor, std::function<void()> hungUp);

} // namespace agent::orvi::remoting::details
