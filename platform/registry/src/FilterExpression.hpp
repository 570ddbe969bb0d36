#pragma once

#include "cppmicroservices/AnyMap.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cppmicroservices::detail {

/// A parsed search filter: a tree of tests. Immutable.
class FilterExpression {
public:
    enum class Operator { And, Or, Not, Equal, LessOrEqual, GreaterOrEqual, Approximate };

    /// @throws std::invalid_argument if the text breaks the grammar.
    static std::shared_ptr<FilterExpression const> parse(std::string_view text);

    bool matches(AnyMap const& properties, bool matchCase) const;

    void appendTo(std::string& text) const;

    /// Returns interface names of which a service needs at least one to match; nothing if there is
    /// no such condition.
    std::optional<std::vector<std::string>> requiredClasses() const;

    /// Tells whether having one of requiredClasses() is all that it takes to match.
    bool testsOnlyClasses() const;

    /// A test for one text, and no other, as the value of a property.
    struct TextTest {
        std::string name; ///< in lower case
        std::string text;
    };

    /// Returns a test that a service must pass to match, and that not each service is likely to
    /// pass; nothing if there is no such test.
    std::optional<TextTest> requiredText() const;

    /// Returns the service id if the filter tests for nothing else.
    std::optional<long> soleServiceId() const;

private:
    friend class FilterParser;

    bool isLiteralTestOf(std::string_view key) const;
    bool matchesValue(Any const& value) const;
    bool matchesText(std::string_view value) const;
    bool matchesPattern(std::string_view value) const;
    template <class T>
    bool matchesInteger(T value) const;
    template <class T>
    bool matchesFloatingPoint(T value) const;

    Operator operator_ = Operator::Equal;
    std::vector<FilterExpression> operands_;
    std::string name_;
    /// The literal parts of the value, between its wildcards.
    std::vector<std::string> parts_;
    /// The value with a stand-in for each wildcard, for the tests that know no wildcards.
    std::string value_;
};

} // namespace cppmicroservices::detail
