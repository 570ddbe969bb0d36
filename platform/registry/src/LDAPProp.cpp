#include "cppmicroservices/LDAPProp.h"

#include <stdexcept>
#include <utility>

namespace cppmicroservices {

LDAPPropExpr& LDAPPropExpr::operator!() {
    if (!text_.empty()) {
        text_ = "(!" + text_ + ")";
    }
    return *this;
}

LDAPPropExpr& LDAPPropExpr::operator|=(LDAPPropExpr const& right) {
    return *this = *this || right;
}

LDAPPropExpr& LDAPPropExpr::operator&=(LDAPPropExpr const& right) {
    return *this = *this && right;
}

LDAPProp::LDAPProp(std::string property)
    : property_(std::move(property)) {
    if (property_.empty()) {
        throw std::invalid_argument("property must not be empty");
    }
}

LDAPPropExpr LDAPProp::compare(char const* op, std::string const& value) const {
    return value.empty() ? LDAPPropExpr() : LDAPPropExpr("(" + property_ + op + value + ")");
}

LDAPProp::operator LDAPPropExpr() const {
    return compare("=", "*");
}

LDAPPropExpr LDAPProp::operator!() const {
    return !compare("=", "*");
}

LDAPPropExpr LDAPProp::operator!=(std::string const& s) const {
    return !compare("=", s);
}

} // namespace cppmicroservices

using cppmicroservices::LDAPPropExpr;

namespace {

LDAPPropExpr combine(char const* op, LDAPPropExpr const& left, LDAPPropExpr const& right) {
    if (left.IsNull() || right.IsNull()) {
        return left.IsNull() ? right : left;
    }
    return LDAPPropExpr(op + std::string(left) + std::string(right) + ")");
}

} // namespace

LDAPPropExpr operator&&(LDAPPropExpr const& left, LDAPPropExpr const& right) {
    return combine("(&", left, right);
}

LDAPPropExpr operator||(LDAPPropExpr const& left, LDAPPropExpr const& right) {
    return combine("(|", left, right);
}
