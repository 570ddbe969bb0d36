/// Texts as LDAP filters, and properties that they are matched with. An input is readable: the
/// filter in the first line, then a property per line: its key, a letter for its type, its value.
///
/// Property: a text is a filter or is refused with std::invalid_argument. The text of a filter is a
/// filter, equal to it and with the same text. Matching properties, with and without regard to
/// case, never fails and agrees with a small evaluator that has nothing in common with the filter's
/// own.

#include "filter/ReferenceFilter.hpp"

#include "Target.hpp"

#include <cppmicroservices/AnyMap.h>
#include <cppmicroservices/LDAPFilter.h>

#include <cctype>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace agent::orvi::fuzz {
namespace {

using cppmicroservices::Any;
using cppmicroservices::AnyMap;
using cppmicroservices::LDAPFilter;

constexpr AnyMap::map_type mapTypes[] = {
    AnyMap::ORDERED_MAP, AnyMap::UNORDERED_MAP, AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS};

std::string_view takeUntil(std::string_view& text, char end) {
    const std::size_t length = text.find(end);
    const std::string_view taken = text.substr(0, length);
    text.remove_prefix(length == std::string_view::npos ? text.size() : length + 1);
    return taken;
}

FilterValue valueOf(char type, std::string_view text) {
    const std::string value(text);
    const unsigned long long number = std::strtoull(value.c_str(), nullptr, 0);
    switch (type) {
    case 'b':
        return value == "true";
    case 'i':
        return static_cast<int>(number);
    case 'l':
        return static_cast<long>(number);
    case 'h':
        return static_cast<unsigned short>(number);
    case 'u':
        return number;
    case 'd':
        return std::strtod(value.c_str(), nullptr);
    case 'c':
        return value.empty() ? '\0' : value.front();
    case 'v': {
        std::vector<std::string> texts;
        while (!text.empty()) {
            texts.emplace_back(takeUntil(text, ','));
        }
        return texts;
    }
    default:
        return value;
    }
}

FilterProperties propertiesIn(std::string_view lines) {
    FilterProperties properties;
    while (!lines.empty()) {
        std::string_view line = takeUntil(lines, '\n');
        std::string key(takeUntil(line, ' '));
        for (char& character : key) {
            character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
        }
        const std::string_view type = takeUntil(line, ' ');
        properties[key] = valueOf(type.empty() ? 's' : type.front(), line);
    }
    return properties;
}

std::optional<LDAPFilter> parsed(const std::string& text) {
    try {
        return LDAPFilter(text);
    } catch (const std::invalid_argument&) {
        return std::nullopt;
    }
}

AnyMap mapOf(const FilterProperties& properties, AnyMap::map_type type) {
    AnyMap map(type);
    for (const auto& [key, value] : properties) {
        map[key] = std::visit([](const auto& held) { return Any(held); }, value);
    }
    return map;
}

void checkFilter(const LDAPFilter& filter, const FilterProperties& properties) {
    const std::string text = filter.ToString();
    const std::optional<LDAPFilter> again = parsed(text);
    require(again.has_value(), "a filter's text is a filter");
    require(
        again->ToString() == text && *again == filter, "a filter's text is that of an equal one");
    // One kind of map for each input, and one of the two filters: maps and matching take longer
    // than all the rest.
    const AnyMap map = mapOf(properties, mapTypes[text.size() % std::size(mapTypes)]);
    const LDAPFilter& either = properties.size() % 2 == 0 ? filter : *again;
    require(
        either.Match(map) == referenceMatch(text, properties, false),
        "properties match as they must");
    require(
        either.MatchCase(map) == referenceMatch(text, properties, true),
        "properties match as they must, with regard to case");
}

} // namespace
} // namespace agent::orvi::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    using namespace agent::orvi::fuzz;
    std::string_view input(reinterpret_cast<const char*>(bytes), size);
    const std::string text(takeUntil(input, '\n'));
    if (const auto filter = parsed(text)) {
        checkFilter(*filter, propertiesIn(input));
    }
    return 0;
}
