#include "CountingDevice.hpp"

#include "ServedBytes.hpp"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace agent::orvi::bench {
namespace {

struct State {
    const Callers callers;
    std::mutex mutex;
    ServedBytes bytes;
    std::int64_t calls = 0;

    explicit State(Callers callers)
        : callers(callers) {}

    /// A device that is called one call at a time pays for no lock.
    std::unique_lock<std::mutex> enter() {
        return callers == Callers::several ? std::unique_lock(mutex)
                                           : std::unique_lock<std::mutex>();
    }
};

} // namespace

streambuf::StreamBuffer
publishCountingDevice(const boost::uuids::uuid& uuid, std::size_t bufferSize, Callers callers) {
    const auto state = std::make_shared<State>(callers);
    return streambuf::makeDevice(
        uuid,
        [state](std::int64_t count) {
            const auto inside = state->enter();
            ++state->calls;
            const auto size = static_cast<std::size_t>(count);
            return std::string(state->bytes.next(size), size);
        },
        [state](const std::string& data) {
            const auto inside = state->enter();
            ++state->calls;
            return static_cast<std::int64_t>(data.size());
        },
        [state](std::int64_t, int, int) -> std::streampos {
            const auto inside = state->enter();
            return state->calls;
        },
        [state](std::streampos position, int) {
            const auto inside = state->enter();
            state->bytes.restart();
            return position;
        },
        bufferSize);
}

} // namespace agent::orvi::bench
