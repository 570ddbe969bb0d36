#include "filter/ReferenceFilter.hpp"

#include "Target.hpp"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <type_traits>

namespace agent::orvi::fuzz {
namespace {

/// What a wildcard is where a value is no pattern.
constexpr char wildcard = '\x7f';

/// A character of a filter's value, which may stand for any text.
struct Sign {
    char character;
    bool isWildcard;
};

using Pattern = std::vector<Sign>;

std::string lower(std::string_view text) {
    std::string result;
    for (const char character : text) {
        result += static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    }
    return result;
}

std::string squeezed(std::string_view text) {
    std::string result;
    for (const char character : lower(text)) {
        if (std::isspace(static_cast<unsigned char>(character)) == 0) {
            result += character;
        }
    }
    return result;
}

std::string literal(const Pattern& pattern) {
    std::string text;
    for (const Sign& sign : pattern) {
        text += sign.isWildcard ? wildcard : sign.character;
    }
    return text;
}

/// Say whether a text fits a pattern: row by row, for each beginning of the text whether the
/// beginning of the pattern fits it.
bool fits(const Pattern& pattern, std::string_view text) {
    std::vector<bool> fitting(text.size() + 1, false);
    fitting[0] = true;
    for (const Sign& sign : pattern) {
        std::vector<bool> next(text.size() + 1, false);
        for (std::size_t length = 0; length <= text.size(); ++length) {
            if (sign.isWildcard) {
                next[length] = fitting[length] || (length > 0 && next[length - 1]);
            } else {
                next[length] =
                    length > 0 && fitting[length - 1] && text[length - 1] == sign.character;
            }
        }
        fitting = next;
    }
    return fitting[text.size()];
}

/// One comparison of a filter.
struct Test {
    std::string operation;
    Pattern pattern;

    bool operator()(const std::string& text) const {
        const std::string value = literal(pattern);
        if (operation == "<=") {
            return text.compare(value) <= 0;
        }
        if (operation == ">=") {
            return text.compare(value) >= 0;
        }
        return operation == "~=" ? squeezed(text) == squeezed(value) : fits(pattern, text);
    }

    bool operator()(char character) const { return (*this)(std::string(1, character)); }

    bool operator()(const std::vector<std::string>& texts) const {
        bool any = false;
        for (const std::string& text : texts) {
            any = any || (*this)(text);
        }
        return any;
    }

    bool operator()(bool flag) const {
        const std::string word = flag ? "true" : "false";
        const std::string value = lower(literal(pattern));
        return (operation == "=" || operation == "~=") && word.substr(0, value.size()) == value;
    }

    template <class Number>
    requires std::is_arithmetic_v<Number>

    bool operator()(Number number) const {
        const std::string value = literal(pattern);
        char* end = nullptr;
        errno = 0;
        if constexpr (std::is_floating_point_v<Number>) {
            const double limit = std::strtod(value.c_str(), &end);
            const bool wrong = errno == ERANGE && (limit == 0 || std::isinf(limit));
            return end != value.c_str() && !wrong && compare(number, limit);
        } else {
            const long limit = std::strtol(value.c_str(), &end, 10);
            return end != value.c_str() && errno == 0 &&
                   compare(number, static_cast<Number>(limit));
        }
    }

    template <class Number>
    bool compare(Number number, Number limit) const {
        if (operation == "<=") {
            return number <= limit;
        }
        if (operation == ">=") {
            return number >= limit;
        }
        if constexpr (std::is_floating_point_v<Number>) {
            return std::abs(number - limit) < std::numeric_limits<Number>::epsilon();
        } else {
            return number == limit;
        }
    }
};

class Evaluation {
public:
    Evaluation(std::string_view filter, const FilterProperties& properties, bool matchCase)
        : filter(filter)
        , properties(properties)
        , matchCase(matchCase) {}

    bool expression() {
        expect('(');
        bool result = false;
        switch (filter.front()) {
        case '&':
            result = operands(true, [](bool all, bool each) { return all && each; });
            break;
        case '|':
            result = operands(false, [](bool any, bool each) { return any || each; });
            break;
        case '!':
            filter.remove_prefix(1);
            result = !expression();
            break;
        default:
            result = test();
        }
        expect(')');
        return result;
    }

    bool atEnd() const { return filter.empty(); }

private:
    void expect(char character) {
        require(!filter.empty() && filter.front() == character, "a filter's text is a filter");
        filter.remove_prefix(1);
    }

    template <class Combine>
    bool operands(bool result, Combine combine) {
        filter.remove_prefix(1);
        while (!filter.empty() && filter.front() == '(') {
            result = combine(result, expression());
        }
        return result;
    }

    bool test() {
        const std::size_t nameEnd = filter.find_first_of("<>=~");
        require(nameEnd != std::string_view::npos && nameEnd > 0, "a test has a name");
        const std::string name(filter.substr(0, nameEnd));
        const std::size_t operationSize = filter[nameEnd] == '=' ? 1 : 2;
        Test test{std::string(filter.substr(nameEnd, operationSize)), {}};
        filter.remove_prefix(nameEnd + operationSize);
        for (; !filter.empty() && filter.front() != ')'; filter.remove_prefix(1)) {
            const bool escaped = filter.front() == '\\';
            if (escaped) {
                filter.remove_prefix(1);
            }
            test.pattern.push_back({filter.front(), !escaped && filter.front() == '*'});
        }
        const auto property = properties.find(matchCase ? name : lower(name));
        if (property == properties.end()) {
            return false;
        }
        const bool isPresenceTest =
            test.operation == "=" && test.pattern.size() == 1 && test.pattern[0].isWildcard;
        return isPresenceTest || std::visit(test, property->second);
    }

    std::string_view filter;
    const FilterProperties& properties;
    bool matchCase;
};

} // namespace

bool referenceMatch(std::string_view filter, const FilterProperties& properties, bool matchCase) {
    Evaluation evaluation(filter, properties, matchCase);
    const bool result = evaluation.expression();
    require(evaluation.atEnd(), "a filter's text is one filter");
    return result;
}

} // namespace agent::orvi::fuzz
