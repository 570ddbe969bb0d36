#pragma once

#include "support/StreamBuffers.hpp"

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace agent::orvi::remoting::test {

/// Return a device whose input is its output: a read waits until something has been written.
///
/// Its operations may be called from several threads at once.
inline streambuf::test::Operations duplexDevice() {
    struct Pipe {
        std::mutex mutex;
        std::condition_variable filled;
        std::string bytes;
    };

    const auto pipe = std::make_shared<Pipe>();
    return {
        [pipe](std::int64_t count) {
            std::unique_lock lock(pipe->mutex);
            pipe->filled.wait(lock, [&] { return !pipe->bytes.empty(); });
            std::string result = pipe->bytes.substr(0, static_cast<std::size_t>(count));
            pipe->bytes.erase(0, result.size());
            return result;
        },
        [pipe](const std::string& data) {
            const std::lock_guard lock(pipe->mutex);
            pipe->bytes += data;
            pipe->filled.notify_all();
            return static_cast<std::int64_t>(data.size());
        },
        {},
        {},
        {}};
}

} // namespace agent::orvi::remoting::test
