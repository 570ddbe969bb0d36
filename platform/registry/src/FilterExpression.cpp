#include "FilterExpression.hpp"

#include "FilterParser.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <list>
#include <utility>

namespace cppmicroservices::detail {

namespace {

char toLower(char c) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

bool equalIgnoringCase(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), [](char a, char b) {
        return toLower(a) == toLower(b);
    });
}

std::string withoutCaseAndSpace(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (char const c : text) {
        if (!std::isspace(static_cast<unsigned char>(c))) {
            result += toLower(c);
        }
    }
    return result;
}

Any const* findProperty(AnyMap const& properties, std::string const& name, bool matchCase) {
    auto const exact = properties.find(name);
    if (exact != properties.end()) {
        return !matchCase || exact->first == name ? &exact->second : nullptr;
    }
    if (!matchCase && properties.GetType() != AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS) {
        for (auto const& entry : properties) {
            if (equalIgnoringCase(entry.first, name)) {
                return &entry.second;
            }
        }
    }
    return nullptr;
}

} // namespace

std::shared_ptr<FilterExpression const> FilterExpression::parse(std::string_view text) {
    return std::make_shared<FilterExpression const>(FilterParser(text).parse());
}

bool FilterExpression::matches(AnyMap const& properties, bool matchCase) const {
    auto const operandMatches = [&](FilterExpression const& operand) {
        return operand.matches(properties, matchCase);
    };
    switch (operator_) {
    case Operator::And:
        return std::all_of(operands_.begin(), operands_.end(), operandMatches);
    case Operator::Or:
        return std::any_of(operands_.begin(), operands_.end(), operandMatches);
    case Operator::Not:
        return !operandMatches(operands_.front());
    default:
        break;
    }
    auto const* value = findProperty(properties, name_, matchCase);
    return value && matchesValue(*value);
}

bool FilterExpression::matchesValue(Any const& value) const {
    if (value.Empty()) {
        return false;
    }
    bool const testsPresence = operator_ == Operator::Equal && parts_.size() == 2 &&
                               parts_[0].empty() && parts_[1].empty();
    if (testsPresence) {
        return true;
    }
    auto const anyTextMatches = [this](auto const& texts) {
        return std::any_of(
            texts.begin(), texts.end(), [this](auto const& text) { return matchesText(text); });
    };
    if (auto const* text = any_cast<std::string>(&value)) {
        return matchesText(*text);
    }
    if (auto const* texts = any_cast<std::vector<std::string>>(&value)) {
        return anyTextMatches(*texts);
    }
    if (auto const* number = any_cast<int>(&value)) {
        return matchesInteger(*number);
    }
    if (auto const* number = any_cast<long>(&value)) {
        return matchesInteger(*number);
    }
    if (auto const* flag = any_cast<bool>(&value)) {
        std::string_view const text = *flag ? "true" : "false";
        return operator_ != Operator::LessOrEqual && operator_ != Operator::GreaterOrEqual &&
               equalIgnoringCase(text.substr(0, value_.size()), value_);
    }
    if (auto const* text = any_cast<char const*>(&value)) {
        return matchesText(*text);
    }
    if (auto const* texts = any_cast<std::list<std::string>>(&value)) {
        return anyTextMatches(*texts);
    }
    if (auto const* values = any_cast<std::vector<Any>>(&value)) {
        return std::any_of(
            values->begin(), values->end(), [this](Any const& v) { return matchesValue(v); });
    }
    if (auto const* character = any_cast<char>(&value)) {
        return matchesText(std::string_view(character, 1));
    }
    if (auto const* number = any_cast<float>(&value)) {
        return matchesFloatingPoint(*number);
    }
    if (auto const* number = any_cast<double>(&value)) {
        return matchesFloatingPoint(*number);
    }
    auto const integer = [&]<class T>(T const* number) {
        return number && matchesInteger(*number);
    };
    return integer(any_cast<short>(&value)) || integer(any_cast<long long>(&value)) ||
           integer(any_cast<unsigned char>(&value)) || integer(any_cast<unsigned short>(&value)) ||
           integer(any_cast<unsigned int>(&value)) || integer(any_cast<unsigned long>(&value)) ||
           integer(any_cast<unsigned long long>(&value));
}

bool FilterExpression::matchesText(std::string_view value) const {
    switch (operator_) {
    case Operator::LessOrEqual:
        return value <= value_;
    case Operator::GreaterOrEqual:
        return value >= value_;
    case Operator::Approximate:
        return withoutCaseAndSpace(value) == withoutCaseAndSpace(value_);
    default:
        return matchesPattern(value);
    }
}

