#pragma once

#include "wire/Messages.hpp"

#include <cppmicroservices/Any.h>

#include <string>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::details {

/// Properties of a service, by key.
using Properties = std::vector<std::pair<std::string, cppmicroservices::Any>>;

/// Add properties to an offer.
///
/// Texts, flags, signed and unsigned `int`, `long` and `long long`, `double`, lists of texts, lists
/// and maps of these travel; `long long` arrives as `long`, its unsigned form likewise. A property
/// that is, or holds, anything else or is nested deeper than `maximumNesting` is left out as a
/// whole.
///
/// @throws std::length_error when the offer does not fit a frame; what it holds then is
///         unspecified.
void encodeProperties(v1::Offer& offer, const Properties& properties);

/// Return the properties of an offer, in its order. Those with values that this side does not know
/// are left out as a whole.
///
/// @throws ProtocolError when one is nested deeper than `maximumNesting`, or a key is empty or
///         there twice, in whatever case.
Properties decodeProperties(const v1::Offer& offer);

} // namespace agent::orvi::remoting::details
