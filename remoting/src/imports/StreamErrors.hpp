#pragma once

#include "carrier/Carrier.hpp"

#include <exception>
#include <string>

namespace agent::orvi::remoting::details {

/// Make the error that a call ends with when its stream has ended.
///
/// @param peer names the peer in the error's text.
/// @return the error; std::bad_alloc when there is no memory for it.
std::exception_ptr errorOf(const StreamEnd& end, const std::string& peer) noexcept;

} // namespace agent::orvi::remoting::details
