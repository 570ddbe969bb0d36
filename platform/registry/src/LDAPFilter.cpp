#include "cppmicroservices/LDAPFilter.h"

#include "FilterExpression.hpp"
#include "ServiceRecord.hpp"

#include "cppmicroservices/Bundle.h"

#include <stdexcept>
#include <unordered_set>

namespace cppmicroservices {

using detail::FilterExpression;

namespace {

void rejectCaseVariants(AnyMap const& map) {
    if (map.GetType() == AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS) {
        return;
    }
    std::unordered_set<std::string, detail::any_map_cihash, detail::any_map_ciequal> keys;
    for (auto const& entry : map) {
        auto const [known, added] = keys.insert(entry.first);
        if (!added) {
            throw std::runtime_error("Properties contain case variants of the key: " + *known);
        }
    }
}

} // namespace

LDAPFilter::LDAPFilter() = default;

LDAPFilter::LDAPFilter(std::string const& filter)
    : expression_(FilterExpression::parse(filter)) {}

LDAPFilter::LDAPFilter(LDAPFilter const&) = default;

LDAPFilter& LDAPFilter::operator=(LDAPFilter const&) = default;

LDAPFilter::~LDAPFilter() = default;

bool LDAPFilter::Match(ServiceReferenceBase const& reference) const {
    auto const data = detail::ReferenceData::of(reference);
    return expression_ && data && expression_->matches(*data->record->properties(), false);
}

bool LDAPFilter::Match(Bundle const& bundle) const {
    return expression_ && expression_->matches(bundle.GetHeaders(), false);
}

bool LDAPFilter::Match(AnyMap const& dictionary) const {
    if (!expression_) {
        return false;
    }
    rejectCaseVariants(dictionary);
    return expression_->matches(dictionary, false);
}

bool LDAPFilter::MatchCase(AnyMap const& dictionary) const {
    if (!expression_) {
        return false;
    }
    rejectCaseVariants(dictionary);
    return expression_->matches(dictionary, true);
}

std::string LDAPFilter::ToString() const {
    std::string text;
    if (expression_) {
        expression_->appendTo(text);
    }
    return text;
}

bool LDAPFilter::operator==(LDAPFilter const& other) const {
    return ToString() == other.ToString();
}

std::ostream& operator<<(std::ostream& os, LDAPFilter const& filter) {
    return os << filter.ToString();
}

} // namespace cppmicroservices
