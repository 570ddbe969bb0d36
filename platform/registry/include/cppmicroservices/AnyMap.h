#pragma once

#include "cppmicroservices/Any.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>
#include <variant>

namespace cppmicroservices {

namespace detail {

/// Hashes a key without regard to the case of its letters.
struct ORVI_PLATFORM_EXPORT any_map_cihash {
    std::size_t operator()(std::string const& key) const;
};

/// Compares two keys without regard to the case of their letters.
struct ORVI_PLATFORM_EXPORT any_map_ciequal {
    bool operator()(std::string const& left, std::string const& right) const;
};

} // namespace detail

/// Maps texts to Any values, with the map type chosen at run time.
///
/// A value type with the usual operations of a standard map; copies and moves keep the map type.
/// Thread-compatible.
class ORVI_PLATFORM_EXPORT any_map {
public:
    using key_type = std::string;
    using mapped_type = Any;
    using value_type = std::pair<key_type const, mapped_type>;
    using size_type = std::size_t;
    using difference_type = std::ptrdiff_t;
    using reference = value_type&;
    using const_reference = value_type const&;
    using pointer = value_type*;
    using const_pointer = value_type const*;

    using ordered_any_map = std::map<std::string, Any>;
    using unordered_any_map = std::unordered_map<std::string, Any>;
    using unordered_any_cimap =
        std::unordered_map<std::string, Any, detail::any_map_cihash, detail::any_map_ciequal>;

    /// Selects the standard map that holds the entries.
    enum map_type : std::uint8_t { ORDERED_MAP, UNORDERED_MAP, UNORDERED_MAP_CASEINSENSITIVE_KEYS };

    class iter;

    /// Forward iterator over constant entries. A default constructed one equals only another such
    /// one.
    class ORVI_PLATFORM_EXPORT const_iter {
    public:
        using value_type = any_map::value_type;
        using iterator_category = std::forward_iterator_tag;
        using difference_type = any_map::difference_type;
        using reference = any_map::const_reference;
        using pointer = any_map::const_pointer;
        using iterator = const_iter;

        const_iter() = default;
        const_iter(iter const& other);

        /// @throws std::logic_error "cannot dereference an invalid iterator" if default
        /// constructed.
        reference operator*() const;

        pointer operator->() const { return &operator*(); }

        /// @throws std::logic_error "cannot increment an invalid iterator" if default constructed.
        iterator& operator++();
        iterator operator++(int);

        bool operator==(iterator const& x) const { return it_ == x.it_; }

        bool operator!=(iterator const& x) const { return !(*this == x); }

    private:
        friend class any_map;
        using Position = std::variant<
            std::monostate, ordered_any_map::const_iterator, unordered_any_map::const_iterator,
            unordered_any_cimap::const_iterator>;

        template <std::size_t Index, class It>
        const_iter(std::in_place_index_t<Index> index, It it)
            : it_(index, it) {}

        Position it_;
    };

    /// Forward iterator over entries. A default constructed one equals only another such one.
    class ORVI_PLATFORM_EXPORT iter {
    public:
        using value_type = any_map::value_type;
        using iterator_category = std::forward_iterator_tag;
        using difference_type = any_map::difference_type;
        using reference = any_map::reference;
        using pointer = any_map::pointer;
        using iterator = iter;

        iter() = default;

        /// @throws std::logic_error "cannot dereference an invalid iterator" if default
        /// constructed.
        reference operator*() const;

        pointer operator->() const { return &operator*(); }

        /// @throws std::logic_error "cannot increment an invalid iterator" if default constructed.
        iterator& operator++();
        iterator operator++(int);

        bool operator==(iterator const& x) const { return it_ == x.it_; }

        bool operator!=(iterator const& x) const { return !(*this == x); }

    private:
        friend class any_map;
        friend class const_iter;
        using Position = std::variant<
            std::monostate, ordered_any_map::iterator, unordered_any_map::iterator,
            unordered_any_cimap::iterator>;

        template <std::size_t Index, class It>
        iter(std::in_place_index_t<Index> index, It it)
            : it_(index, it) {}

        Position it_;
    };

    using iterator = iter;
    using const_iterator = const_iter;

    /// Makes a map of the given type holding @p entries; of equal keys the first wins.
    /// @throws std::logic_error "invalid map type" if @p type is none of the enumerators.
    any_map(map_type type, std::initializer_list<value_type> entries = {});

    any_map(ordered_any_map const& m)
        : map_(m) {}

    any_map(ordered_any_map&& m)
        : map_(std::move(m)) {}

    any_map(unordered_any_map const& m)
        : map_(m) {}

    any_map(unordered_any_map&& m)
        : map_(std::move(m)) {}

