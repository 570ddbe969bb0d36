#pragma once

#include "Input.hpp"

#include "wire/Messages.hpp"

#include <string>

/// Messages of the protocol with contents of the input's choice: valid ones, nearly valid ones, and
/// such as no correct peer sends.
namespace agent::orvi::fuzz {

namespace v1 = remoting::details::v1;

/// Describe slots of the payload of a request or an answer.
///
/// @param honest without what the protocol forbids; the announced texts are short then.
void fillSlots(Input& input, google::protobuf::RepeatedPtrField<v1::Slot>& slots, bool honest);

/// Describe a service that a look-up with a name may find.
void fillOffer(Input& input, v1::Offer& offer);

/// Describe an error.
void fillFailure(Input& input, v1::Failure& failure);

/// Return a frame of any kind.
v1::Frame anyFrame(Input& input);

/// Return the name of a service that there may be.
std::string anyServiceName(Input& input);

/// Return an LDAP filter, mostly.
std::string anyFilter(Input& input);

/// Return a frame's bytes; data of some bytes follow its head.
std::string encoded(v1::Frame head, std::string data);

/// Return how many bytes the texts of some slots have.
std::uint64_t announced(const google::protobuf::RepeatedPtrField<v1::Slot>& slots);

} // namespace agent::orvi::fuzz
