#pragma once

#include "discovery/Housekeeper.hpp"

#include <memory>
#include <utility>

namespace agent::orvi::remoting::details {

/// Call back, and drop what is thrown: whoever calls back has to go on.
template <class Callback, class... Arguments>
void callBack(const Callback& callback, Arguments&&... arguments) noexcept {
    try {
        callback(std::forward<Arguments>(arguments)...);
    } catch (...) {
    }
}

/// Owns an object whose handlers run on the housekeeping thread.
///
/// The handlers share the object. At the end it is closed on the housekeeping thread: none of its
/// handlers is running then, and it does nothing in later ones. When the end comes from inside one
/// of its own handlers, that one is the last to do anything.
///
/// @tparam State what is owned, with a `close()` that does not throw.
///
/// Thread safety: thread-compatible.
template <class State>
class Housekept {
public:
    /// Own nothing.
    Housekept() noexcept = default;

    Housekept(Housekeeper& housekeeper, std::shared_ptr<State> state) noexcept
        : housekeeper(&housekeeper)
        , state(std::move(state)) {}

    Housekept(Housekept&&) noexcept = default;

    Housekept& operator=(Housekept&& other) noexcept {
        Housekept previous(std::move(*this));
        housekeeper = other.housekeeper;
        state = std::move(other.state);
        return *this;
    }

    ~Housekept() {
        if (!state) {
            return;
        }
        if (housekeeper->isOfThisProcess()) {
            housekeeper->runAndWait([this] { state->close(); });
        } else {
            Housekeeper::leaveToParent(std::move(state));
        }
    }

    State* operator->() const noexcept { return state.get(); }

    State& operator*() const noexcept { return *state; }

    explicit operator bool() const noexcept { return state != nullptr; }

    /// Return the object, shared.
    const std::shared_ptr<State>& shared() const noexcept { return state; }

private:
    Housekeeper* housekeeper = nullptr;
    std::shared_ptr<State> state;
};

} // namespace agent::orvi::remoting::details
