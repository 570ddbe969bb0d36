#include "FilterParser.hpp"

#include <cctype>
#include <stdexcept>
#include <utility>

namespace cppmicroservices::detail {

namespace {

using Operator = FilterExpression::Operator;

/// Deep enough for any sensible filter, shallow enough for the stack of any thread.
constexpr std::size_t maximumDepth = 500;

/// Cannot be typed easily, and is no digit: numbers end before it.
constexpr char wildcardStandIn = '\x7f';

bool isSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

} // namespace

FilterExpression FilterParser::parse() {
    if (text_.empty()) {
        fail("Null query");
    }
    auto expression = parseExpression(0);
    if (text_.find_first_not_of(' ', position_) != std::string_view::npos) {
        fail("Trailing garbage '" + std::string(text_.substr(position_)) + "'");
    }
    return expression;
}

FilterExpression FilterParser::parseExpression(std::size_t depth) {
    skipSpace();
    if (!consume("(")) {
        fail("Malformed query");
    }
    if (depth == maximumDepth) {
        fail("Too deeply nested query");
    }
    skipSpace();
    FilterExpression expression;
    switch (peek()) {
    case '&':
        expression.operator_ = Operator::And;
        break;
    case '|':
        expression.operator_ = Operator::Or;
        break;
    case '!':
        expression.operator_ = Operator::Not;
        break;
    default:
        return parseTest();
    }
    ++position_;
    do {
        expression.operands_.push_back(parseExpression(depth + 1));
        skipSpace();
    } while (peek() == '(');
    if (!consume(")") ||
        (expression.operator_ == Operator::Not && expression.operands_.size() > 1)) {
        fail("Malformed query");
    }
    return expression;
}

FilterExpression FilterParser::parseTest() {
    FilterExpression test;
    test.name_ = parseName();
    test.operator_ = parseOperator();
    parseValue(test);
    consume(")");
    return test;
}

std::string FilterParser::parseName() {
    auto const start = position_;
    auto end = start;
    while (std::string_view("()<>=~").find(peek()) == std::string_view::npos) {
        if (!isSpace(text_[position_++])) {
            end = position_;
        }
    }
    if (end == start) {
        fail("Malformed query");
    }
    return std::string(text_.substr(start, end - start));
}

Operator FilterParser::parseOperator() {
    if (consume("=")) {
        return Operator::Equal;
    }
    if (consume("<=")) {
        return Operator::LessOrEqual;
    }
    if (consume(">=")) {
        return Operator::GreaterOrEqual;
    }
    if (consume("~=")) {
        return Operator::Approximate;
    }
    fail("Undefined operator");
}

void FilterParser::parseValue(FilterExpression& test) {
    std::size_t open = 0;
    test.parts_.emplace_back();
    for (;; ++position_) {
        char c = peek();
        if (c == ')' && open == 0) {
            return;
        }
        if (c == '*') {
            test.parts_.emplace_back();
            test.value_ += wildcardStandIn;
            continue;
        }
        if (c == '(') {
            ++open;
        } else if (c == ')') {
            --open;
        } else if (c == '\\') {
            ++position_;
            c = peek();
        }
        test.parts_.back() += c;
        test.value_ += c;
    }
}

char FilterParser::peek() const {
    if (position_ >= text_.size()) {
        fail("Unexpected end of query");
    }
    return text_[position_];
}

bool FilterParser::consume(std::string_view token) {
    if (!text_.substr(position_).starts_with(token)) {
        return false;
    }
    position_ += token.size();
    return true;
}

void FilterParser::skipSpace() {
    while (isSpace(peek())) {
        ++position_;
    }
}

void FilterParser::fail(std::string const& reason) const {
    throw std::invalid_argument(reason + ": " + std::string(text_.substr(position_)));
}

} // namespace cppmicroservices::detail