    any_map(unordered_any_cimap const& m)
        : map_(m) {}

    any_map(unordered_any_cimap&& m)
        : map_(std::move(m)) {}

    any_map(any_map const&) = default;
    any_map(any_map&&) noexcept = default;
    any_map& operator=(any_map const&) = default;
    any_map& operator=(any_map&&) noexcept = default;
    ~any_map() = default;

    iter begin();
    const_iter begin() const;

    const_iter cbegin() const { return begin(); }

    iter end();
    const_iter end() const;

    const_iter cend() const { return end(); }

    bool empty() const { return size() == 0; }

    size_type size() const;
    size_type count(key_type const& key) const;
    void clear();

    /// Returns the value of a key.
    /// @throws std::out_of_range if the key is absent.
    mapped_type& at(key_type const& key);
    mapped_type const& at(key_type const& key) const;

    /// Returns the value of a key, which is added with an empty value if absent.
    mapped_type& operator[](key_type const& key);
    mapped_type& operator[](key_type&& key);

    /// Adds an entry unless the key is present; returns its position and whether it was added.
    std::pair<iterator, bool> insert(value_type const& value) { return emplace(value); }

    /// Constructs an entry in place unless the key is present; returns its position and whether it
    /// was added.
    template <class... Args>
    std::pair<iterator, bool> emplace(Args&&... args) {
        if (auto* ordered = std::get_if<0>(&map_)) {
            auto result = ordered->emplace(std::forward<Args>(args)...);
            return {iter(std::in_place_index<1>, result.first), result.second};
        }
        if (auto* unordered = std::get_if<1>(&map_)) {
            auto result = unordered->emplace(std::forward<Args>(args)...);
            return {iter(std::in_place_index<2>, result.first), result.second};
        }
        auto result = std::get<2>(map_).emplace(std::forward<Args>(args)...);
        return {iter(std::in_place_index<3>, result.first), result.second};
    }

    /// Returns the position of a key, end() if absent.
    const_iter find(key_type const& key) const;

    /// Removes a key; returns how many entries were removed.
    size_type erase(key_type const& key);

    /// Tells whether both have the same map type and equal entries.
    bool operator==(any_map const& other) const { return map_ == other.map_; }

    bool operator!=(any_map const& other) const { return !(*this == other); }

protected:
    map_type mapType() const { return static_cast<map_type>(map_.index()); }

private:
    template <class Iterator, class Map, class Find>
    static Iterator wrap(Map& map, Find const& find);

    std::variant<ordered_any_map, unordered_any_map, unordered_any_cimap> map_;
};

/// A map of Any values that can be nested and read with dotted keys.
///
/// Without a map type it ignores the case of its keys. Thread-compatible.
class ORVI_PLATFORM_EXPORT AnyMap : public any_map {
public:
    /// Makes a map with case-insensitive keys.
    AnyMap(std::initializer_list<any_map::value_type> entries = {})
        : any_map(UNORDERED_MAP_CASEINSENSITIVE_KEYS, entries) {}

    AnyMap(map_type type, std::initializer_list<any_map::value_type> entries = {})
        : any_map(type, entries) {}

    AnyMap(ordered_any_map const& m)
        : any_map(m) {}

    AnyMap(ordered_any_map&& m)
        : any_map(std::move(m)) {}

    AnyMap(unordered_any_map const& m)
        : any_map(m) {}

    AnyMap(unordered_any_map&& m)
        : any_map(std::move(m)) {}

    AnyMap(unordered_any_cimap const& m)
        : any_map(m) {}

    AnyMap(unordered_any_cimap&& m)
        : any_map(std::move(m)) {}

    /// Returns which standard map holds the entries.
    map_type GetType() const { return mapType(); }

    /// Returns the value at a dotted key such as "one.two.0".
    ///
    /// Each part but the last must lead to an AnyMap or a `std::vector<Any>`. In a vector a part is
    /// an index; negative ones count from the end.
    /// @throws std::out_of_range if a key or index is absent.
    /// @throws std::invalid_argument if a part leads to another type, or is no number where an
    /// index is needed.
    mapped_type const& AtCompoundKey(key_type const& key) const;

    /// Returns a copy of the value at a dotted key, or @p defaultValue where the other overload
    /// would throw.
    mapped_type AtCompoundKey(key_type const& key, mapped_type defaultValue) const noexcept;
};

ORVI_PLATFORM_EXPORT std::ostream& any_value_to_string(std::ostream& os, AnyMap const& map);
ORVI_PLATFORM_EXPORT std::ostream& any_value_to_json(
    std::ostream& os, AnyMap const& map, std::uint8_t increment = 0, std::int32_t indent = 0);

} // namespace cppmicroservices
