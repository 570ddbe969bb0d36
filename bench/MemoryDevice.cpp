#include "MemoryDevice.hpp"

#include <algorithm>
#include <cstring>
#include <ios>
#include <random>

namespace agent::orvi::bench {
namespace {

std::string makeSource() {
    const std::string text =
        "The quick brown fox jumps over the lazy dog while five boxing wizards watch, and nobody "
        "at all minds.";
    std::string bytes;
    bytes.reserve(sourceSize + text.size() + 1);
    std::mt19937 random(1);
    while (bytes.size() < sourceSize) {
        bytes.append(text, 0, random() % text.size()).push_back('\n');
    }
    bytes.resize(sourceSize);
    return bytes;
}

} // namespace

const std::string& source() {
    static const std::string bytes = makeSource();
    return bytes;
}

struct MemoryDevice::State {
    std::string bytes = source();
    std::size_t position = 0;

    std::size_t available(std::size_t count) const {
        return std::min(count, bytes.size() - position);
    }

    std::streampos moveTo(std::int64_t target) {
        if (target < 0 || target > static_cast<std::int64_t>(bytes.size())) {
            return std::streamoff(-1);
        }
        position = static_cast<std::size_t>(target);
        return target;
    }
};

MemoryDevice::MemoryDevice()
    : state(std::make_shared<State>()) {}

streambuf::ReadFunction MemoryDevice::read() const {
    return [state = state](std::int64_t count) {
        const char* begin = state->bytes.data() + state->position;
        const std::size_t taken = state->available(static_cast<std::size_t>(count));
        state->position += taken;
        return std::string(begin, taken);
    };
}

streambuf::WriteFunction MemoryDevice::write() const {
    return [state = state](const std::string& data) {
        const std::size_t taken = state->available(data.size());
        std::memcpy(state->bytes.data() + state->position, data.data(), taken);
        state->position += taken;
        return static_cast<std::int64_t>(taken);
    };
}

streambuf::SeekOffFunction MemoryDevice::seekoff() const {
    return [state = state](std::int64_t offset, int direction, int) {
        if (direction == static_cast<int>(std::ios_base::cur)) {
            offset += static_cast<std::int64_t>(state->position);
        } else if (direction == static_cast<int>(std::ios_base::end)) {
            offset += static_cast<std::int64_t>(state->bytes.size());
        }
        return state->moveTo(offset);
    };
}

streambuf::SeekPosFunction MemoryDevice::seekpos() const {
    return [state = state](std::streampos position, int) { return state->moveTo(position); };
}

} // namespace agent::orvi::bench
