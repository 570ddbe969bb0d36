#pragma once

#include "carrier/Carrier.hpp"

#include <grpcpp/impl/call_op_set.h>
#include <grpcpp/support/byte_buffer.h>

namespace agent::orvi::remoting::details {

/// Make a message of a frame. The frame's bytes are not copied unless they are few.
grpc::ByteBuffer toMessage(OutgoingFrame frame);

/// Say how a frame is to be written.
grpc::WriteOptions optionsOf(const OutgoingFrame& frame);

/// Hand a received message over to a stream's owner.
///
/// @throws what the owner throws.
void deliver(StreamEvents& events, grpc::ByteBuffer& message);

} // namespace agent::orvi::remoting::details
