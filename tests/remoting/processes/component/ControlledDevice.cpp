#include "remoting/processes/component/ControlledDevice.hpp"

#include "remoting/processes/component/HeldAnswers.hpp"

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <utility>

namespace agent::orvi::remoting::test {

namespace {

const std::map<std::string, Operation> operationNames = {
    {"read", Operation::read},
    {"write", Operation::write},
    {"seekoff", Operation::seekoff},
    {"seekpos", Operation::seekpos}};

std::string nameOf(Operation operation) {
    return std::find_if(
               operationNames.begin(), operationNames.end(),
               [&](const auto& entry) { return entry.second == operation; })
        ->first;
}

} // namespace

Operation operationOf(const std::string& name) {
    const auto found = operationNames.find(name);
    if (found == operationNames.end()) {
        throw std::invalid_argument("there is no operation \"" + name + "\"");
    }
    return found->second;
}

struct ControlledDevice::State {
    mutable std::mutex mutex;
    std::condition_variable changed;
    std::string calls;
    std::size_t inside = 0;
    std::size_t overlap = 0;
    std::optional<std::pair<Operation, Point>> stop;
    bool stopped = false;

    void wait(std::unique_lock<std::mutex>& lock) {
        stopped = true;
        changed.notify_all();
        changed.wait(lock, [this] { return !stopped; });
    }

    std::optional<Point> enter(Operation operation, std::int64_t argument) {
        std::unique_lock lock(mutex);
        calls +=
            (calls.empty() ? "" : " ") + nameOf(operation) + "(" + std::to_string(argument) + ")";
        overlap = std::max(overlap, ++inside);
        std::optional<Point> point;
        if (stop && stop->first == operation) {
            point = stop->second;
            stop.reset();
        }
        if (point == Point::entry) {
            wait(lock);
        }
        return point;
    }

    void leave(std::optional<Point> point) {
        std::unique_lock lock(mutex);
        if (point == Point::exit) {
            wait(lock);
        } else if (point == Point::answer) {
            heldAnswers::hold();
        }
        --inside;
    }

    template <class Action>
    auto run(Operation operation, std::int64_t argument, const Action& action) {
        const std::optional<Point> point = enter(operation, argument);

        struct Leaving {
            State& state;
            std::optional<Point> point;

            ~Leaving() { state.leave(point); }
        };

        const Leaving leaving{*this, point};
        if (point == Point::error) {
            throw std::runtime_error("the device fails");
        }
        return action();
    }
};

ControlledDevice::ControlledDevice(Operations device)
    : state(std::make_shared<State>())
    , device(std::move(device)) {}

Operations ControlledDevice::operations() const {
    Operations watched;
    if (device.read) {
        watched.read = [state = state, read = device.read](std::int64_t count) {
            return state->run(Operation::read, count, [&] { return read(count); });
        };
    }
    if (device.write) {
        watched.write = [state = state, write = device.write](const std::string& data) {
            return state->run(Operation::write, static_cast<std::int64_t>(data.size()), [&] {
                return write(data);
            });
        };
    }
    if (device.seekoff) {
        watched.seekoff = [state = state,
                           seekoff = device.seekoff](std::int64_t offset, int direction, int mode) {
            return state->run(
                Operation::seekoff, offset, [&] { return seekoff(offset, direction, mode); });
        };
    }
    if (device.seekpos) {
        watched.seekpos = [state = state,
                           seekpos = device.seekpos](std::streampos position, int mode) {
            return state->run(Operation::seekpos, std::streamoff(position), [&] {
                return seekpos(position, mode);
            });
        };
    }
    return watched;
}

void ControlledDevice::stopNext(Operation operation, Point point) {
    const std::lock_guard lock(state->mutex);
    state->stop.emplace(operation, point);
}

void ControlledDevice::awaitStopped() {
    std::unique_lock lock(state->mutex);
    state->changed.wait(lock, [this] { return state->stopped; });
}

void ControlledDevice::release() {
    const std::lock_guard lock(state->mutex);
    state->stop.reset();
    state->stopped = false;
    state->changed.notify_all();
}

std::string ControlledDevice::calls() const {
    const std::lock_guard lock(state->mutex);
    return state->calls;
}

std::size_t ControlledDevice::overlap() const {
    const std::lock_guard lock(state->mutex);
    return state->overlap;
}

} // namespace agent::orvi::remoting::test
