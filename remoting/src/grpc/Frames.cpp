#include "grpc/Frames.hpp"

#include <grpcpp/support/proto_buffer_reader.h>
#include <grpcpp/support/slice.h>

#include <array>
#include <memory>
#include <utility>

namespace agent::orvi::remoting::details {
namespace {

/// Up to here a copy is cheaper than keeping the owner.
constexpr std::size_t fewBytes = 512;

grpc::Slice share(Bytes bytes) {
    if (bytes.size <= fewBytes) {
        return {bytes.data, bytes.size};
    }
    auto* const data = const_cast<char*>(bytes.data);
    const std::size_t size = bytes.size;
    auto owner = std::make_unique<std::shared_ptr<const void>>(std::move(bytes.owner));
    const auto release = [](void* shared) {
        delete static_cast<std::shared_ptr<const void>*>(shared);
    };
    return {data, size, release, owner.release()};
}

} // namespace

grpc::ByteBuffer toMessage(OutgoingFrame frame) {
    if (frame.data.size == 0) {
        const grpc::Slice head(frame.head);
        return {&head, 1};
    }
    const std::array<grpc::Slice, 2> parts{grpc::Slice(frame.head), share(std::move(frame.data))};
    return {parts.data(), parts.size()};
}

grpc::WriteOptions optionsOf(const OutgoingFrame& frame) {
    grpc::WriteOptions options;
    if (frame.moreFollow) {
        options.set_buffer_hint();
    }
    return options;
}

void deliver(StreamEvents& events, grpc::ByteBuffer& message) {
    const std::size_t size = message.Length();
    grpc::ProtoBufferReader reader(&message);
    events.received(reader, size);
}

} // namespace agent::orvi::remoting::details
