#pragma once

#include "carrier/Carrier.hpp"

#include <exception>
#include <string>

namespace agent::orvi::remoting::details {

/// Make the error that a call ends with when its stream has ended.
///
/// @param peer names the peer in the error's text.
std::exception_ptr errorOf(const StreamEnd& end, const std::string& peer);

} // namespace agent::orvi::remoting::details
