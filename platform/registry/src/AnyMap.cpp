#include "cppmicroservices/AnyMap.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

namespace cppmicroservices {

namespace {

unsigned char toLower(char c) {
    return static_cast<unsigned char>(std::tolower(static_cast<unsigned char>(c)));
}

template <class Reference, class Position>
Reference dereference(Position const& position) {
    switch (position.index()) {
    case 1:
        return *std::get<1>(position);
    case 2:
        return *std::get<2>(position);
    case 3:
        return *std::get<3>(position);
    default:
        throw std::logic_error("cannot dereference an invalid iterator");
    }
}

template <class Position>
void increment(Position& position) {
    switch (position.index()) {
    case 1:
        ++std::get<1>(position);
        break;
    case 2:
        ++std::get<2>(position);
        break;
    case 3:
        ++std::get<3>(position);
        break;
    default:
        throw std::logic_error("cannot increment an invalid iterator");
    }
}

/// Splits the first part off a dotted key.
std::string takePart(std::string_view& key) {
    auto const dot = key.find('.');
    std::string part(key.substr(0, dot));
    key.remove_prefix(dot == std::string_view::npos ? key.size() : dot + 1);
    return part;
}

using AnyVector = std::vector<Any>;

/// Returns what a part of a dotted key leads to.
Any const& descend(AnyMap const& map, std::string const& part) {
    return map.at(part);
}

Any const& descend(AnyVector const& values, std::string const& part) {
    auto const index = std::stoi(part);
    return values.at(
        index < 0 ? values.size() - static_cast<std::size_t>(-static_cast<long>(index))
                  : static_cast<std::size_t>(index));
}

} // namespace

namespace detail {

std::size_t any_map_cihash::operator()(std::string const& key) const {
    // FNV-1a, which needs no lower-case copy of the key.
    std::uint64_t hash = 14695981039346656037U;
    for (char const c : key) {
        hash = (hash ^ toLower(c)) * 1099511628211U;
    }
    return static_cast<std::size_t>(hash);
}

bool any_map_ciequal::operator()(std::string const& left, std::string const& right) const {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), [](char a, char b) {
        return toLower(a) == toLower(b);
    });
}

} // namespace detail

any_map::const_iter::const_iter(iter const& other) {
    switch (other.it_.index()) {
    case 1:
        it_.emplace<1>(std::get<1>(other.it_));
        break;
    case 2:
        it_.emplace<2>(std::get<2>(other.it_));
        break;
    case 3:
        it_.emplace<3>(std::get<3>(other.it_));
        break;
    default:
        break;
    }
}

any_map::const_iter::reference any_map::const_iter::operator*() const {
    return dereference<reference>(it_);
}

any_map::const_iter& any_map::const_iter::operator++() {
    increment(it_);
    return *this;
}

any_map::const_iter any_map::const_iter::operator++(int) {
    auto before = *this;
    increment(it_);
    return before;
}

any_map::iter::reference any_map::iter::operator*() const {
    return dereference<reference>(it_);
}

any_map::iter& any_map::iter::operator++() {
    increment(it_);
    return *this;
}

any_map::iter any_map::iter::operator++(int) {
    auto before = *this;
    increment(it_);
    return before;
}

template <class Iterator, class Map, class Find>
Iterator any_map::wrap(Map& map, Find const& find) {
    switch (map.index()) {
    case ORDERED_MAP:
        return Iterator(std::in_place_index<1>, find(std::get<0>(map)));
    case UNORDERED_MAP:
        return Iterator(std::in_place_index<2>, find(std::get<1>(map)));
    default:
        return Iterator(std::in_place_index<3>, find(std::get<2>(map)));
    }
}

any_map::any_map(map_type type, std::initializer_list<value_type> entries) {
    switch (type) {
    case ORDERED_MAP:
        map_.emplace<0>(entries);
        break;
    case UNORDERED_MAP:
        map_.emplace<1>(entries);
        break;
    case UNORDERED_MAP_CASEINSENSITIVE_KEYS:
        map_.emplace<2>(entries);
        break;
    default:
        throw std::logic_error("invalid map type");
    }
}

any_map::iter any_map::begin() {
    return wrap<iter>(map_, [](auto& m) { return m.begin(); });
}

any_map::const_iter any_map::begin() const {
    return wrap<const_iter>(map_, [](auto& m) { return m.begin(); });
}

any_map::iter any_map::end() {
    return wrap<iter>(map_, [](auto& m) { return m.end(); });
}

any_map::const_iter any_map::end() const {
    return wrap<const_iter>(map_, [](auto& m) { return m.end(); });
}

any_map::size_type any_map::size() const {
    return std::visit([](auto& m) { return m.size(); }, map_);
}

any_map::size_type any_map::count(key_type const& key) const {
    return std::visit([&](auto& m) { return m.count(key); }, map_);
}

void any_map::clear() {
    std::visit([](auto& m) { m.clear(); }, map_);
}

any_map::mapped_type& any_map::at(key_type const& key) {
    return std::visit([&](auto& m) -> Any& { return m.at(key); }, map_);
}

any_map::mapped_type const& any_map::at(key_type const& key) const {
    return std::visit([&](auto& m) -> Any const& { return m.at(key); }, map_);
}

any_map::mapped_type& any_map::operator[](key_type const& key) {
    return std::visit([&](auto& m) -> Any& { return m[key]; }, map_);
}

any_map::mapped_type& any_map::operator[](key_type&& key) {
    return std::visit([&](auto& m) -> Any& { return m[std::move(key)]; }, map_);
}

any_map::const_iter any_map::find(key_type const& key) const {
    return wrap<const_iter>(map_, [&](auto& m) { return m.find(key); });
}

any_map::size_type any_map::erase(key_type const& key) {
    return std::visit([&](auto& m) { return m.erase(key); }, map_);
}

AnyMap::mapped_type const& AnyMap::AtCompoundKey(key_type const& key) const {
    std::string_view rest = key;
    bool isLast = rest.find('.') == std::string_view::npos;
    auto part = takePart(rest);
    auto const* value = &descend(*this, part);
    while (!isLast) {
        isLast = rest.find('.') == std::string_view::npos;
        auto const previous = std::exchange(part, takePart(rest));
        if (auto const* map = any_cast<AnyMap>(value)) {
            value = &descend(*map, part);
        } else if (auto const* values = any_cast<AnyVector>(value)) {
            value = &descend(*values, part);
        } else {
            throw std::invalid_argument(
                "Unsupported Any type at '" + previous + "' for dotted get");
        }
    }
    return *value;
}

AnyMap::mapped_type
AnyMap::AtCompoundKey(key_type const& key, mapped_type defaultValue) const noexcept {
    try {
        return AtCompoundKey(key);
    } catch (std::logic_error const&) {
        return defaultValue;
    }
}

std::ostream& any_value_to_string(std::ostream& os, AnyMap const& map) {
    detail::mapToString(os, map);
    return os;
}

std::ostream& any_value_to_json(
    std::ostream& os, AnyMap const& map, std::uint8_t increment, std::int32_t indent) {
    detail::mapToJson(os, map, increment, indent);
    return os;
}

} // namespace cppmicroservices
