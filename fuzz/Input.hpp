#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace agent::orvi::fuzz {

/// Reads an input as a row of choices. Beyond its end, all are the first one: zero, or nothing.
///
/// Thread safety: single-thread.
class Input {
public:
    Input(const std::uint8_t* bytes, std::size_t size)
        : remaining(reinterpret_cast<const char*>(bytes), size) {}

    bool empty() const noexcept { return remaining.empty(); }

    std::uint8_t byte() {
        if (remaining.empty()) {
            return 0;
        }
        const auto first = static_cast<std::uint8_t>(remaining.front());
        remaining.remove_prefix(1);
        return first;
    }

    /// Return a number from 0 to `limit` - 1.
    std::size_t below(std::size_t limit) {
        std::size_t number = byte();
        for (std::size_t most = 256; most < limit; most *= 256) {
            number = number * 256 + byte();
        }
        return number % limit;
    }

    bool oneIn(std::size_t count) { return below(count) == count - 1; }

    template <class Value, std::size_t size>
    Value oneOf(const Value (&values)[size]) {
        return values[below(size)];
    }

    /// Return any number; those where mistakes hide come often.
    std::uint64_t number() {
        const std::uint8_t form = byte();
        switch (form >> 6U) {
        case 0:
            return form & 63U;
        case 1:
            return (form & 63U) * 256U + byte();
        case 2: {
            const unsigned bit = form & 63U;
            return (std::uint64_t{1} << bit) + byte() - 2;
        }
        default: {
            std::uint64_t number = 0;
            for (int count = 0; count < 8; ++count) {
                number = number * 256 + byte();
            }
            return number;
        }
        }
    }

    std::int64_t signedNumber() { return static_cast<std::int64_t>(number()); }

    /// Return the next `count` bytes, fewer at the end.
    std::string_view take(std::size_t count) {
        const std::string_view taken = remaining.substr(0, count);
        remaining.remove_prefix(taken.size());
        return taken;
    }

    std::string_view rest() { return take(remaining.size()); }

    /// Return a text of `limit` - 1 bytes at most.
    std::string text(std::size_t limit) { return std::string(take(below(limit))); }

private:
    std::string_view remaining;
};

} // namespace agent::orvi::fuzz
