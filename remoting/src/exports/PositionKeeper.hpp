#pragma once

#include <orvi/core/Invokable.hpp>

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>

namespace agent::orvi::remoting::details {

/// Gives each client of a device that can seek a position of its own, although the device has only
/// one: the position that another client has moved is put back.
///
/// Used by one call at a time, except for `forget`.
class PositionKeeper {
public:
    /// Numbers a client, from 1 on.
    using Client = std::uint64_t;

    explicit PositionKeeper(core::Invokable& device);

    /// Put the device where the client left it; a new one starts where the device was before the
    /// first one came.
    ///
    /// @throws std::runtime_error when the device does not move there, or does not say where the
    ///         client before has left it. Each client's position is kept, and one may try again.
    void prepareFor(Client client);

    /// The client is gone. Thread-safe.
    void forget(Client client) noexcept;

private:
    /// Of the input and of the output side; nothing for a side that the device does not have, and
    /// for one that did not say where it was when the first client came.
    struct Positions {
        std::optional<std::int64_t> input;
        std::optional<std::int64_t> output;
    };

    Positions current() const;
    void moveTo(const Positions& target);

    core::Invokable& device;
    const bool hasInput;
    const bool hasOutput;
    const bool canSeek;

    std::mutex mutex;
    Client last = 0; // that used the device
    std::optional<Positions> origin;
    std::map<Client, Positions> positions;
};

} // namespace agent::orvi::remoting::details