bool FilterExpression::matchesPattern(std::string_view value) const {
    auto const& first = parts_.front();
    auto const& last = parts_.back();
    if (parts_.size() == 1) {
        return value == first;
    }
    if (value.size() < first.size() + last.size() || !value.starts_with(first) ||
        !value.ends_with(last)) {
        return false;
    }
    // The leftmost place of each inner part leaves most room for the next one, so there is no need
    // to go back.
    value = value.substr(first.size(), value.size() - first.size() - last.size());
    for (auto part = parts_.begin() + 1; part != parts_.end() - 1; ++part) {
        auto const found = value.find(*part);
        if (found == std::string_view::npos) {
            return false;
        }
        value.remove_prefix(found + part->size());
    }
    return true;
}

template <class T>
bool FilterExpression::matchesInteger(T value) const {
    errno = 0;
    char* end = nullptr;
    long const parsed = std::strtol(value_.c_str(), &end, 10);
    if (errno == ERANGE || end == value_.c_str()) {
        return false;
    }
    auto const limit = static_cast<T>(parsed);
    switch (operator_) {
    case Operator::LessOrEqual:
        return value <= limit;
    case Operator::GreaterOrEqual:
        return value >= limit;
    default:
        return value == limit;
    }
}

template <class T>
bool FilterExpression::matchesFloatingPoint(T value) const {
    errno = 0;
    char* end = nullptr;
    double const limit = std::strtod(value_.c_str(), &end);
    bool const outOfRange = errno == ERANGE && (limit == 0 || std::abs(limit) == HUGE_VAL);
    if (outOfRange || end == value_.c_str()) {
        return false;
    }
    auto const wide = static_cast<double>(value);
    switch (operator_) {
    case Operator::LessOrEqual:
        return wide <= limit;
    case Operator::GreaterOrEqual:
        return wide >= limit;
    default:
        return std::abs(wide - limit) < static_cast<double>(std::numeric_limits<T>::epsilon());
    }
}

void FilterExpression::appendTo(std::string& text) const {
    text += '(';
    switch (operator_) {
    case Operator::And:
        text += '&';
        break;
    case Operator::Or:
        text += '|';
        break;
    case Operator::Not:
        text += '!';
        break;
    case Operator::Equal:
        text += name_ + "=";
        break;
    case Operator::LessOrEqual:
        text += name_ + "<=";
        break;
    case Operator::GreaterOrEqual:
        text += name_ + ">=";
        break;
    case Operator::Approximate:
        text += name_ + "~=";
        break;
    }
    for (auto const& operand : operands_) {
        operand.appendTo(text);
    }
    for (auto part = parts_.begin(); part != parts_.end(); ++part) {
        if (part != parts_.begin()) {
            text += '*';
        }
        for (char const c : *part) {
            if (std::string_view("()*\\").find(c) != std::string_view::npos) {
                text += '\\';
            }
            text += c;
        }
    }
    text += ')';
}

bool FilterExpression::isLiteralTestOf(std::string_view key) const {
    return operator_ == Operator::Equal && parts_.size() == 1 && equalIgnoringCase(name_, key);
}

std::optional<std::vector<std::string>> FilterExpression::requiredClasses() const {
    std::optional<std::vector<std::string>> result;
    if (isLiteralTestOf("objectclass")) {
        result = {{value_}};
    } else if (operator_ == Operator::And) {
        for (auto const& operand : operands_) {
            auto classes = operand.requiredClasses();
            if (classes && (!result || classes->size() < result->size())) {
                result = std::move(classes);
            }
        }
    } else if (operator_ == Operator::Or) {
        result.emplace();
        for (auto const& operand : operands_) {
            auto classes = operand.requiredClasses();
            if (!classes) {
                return std::nullopt;
            }
            result->insert(
                result->end(), std::make_move_iterator(classes->begin()),
                std::make_move_iterator(classes->end()));
        }
    }
    return result;
}

bool FilterExpression::testsOnlyClasses() const {
    return isLiteralTestOf("objectclass") ||
           (operator_ == Operator::Or &&
            std::all_of(operands_.begin(), operands_.end(), [](FilterExpression const& operand) {
                return operand.testsOnlyClasses();
            }));
}

std::optional<FilterExpression::TextTest> FilterExpression::requiredText() const {
    if (operator_ == Operator::And) {
        for (auto const& operand : operands_) {
            if (auto test = operand.requiredText()) {
                return test;
            }
        }
        return std::nullopt;
    }
    // What the registry itself says of each service is never one text.
    if (!isLiteralTestOf(name_) || isLiteralTestOf("objectclass") ||
        isLiteralTestOf("service.id")) {
        return std::nullopt;
    }
    TextTest test{name_, value_};
    std::transform(test.name.begin(), test.name.end(), test.name.begin(), toLower);
    return test;
}

std::optional<long> FilterExpression::soleServiceId() const {
    long id = 0;
    auto const* const end = value_.data() + value_.size();
    auto const [stop, error] = std::from_chars(value_.data(), end, id);
    return isLiteralTestOf("service.id") && error == std::errc() && stop == end ? std::optional(id)
                                                                                : std::nullopt;
}

} // namespace cppmicroservices::detail
