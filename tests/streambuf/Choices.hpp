#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>

namespace agent::orvi::streambuf::test {

/// Where a test that tries this and that takes its decisions from.
class Choices {
public:
    /// Return any number.
    virtual std::uint64_t number() = 0;

    /// Return a number from 0 to `limit` - 1.
    virtual std::size_t below(std::size_t limit) {
        return static_cast<std::size_t>(number() % limit);
    }

    virtual ~Choices() = default;

    bool oneIn(std::size_t count) { return below(count) == 0; }

    template <class Value, std::size_t size>
    Value oneOf(const Value (&values)[size]) {
        return values[below(size)];
    }

    std::string text(std::size_t length) {
        std::string result(length, '\0');
        for (char& character : result) {
            character = oneOf({'a', 'b', 'c', '0', '\xff', '\0', '\n', '\x7f'});
        }
        return result;
    }
};

/// Choices that depend on a seed alone.
class RandomChoices final : public Choices {
public:
    explicit RandomChoices(std::uint64_t seed)
        : engine(seed) {}

    std::uint64_t number() override { return engine(); }

private:
    std::mt19937_64 engine;
};

} // namespace agent::orvi::streambuf::test
