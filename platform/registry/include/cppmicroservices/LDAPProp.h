#pragma once

#include "cppmicroservices/Any.h"

#include <sstream>
#include <string>

namespace cppmicroservices {

/// The text of a filter under construction, combined with `&&`, `||` and `!`. A value; converts to
/// `std::string`.
class ORVI_PLATFORM_EXPORT LDAPPropExpr {
public:
    /// An empty expression, which vanishes when combined.
    LDAPPropExpr() = default;

    explicit LDAPPropExpr(std::string expr)
        : text_(std::move(expr)) {}

    /// Negates this expression, unless it is empty.
    LDAPPropExpr& operator!();

    operator std::string() const { return text_; }

    /// Tells whether the expression is empty.
    bool IsNull() const { return text_.empty(); }

    LDAPPropExpr& operator|=(LDAPPropExpr const& right);
    LDAPPropExpr& operator&=(LDAPPropExpr const& right);

private:
    std::string text_;
};

/// Names a property, and makes filter expressions by comparing it: `LDAPProp("service.ranking") >=
/// 5`.
///
/// Comparing with an empty text gives an empty expression. Values are not escaped.
class ORVI_PLATFORM_EXPORT LDAPProp {
public:
    /// @throws std::invalid_argument "property must not be empty" if @p property is.
    LDAPProp(std::string property);
    LDAPProp(LDAPProp const&) = default;
    LDAPProp& operator=(LDAPProp const&) = delete;
    ~LDAPProp() = default;

    /// Tests presence.
    operator LDAPPropExpr() const;
    /// Tests absence.
    LDAPPropExpr operator!() const;

    LDAPPropExpr operator==(std::string const& s) const { return compare("=", s); }

    LDAPPropExpr operator==(Any const& s) const { return compare("=", s.ToString()); }

    LDAPPropExpr operator==(bool b) const { return compare("=", b ? "true" : "false"); }

    template <class T>
    LDAPPropExpr operator==(T const& s) const {
        return LDAPPropExpr("(" + property_ + "=" + text(s) + ")");
    }

    LDAPPropExpr operator!=(std::string const& s) const;

    LDAPPropExpr operator!=(Any const& s) const { return *this != s.ToString(); }

    template <class T>
    LDAPPropExpr operator!=(T const& s) const {
        return *this != text(s);
    }

    LDAPPropExpr operator>=(std::string const& s) const { return compare(">=", s); }

    LDAPPropExpr operator>=(Any const& s) const { return compare(">=", s.ToString()); }

    template <class T>
    LDAPPropExpr operator>=(T const& s) const {
        return compare(">=", text(s));
    }

    LDAPPropExpr operator<=(std::string const& s) const { return compare("<=", s); }

    LDAPPropExpr operator<=(Any const& s) const { return compare("<=", s.ToString()); }

    template <class T>
    LDAPPropExpr operator<=(T const& s) const {
        return compare("<=", text(s));
    }

    /// Tests approximate equality: without regard to case and white space.
    LDAPPropExpr Approx(std::string const& s) const { return compare("~=", s); }

    LDAPPropExpr Approx(Any const& s) const { return compare("~=", s.ToString()); }

    template <class T>
    LDAPPropExpr Approx(T const& s) const {
        return compare("~=", text(s));
    }

private:
    template <class T>
    static std::string text(T const& value) {
        std::ostringstream stream;
        stream << value;
        return stream.str();
    }

    LDAPPropExpr compare(char const* op, std::string const& value) const;

    std::string property_;
};

} // namespace cppmicroservices

ORVI_PLATFORM_EXPORT cppmicroservices::LDAPPropExpr
operator&&(cppmicroservices::LDAPPropExpr const& left, cppmicroservices::LDAPPropExpr const& right);
ORVI_PLATFORM_EXPORT cppmicroservices::LDAPPropExpr
operator||(cppmicroservices::LDAPPropExpr const& left, cppmicroservices::LDAPPropExpr const& right);
