#pragma once

#include "streambuf/StreamBuffer.hpp"
#include "support/Registry.hpp"

#include <boost/uuid/uuid.hpp>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace agent::orvi::remoting::test {

/// A published device whose reads wait until they are let go; they answer with as many "x" as were
/// asked for.
///
/// Thread safety: thread-safe.
class GatedDevice {
public:
    GatedDevice()
        : uuid(streambuf::test::newUuid())
        , buffer(streambuf::makeDevice(
              uuid, [state = state](std::int64_t count) { return state->read(count); }, {}, {}, {},
              1)) {}

    /// A reader must not wait for somebody who has gone.
    ~GatedDevice() { open(); }

    GatedDevice(const GatedDevice&) = delete;
    GatedDevice& operator=(const GatedDevice&) = delete;

    /// Let all reads go, now and later.
    void open() {
        const std::lock_guard lock(state->mutex);
        state->isOpen = true;
        state->changed.notify_all();
    }

    /// Wait until so many reads wait.
    void awaitReaders(std::size_t count) {
        std::unique_lock lock(state->mutex);
        state->changed.wait(lock, [&] { return state->readers >= count; });
    }

    std::size_t readers() const {
        const std::lock_guard lock(state->mutex);
        return state->readers;
    }

    const boost::uuids::uuid uuid;

private:
    struct State {
        std::string read(std::int64_t count) {
            std::unique_lock lock(mutex);
            ++readers;
            changed.notify_all();
            changed.wait(lock, [this] { return isOpen; });
            --readers;
            return std::string(static_cast<std::size_t>(count), 'x');
        }

        std::mutex mutex;
        std::condition_variable changed;
        std::size_t readers = 0;
        bool isOpen = false;
    };

    std::shared_ptr<State> state = std::make_shared<State>();
    streambuf::StreamBuffer buffer;
};

} // namespace agent::orvi::remoting::test
