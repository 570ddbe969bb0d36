#pragma once

#include <cstddef>
#include <vector>

namespace cppmicroservices {

namespace detail {
class FrameworkCore;
} // namespace detail

/// A view of a vector from which elements can be removed but not added. Single-thread.
template <class E>
class ShrinkableVector {
public:
    using container_type = std::vector<E>;
    using iterator = typename container_type::iterator;
    using const_iterator = typename container_type::const_iterator;
    using size_type = typename container_type::size_type;
    using reference = typename container_type::reference;
    using const_reference = typename container_type::const_reference;
    using value_type = typename container_type::value_type;

    /// A view of nothing.
    ShrinkableVector()
        : elements_(nothing()) {}

    iterator begin() { return elements_.begin(); }

    const_iterator begin() const { return elements_.begin(); }

    iterator end() { return elements_.end(); }

    const_iterator end() const { return elements_.end(); }

    reference front() { return elements_.front(); }

    const_reference front() const { return elements_.front(); }

    reference back() { return elements_.back(); }

    const_reference back() const { return elements_.back(); }

    iterator erase(iterator pos) { return elements_.erase(pos); }

    iterator erase(iterator first, iterator last) { return elements_.erase(first, last); }

    void pop_back() { elements_.pop_back(); }

    bool empty() const { return elements_.empty(); }

    void clear() { elements_.clear(); }

    size_type size() const { return elements_.size(); }

    reference at(size_type pos) { return elements_.at(pos); }

    const_reference at(size_type pos) const { return elements_.at(pos); }

private:
    friend class detail::FrameworkCore;

    explicit ShrinkableVector(container_type& elements)
        : elements_(elements) {}

    static container_type& nothing() {
        static container_type elements;
        return elements;
    }

    container_type& elements_;
};

} // namespace cppmicroservices
