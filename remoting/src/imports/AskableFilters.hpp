#pragma once

#include <string>
#include <vector>

namespace agent::orvi::remoting::details {

/// Return the filters that an endpoint is asked with for what a filter matches: filters that are
/// not too long for it and together match at least the same.
///
/// A filter that is short enough is the only one. Of a longer one, the alternatives are asked for
/// one by one. What has no alternatives is made wider by what is too long of it, and left out where
/// nothing remains.
///
/// @param filter a well-formed LDAP filter.
std::vector<std::string> askableFilters(const std::string& filter);

} // namespace agent::orvi::remoting::details
