#pragma once

#include <cstddef>
#include <map>
#include <utility>

namespace cppmicroservices {

namespace detail {
class FrameworkCore;
} // namespace detail

/// A view of a map from which entries can be removed but not added. Single-thread.
template <class Key, class T>
class ShrinkableMap {
public:
    using container_type = std::map<Key, T>;
    using iterator = typename container_type::iterator;
    using const_iterator = typename container_type::const_iterator;
    using size_type = typename container_type::size_type;
    using key_type = typename container_type::key_type;
    using mapped_type = typename container_type::mapped_type;
    using value_type = typename container_type::value_type;
    using reference = typename container_type::reference;
    using const_reference = typename container_type::const_reference;

    /// A view of nothing.
    ShrinkableMap()
        : entries_(nothing()) {}

    iterator begin() { return entries_.begin(); }

    const_iterator begin() const { return entries_.begin(); }

    iterator end() { return entries_.end(); }

    const_iterator end() const { return entries_.end(); }

    void erase(iterator pos) { entries_.erase(pos); }

    void erase(iterator first, iterator last) { entries_.erase(first, last); }

    size_type erase(Key const& key) { return entries_.erase(key); }

    bool empty() const { return entries_.empty(); }

    void clear() { entries_.clear(); }

    size_type size() const { return entries_.size(); }

    size_type max_size() const { return entries_.max_size(); }

    T& at(Key const& key) { return entries_.at(key); }

    T const& at(Key const& key) const { return entries_.at(key); }

    size_type count(Key const& key) const { return entries_.count(key); }

    iterator find(Key const& key) { return entries_.find(key); }

    const_iterator find(Key const& key) const { return entries_.find(key); }

    std::pair<iterator, iterator> equal_range(Key const& key) { return entries_.equal_range(key); }

    std::pair<const_iterator, const_iterator> equal_range(Key const& key) const {
        return entries_.equal_range(key);
    }

    iterator lower_bound(Key const& key) { return entries_.lower_bound(key); }

    const_iterator lower_bound(Key const& key) const { return entries_.lower_bound(key); }

    iterator upper_bound(Key const& key) { return entries_.upper_bound(key); }

    const_iterator upper_bound(Key const& key) const { return entries_.upper_bound(key); }

private:
    friend class detail::FrameworkCore;

    explicit ShrinkableMap(container_type& entries)
        : entries_(entries) {}

    static container_type& nothing() {
        static container_type entries;
        return entries;
    }

    container_type& entries_;
};

} // namespace cppmicroservices
