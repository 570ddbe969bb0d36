#pragma once

#include "FilterExpression.hpp"

#include <cstddef>
#include <string>
#include <string_view>

namespace cppmicroservices::detail {

/// Reads the text form of a filter, once.
class FilterParser {
public:
    explicit FilterParser(std::string_view text)
        : text_(text) {}

    /// @throws std::invalid_argument if the text breaks the grammar.
    FilterExpression parse();

private:
    FilterExpression parseExpression(std::size_t depth);
    FilterExpression parseTest();
    std::string parseName();
    FilterExpression::Operator parseOperator();
    void parseValue(FilterExpression& test);
    char peek() const;
    bool consume(std::string_view token);
    void skipSpace();
    [[noreturn]] void fail(std::string const& reason) const;

    std::string_view text_;
    std::size_t position_ = 0;
};

} // namespace cppmicroservices::detail
