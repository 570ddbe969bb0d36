#pragma once

#include "payload/SlotArray.hpp"

#include <orvi/platform_export.hpp>

#include <cstddef>
#include <cstdint>
#include <utility>

namespace agent::orvi::core::detail {

/// A bit vector that needs no allocation for up to 64 flags.
class ORVI_PLATFORM_EXPORT FlagArray {
public:
    FlagArray() = default;
    FlagArray(const FlagArray&) = default;
    FlagArray& operator=(const FlagArray&) = default;
    ~FlagArray() = default;

    /// Take over the flags; `other` has none afterwards.
    FlagArray(FlagArray&& other) noexcept
        : words(std::move(other.words))
        , count(std::exchange(other.count, 0)) {}

    FlagArray& operator=(FlagArray&& other) noexcept {
        words = std::move(other.words);
        count = std::exchange(other.count, 0);
        return *this;
    }

    /// Make room as SlotArray::reserve does.
    void reserve(std::size_t flags) { words.reserve((flags + bitsPerWord - 1) / bitsPerWord); }

    /// Append a flag.
    void push_back(bool flag) {
        if (count % bitsPerWord == 0) {
            words.push_back(0);
        }
        if (flag) {
            words[count / bitsPerWord] |= mask(count);
        }
        ++count;
    }

    /// Return the flag at `index`.
    ///
    /// @throws std::out_of_range "invalid vector<bool> subscript" when there is none.
    bool at(std::size_t index) const {
        if (index >= count) {
            throwInvalidSubscript();
        }
        return (words[index / bitsPerWord] & mask(index)) != 0;
    }

    void clear() noexcept {
        words.clear();
        count = 0;
    }

private:
    static constexpr std::size_t bitsPerWord = 64;

    static std::uint64_t mask(std::size_t index) noexcept {
        return std::uint64_t{1} << (index % bitsPerWord);
    }

    [[noreturn]] static void throwInvalidSubscript();

    SlotArray<std::uint64_t, 1> words;
    std::size_t count = 0;
};

} // namespace agent::orvi::core::detail
