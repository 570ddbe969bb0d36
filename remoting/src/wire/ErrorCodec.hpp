#pragma once

#include "wire/Messages.hpp"

#include <exception>

namespace agent::orvi::remoting::details {

/// Describe an exception for a peer: its type, text and error code.
///
/// Types that do not travel, and those derived from types that do, travel as a name and a text.
///
/// @param error may be null.
v1::Failure encodeFailure(const std::exception_ptr& error);

/// Make the exception that a peer has described. Its type is the original one, or a private type
/// derived from it where the original could not have this text; `RemoteError` for types that this
/// side does not know and details that do not fit the type.
std::exception_ptr decodeFailure(const v1::Failure& failure);

} // namespace agent::orvi::remoting::details
