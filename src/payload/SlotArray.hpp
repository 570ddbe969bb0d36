#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace agent::orvi::core::detail {

/// A vector whose first elements live in the object itself, so that a short one needs no
/// allocation and moves in a few instructions.
///
/// Thread safety: single-thread.
template <class Element, std::size_t inPlace>
class SlotArray {
public:
    SlotArray() = default;
    ~SlotArray() = default;

    SlotArray(const SlotArray& other)
        : first(other.first)
        , rest(other.rest ? std::make_unique<std::vector<Element>>(*other.rest) : nullptr)
        , count(other.count) {}

    SlotArray& operator=(const SlotArray& other) { return *this = SlotArray(other); }

    /// Take over the elements; `other` has none afterwards.
    SlotArray(SlotArray&& other) noexcept
        : first(std::move(other.first))
        , rest(std::move(other.rest))
        , count(std::exchange(other.count, 0)) {}

    SlotArray& operator=(SlotArray&& other) noexcept {
        first = std::move(other.first);
        rest = std::move(other.rest);
        count = std::exchange(other.count, 0);
        return *this;
    }

    std::size_t size() const noexcept { return count; }

    /// Return the element at an index below the size.
    Element& operator[](std::size_t index) noexcept {
        return index < inPlace ? first[index] : (*rest)[index - inPlace];
    }

    const Element& operator[](std::size_t index) const noexcept {
        return index < inPlace ? first[index] : (*rest)[index - inPlace];
    }

    /// Make room, so that elements up to this count can be appended without an allocation. Nothing
    /// has changed when it throws.
    void reserve(std::size_t elements) {
        if (elements <= inPlace) {
            return;
        }
        if (!rest) {
            rest = std::make_unique<std::vector<Element>>();
        }
        if (elements - inPlace > rest->capacity()) {
            rest->reserve(std::max(elements - inPlace, 2 * rest->capacity()));
        }
    }

    /// Append an element. Nothing has changed when it throws.
    void push_back(Element element) {
        if (count < inPlace) {
            first[count] = std::move(element);
        } else {
            if (!rest) {
                rest = std::make_unique<std::vector<Element>>();
            }
            rest->push_back(std::move(element));
        }
        ++count;
    }

    void clear() noexcept { *this = SlotArray(); }

private:
    std::array<Element, inPlace> first{};
    std::unique_ptr<std::vector<Element>> rest; // rarely there, so that a move is short
    std::size_t count = 0;
};

} // namespace agent::orvi::core::detail
