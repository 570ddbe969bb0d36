#include "imports/AskableFilters.hpp"

#include "wire/FrameLimits.hpp"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string_view>
#include <utility>

namespace agent::orvi::remoting::details {
namespace {

constexpr const char* spaces = " \t\n\v\f\r";

/// Return the operator of a filter that combines others, else its first character.
char operatorOf(const std::string& filter) {
    const std::size_t place = filter.find_first_not_of(spaces, filter.find('(') + 1);
    return place == std::string::npos ? '\0' : filter[place];
}

/// Return the filters that a filter combines.
std::vector<std::string> operandsOf(const std::string& filter) {
    std::vector<std::string> operands;
    std::size_t depth = 0;
    std::size_t start = 0;
    for (std::size_t place = 0; place < filter.size(); ++place) {
        if (filter[place] == '\\') {
            ++place;
        } else if (filter[place] == '(' && ++depth == 2) {
            start = place;
        } else if (filter[place] == ')' && --depth == 1) {
            operands.push_back(filter.substr(start, place + 1 - start));
        }
    }
    return operands;
}

bool isShorter(const std::string& left, const std::string& right) {
    return left.size() < right.size();
}

std::vector<std::string> alternatives(const std::vector<std::string>& operands) {
    std::vector<std::string> askable;
    for (const std::string& operand : operands) {
        std::vector<std::string> some = askableFilters(operand);
        askable.insert(
            askable.end(), std::make_move_iterator(some.begin()),
            std::make_move_iterator(some.end()));
    }
    return askable;
}

/// Return as many operands as have room together, one after another.
std::string fitting(std::vector<std::string> operands, std::size_t room) {
    std::sort(operands.begin(), operands.end(), isShorter);
    std::string together;
    for (const std::string& operand : operands) {
        if (together.size() + operand.size() > room) {
            break;
        }
        together += operand;
    }
    return together;
}

/// Demand what there is room for, with each alternative of what is too long.
std::vector<std::string> narrowed(std::vector<std::string> operands) {
    constexpr std::size_t room = maximumFilterSize - std::string_view("(&)").size();
    const auto longest = std::max_element(operands.begin(), operands.end(), isShorter);
    std::vector<std::string> parts;
    if (longest->size() > maximumFilterSize) {
        parts = askableFilters(*longest);
        operands.erase(longest);
    }
    if (parts.empty()) {
        const std::string demands = fitting(std::move(operands), room);
        return demands.empty() ? parts : std::vector{"(&" + demands + ")"};
    }
    const std::size_t taken = std::max_element(parts.begin(), parts.end(), isShorter)->size();
    const std::string others = fitting(std::move(operands), room - std::min(room, taken));
    for (std::string& part : parts) {
        if (!others.empty()) {
            part.insert(0, others).insert(0, "(&").push_back(')');
        }
    }
    return parts;
}

} // namespace

std::vector<std::string> askableFilters(const std::string& filter) {
    if (filter.size() <= maximumFilterSize) {
        return {filter};
    }
    switch (operatorOf(filter)) {
    case '|':
        return alternatives(operandsOf(filter));
    case '&':
        return narrowed(operandsOf(filter));
    default:
        return {}; // a single test, or the opposite of something
    }
}

} // namespace agent::orvi::remoting::details
