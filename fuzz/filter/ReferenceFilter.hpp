#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace agent::orvi::fuzz {

/// A property's value, of the types that a filter knows to compare.
using FilterValue = std::variant<
    std::string, bool, int, long, unsigned short, unsigned long long, double, char,
    std::vector<std::string>>;
using FilterProperties = std::map<std::string, FilterValue>;

/// Say whether properties match a filter, written down once more as plainly as possible: the filter
/// is evaluated while it is read, and patterns are tried in every way.
///
/// @param filter in the form that `LDAPFilter::ToString` gives.
/// @param properties with keys in lower case, which `matchCase` compares as they are.
bool referenceMatch(std::string_view filter, const FilterProperties& properties, bool matchCase);

} // namespace agent::orvi::fuzz
