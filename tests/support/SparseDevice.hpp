#pragma once

#include "streambuf/StreamBuffer.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ios>
#include <memory>
#include <string>
#include <vector>

namespace agent::orvi::streambuf::test {

/// The character that a sparse device holds at `position`. The period is a prime, so that a
/// position that has lost its upper half shows.
inline char sparseCharacter(std::uint64_t position) {
    constexpr std::uint64_t period = 65521;
    return static_cast<char>((position % period) * 2654435761U >> 13);
}

/// Fill `count` characters at `destination` with what a sparse device holds from `position` on.
inline void fillSparse(char* destination, std::size_t count, std::uint64_t position) {
    constexpr std::size_t period = 65521;
    const std::size_t head = std::min(count, period);
    for (std::size_t index = 0; index < head; ++index) {
        destination[index] = sparseCharacter(position + index);
    }
    for (std::size_t done = head; done < count; done += period) {
        std::memcpy(destination + done, destination, std::min(period, count - done));
    }
}

/// Return `count` characters of a sparse device from `position` on.
inline std::string sparseCharacters(std::uint64_t position, std::size_t count) {
    std::string result(count, '\0');
    fillSparse(result.data(), count, position);
    return result;
}

/// A device of any length that stores nothing: its characters follow from their positions.
///
/// Input and output share one position. A write is not kept; it is remembered whether it held what
/// the device has there anyway. The operations share the state and may outlive the device object.
/// Single-thread.
class SparseDevice {
public:
    /// One write, by where it went.
    struct Written {
        std::int64_t position;
        std::int64_t length;
        bool asExpected; ///< The characters were those that belong there.

        friend bool operator==(const Written&, const Written&) = default;
    };

    explicit SparseDevice(std::int64_t size) { state->size = size; }

    ReadFunction read() const {
        return [state = state](std::int64_t count) {
            const std::int64_t left = std::max<std::int64_t>(state->size - state->position, 0);
            const auto got = static_cast<std::size_t>(std::clamp<std::int64_t>(count, 0, left));
            const auto position = static_cast<std::uint64_t>(state->position);
            state->position += static_cast<std::int64_t>(got);
            return sparseCharacters(position, got);
        };
    }

    WriteFunction write() const {
        return [state = state](const std::string& data) {
            const auto length = static_cast<std::int64_t>(data.size());
            bool asExpected = true;
            std::string expected;
            for (std::size_t done = 0; done < data.size(); done += expected.size()) {
                constexpr std::size_t step = 1 << 20;
                expected = sparseCharacters(
                    static_cast<std::uint64_t>(state->position) + done,
                    std::min(step, data.size() - done));
                asExpected = asExpected &&
                             std::memcmp(expected.data(), data.data() + done, expected.size()) == 0;
            }
            state->written.push_back({state->position, length, asExpected});
            state->position += length;
            state->size = std::max(state->size, state->position);
            return length;
        };
    }

    SeekOffFunction seekoff() const {
        return [state = state](std::int64_t offset, int direction, int) {
            if (direction == static_cast<int>(std::ios_base::end)) {
                offset += state->size;
            } else if (direction == static_cast<int>(std::ios_base::cur)) {
                offset += state->position;
            }
            return state->moveTo(offset);
        };
    }

    SeekPosFunction seekpos() const {
        return [state = state](std::streampos position, int) { return state->moveTo(position); };
    }

    std::int64_t size() const { return state->size; }

    const std::vector<Written>& written() const { return state->written; }

private:
    struct State {
        std::int64_t size = 0;
        std::int64_t position = 0;
        std::vector<Written> written;

        std::streampos moveTo(std::streamoff target) {
            if (target < 0 || target > size) {
                return std::streamoff(-1);
            }
            position = target;
            return target;
        }
    };

    std::shared_ptr<State> state = std::make_shared<State>();
};

} // namespace agent::orvi::streambuf::test
