#pragma once

#include "cppmicroservices/AnyMap.h"

#include <memory>
#include <ostream>
#include <string>

namespace cppmicroservices {

class Bundle;
class ServiceReferenceBase;

namespace detail {
class FilterExpression;
} // namespace detail

/// A search filter in the text form of RFC 1960, such as
/// `(&(objectclass=Codec)(!(service.ranking<=0)))`.
///
/// An immutable value. A default constructed one matches nothing. Thread-safe, save that one object
/// may not be assigned to while it is used.
class ORVI_PLATFORM_EXPORT LDAPFilter {
public:
    /// An invalid filter, which matches nothing.
    LDAPFilter();

    /// Parses a filter.
    /// @throws std::invalid_argument if @p filter breaks the grammar or nests parentheses too
    /// deeply.
    LDAPFilter(std::string const& filter);
    LDAPFilter(LDAPFilter const& other);
    LDAPFilter& operator=(LDAPFilter const& filter);
    ~LDAPFilter();

    /// Tells whether the filter is valid.
    explicit operator bool() const { return expression_ != nullptr; }

    /// Tells whether the properties of a service match; the case of their names is ignored.
    bool Match(ServiceReferenceBase const& reference) const;

    /// Tells whether the headers of a bundle match; the case of their names is ignored.
    /// @throws std::invalid_argument "invalid bundle" if @p bundle is invalid.
    bool Match(Bundle const& bundle) const;

    /// Tells whether a map matches; the case of its keys is ignored.
    /// @throws std::runtime_error if two keys differ only in case.
    bool Match(AnyMap const& dictionary) const;

    /// Tells whether a map matches; the case of its keys matters.
    /// @throws std::runtime_error if two keys differ only in case.
    bool MatchCase(AnyMap const& dictionary) const;

    /// Returns the filter as text without needless spaces, empty if the filter is invalid.
    std::string ToString() const;

    /// Tells whether both have the same text.
    bool operator==(LDAPFilter const& other) const;

private:
    std::shared_ptr<detail::FilterExpression const> expression_;
};

ORVI_PLATFORM_EXPORT std::ostream& operator<<(std::ostream& os, LDAPFilter const& filter);

} // namespace cppmicroservices
