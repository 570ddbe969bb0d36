#pragma once

// How the values that an Any can hold are written as text and as JSON.

#include <orvi/platform_export.hpp>

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace cppmicroservices {

class Any;

/// Writes a line break and @p indent spaces when @p increment is positive, nothing otherwise.
ORVI_PLATFORM_EXPORT std::ostream&
newline_and_indent(std::ostream& os, std::uint8_t increment, std::int32_t indent);

/// Writes the text of a value; the way Any::ToString() prints what it holds.
///
/// Overload it beside a type of your own, or give that type an `operator<<`, to make the type
/// printable.
ORVI_PLATFORM_EXPORT std::ostream& any_value_to_string(std::ostream& os, Any const& any);
template <class T>
std::ostream& any_value_to_string(std::ostream& os, T const& value);

/// Writes a value as JSON; the way Any::ToJSON() prints what it holds.
ORVI_PLATFORM_EXPORT std::ostream&
any_value_to_json(std::ostream& os, Any const& any, std::uint8_t increment, std::int32_t indent);
ORVI_PLATFORM_EXPORT std::ostream& any_value_to_json(
    std::ostream& os, std::string const& text, std::uint8_t increment, std::int32_t indent);
template <class T>
std::ostream& any_value_to_json(
    std::ostream& os, T const& value, std::uint8_t increment = 0, std::int32_t indent = 0);

namespace detail {

template <class T, class = void>
struct HasEquality : std::false_type {};

template <class T>
struct HasEquality<
    T,
    std::void_t<decltype(static_cast<bool>(std::declval<T const&>() == std::declval<T const&>()))>>
    : std::true_type {};

template <class T>
struct IsSequence : std::false_type {};

template <class E>
struct IsSequence<std::vector<E>> : std::true_type {};

template <class E>
struct IsSequence<std::list<E>> : std::true_type {};

template <class E>
struct IsSequence<std::set<E>> : std::true_type {};

template <class T>
struct IsMap : std::false_type {};

template <class K, class V>
struct IsMap<std::map<K, V>> : std::true_type {};

template <class T>
struct IsFunction : std::false_type {};

template <class R, class... Args>
struct IsFunction<std::function<R(Args...)>> : std::true_type {};

template <class T>
void streamFloatingPoint(std::ostream& os, T value) {
    constexpr int digits = 12;
    auto const before = os.precision(digits);
    os << value;
    os.precision(before);
}

template <class Map>
void mapToString(std::ostream& os, Map const& map) {
    os << '{';
    char const* separator = "";
    for (auto const& entry : map) {
        os << separator << entry.first << " : ";
        any_value_to_string(os, entry.second);
        separator = ", ";
    }
    os << '}';
}

template <class Map>
void mapToJson(std::ostream& os, Map const& map, std::uint8_t increment, std::int32_t indent) {
    os << '{';
    char const* separator = "";
    for (auto const& entry : map) {
        os << separator;
        newline_and_indent(os, increment, indent);
        os << '"' << entry.first << "\" : ";
        any_value_to_json(os, entry.second, increment, indent + increment);
        separator = ", ";
    }
    if (!map.empty()) {
        newline_and_indent(os, increment, indent - increment);
    }
    os << '}';
}

} // namespace detail

template <class T>
std::ostream& any_value_to_string(std::ostream& os, T const& value) {
    if constexpr (std::is_floating_point_v<T>) {
        detail::streamFloatingPoint(os, value);
    } else if constexpr (detail::IsSequence<T>::value) {
        os << '[';
        char const* separator = "";
        for (auto const& element : value) {
            os << separator;
            any_value_to_string(os, element);
            separator = ",";
        }
        os << ']';
    } else if constexpr (detail::IsMap<T>::value) {
        detail::mapToString(os, value);
    } else if constexpr (!detail::IsFunction<T>::value) {
        os << value;
    }
    return os;
}

template <class T>
std::ostream&
any_value_to_json(std::ostream& os, T const& value, std::uint8_t increment, std::int32_t indent) {
    if constexpr (std::is_same_v<T, bool>) {
        os << (value ? "true" : "false");
    } else if constexpr (std::is_floating_point_v<T>) {
        detail::streamFloatingPoint(os, value);
    } else if constexpr (detail::IsSequence<T>::value) {
        os << '[';
        char const* separator = "";
        for (auto const& element : value) {
            os << separator;
            newline_and_indent(os, increment, indent);
            any_value_to_json(os, element, increment, indent + increment);
            separator = ",";
        }
        if (!value.empty()) {
            newline_and_indent(os, increment, indent - increment);
        }
        os << ']';
    } else if constexpr (detail::IsMap<T>::value) {
        detail::mapToJson(os, value, increment, indent);
    } else if constexpr (!detail::IsFunction<T>::value) {
        os << value;
    }
    return os;
}

} // namespace cppmicroservices
