#include "exports/PositionKeeper.hpp"

#include <payload/PayloadAdapters.hpp>

#include <future>
#include <memory>
#include <stdexcept>
#include <utility>

namespace agent::orvi::remoting::details {
namespace {

// The codes in which seek arguments travel.
constexpr int fromCurrent = 0;
constexpr int fromBeginning = 1;
constexpr int inputSide = 1;
constexpr int outputSide = 2;

std::int64_t seek(core::Invokable& device, std::int64_t offset, int direction, int side) {
    auto promise = std::make_shared<std::promise<std::int64_t>>();
    std::future<std::int64_t> position = promise->get_future();
    device.invoke(
        std::nullopt, "seekoff", core::promiseCompletingHandler<std::int64_t>(std::move(promise)),
        core::GenericPayload::fromValues(offset, direction, side), false);
    return position.get();
}

/// @return nothing when the device does not say.
std::optional<std::int64_t> positionOf(core::Invokable& device, int side) {
    const std::int64_t position = seek(device, 0, fromCurrent, side);
    return position < 0 ? std::nullopt : std::optional(position);
}

/// Ignore the position of a side that is not kept.
void keepSide(std::optional<std::int64_t>& now, const std::optional<std::int64_t>& origin) {
    if (!origin) {
        now.reset();
    } else if (!now) {
        throw std::runtime_error("The device does not say where the client before has left it.");
    }
}

void moveSide(core::Invokable& device, const std::optional<std::int64_t>& position, int side) {
    if (position && seek(device, *position, fromBeginning, side) != *position) {
        throw std::runtime_error("The device does not go back to where this client left it.");
    }
}

} // namespace

PositionKeeper::PositionKeeper(core::Invokable& device)
    : device(device)
    , hasInput(device.hasMethod("read"))
    , hasOutput(device.hasMethod("write"))
    , canSeek(device.hasMethod("seekoff")) {}

void PositionKeeper::prepareFor(Client client) {
    if (!canSeek) {
        return;
    }
    {
        const std::lock_guard lock(mutex);
        if (last == client) {
            return;
        }
    }
    Positions now = current();
    Positions target;
    {
        const std::lock_guard lock(mutex);
        if (!origin) {
            origin = now;
        }
        if (const auto left = positions.find(last); left != positions.end()) {
            keepSide(now.input, origin->input);
            keepSide(now.output, origin->output);
            left->second = now;
        }
        target = positions.try_emplace(client, *origin).first->second;
        last = 0; // the device may stop half way
    }
    moveTo(target);
    const std::lock_guard lock(mutex);
    last = client;
}

void PositionKeeper::forget(Client client) noexcept {
    const std::lock_guard lock(mutex);
    positions.erase(client);
    if (last == client) {
        last = 0;
    }
}

/// Return where the device is, as far as it says.
PositionKeeper::Positions PositionKeeper::current() const {
    Positions now;
    if (hasInput) {
        now.input = positionOf(device, inputSide);
    }
    if (hasOutput) {
        now.output = positionOf(device, outputSide);
    }
    return now;
}

void PositionKeeper::moveTo(const Positions& target) {
    moveSide(device, target.input, inputSide);
    moveSide(device, target.output, outputSide);
}

} // namespace agent::orvi::remoting::details
