#pragma once

#include "wire/Messages.hpp"

#include <orvi/core/ServiceInterface.hpp>

#include <functional>
#include <string>

namespace agent::orvi::remoting::details {

/// Makes what runs a method of an imported service.
using MakeFunction = std::function<core::PayloadFunction(const std::string& method)>;

/// Describe a service's interface for a peer. Types of arguments and results that do not travel are
/// described as such.
v1::Interface encodeInterface(const core::ServiceInterface& serviceInterface);

/// Return the interface that a peer has described.
///
/// @param makeFunction is called once for each method.
/// @throws ProtocolError when the interface or a method has no name, or two methods or two metadata
///         keys are called the same.
core::ServiceInterface
decodeInterface(const v1::Interface& description, const MakeFunction& makeFunction);

} // namespace agent::orvi::remoting::details
