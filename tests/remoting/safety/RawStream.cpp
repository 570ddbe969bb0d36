#include "remoting/safety/RawStream.hpp"

#include "remoting/discovery/Waiting.hpp"

#include <grpcpp/support/byte_buffer.h>
#include <grpcpp/support/slice.h>

#include <stdexcept>

namespace agent::orvi::remoting::test {
namespace {

/// Long enough for a frame to go where there is room for it.
constexpr std::chrono::seconds roomTime{1};

grpc::ByteBuffer messageOf(const std::string& bytes) {
    const grpc::Slice slice(bytes);
    return {&slice, 1};
}

std::string bytesOf(const grpc::ByteBuffer& message) {
    std::vector<grpc::Slice> slices;
    if (!message.Dump(&slices).ok()) {
        throw std::runtime_error("A message cannot be read.");
    }
    std::string bytes;
    for (const grpc::Slice& slice : slices) {
        bytes.append(reinterpret_cast<const char*>(slice.begin()), slice.size());
    }
    return bytes;
}

} // namespace

RawStream::RawStream(
    const std::shared_ptr<grpc::Channel>& channel, const std::string& method,
    grpc_compression_algorithm compression) {
    context.set_compression_algorithm(compression);
    grpc::GenericStub stub(channel);
    const std::string path =
        method.starts_with('/') ? method : "/orvi.remoting.v1.Streams/" + method;
    call = stub.PrepareCall(&context, path, &queue);
    call->StartCall(tagOf(Step::start));
    complete(Step::start);
}

RawStream::~RawStream() {
    cancel();
    queue.Shutdown();
    void* tag = nullptr;
    bool ok = false;
    while (queue.Next(&tag, &ok)) {
    }
}

bool RawStream::send(const std::string& bytes) {
    call->Write(messageOf(bytes), tagOf(Step::write));
    return complete(Step::write);
}

bool RawStream::trySend(const std::string& bytes) {
    call->Write(messageOf(bytes), tagOf(Step::write));
    void* tag = nullptr;
    bool ok = false;
    return queue.AsyncNext(&tag, &ok, std::chrono::system_clock::now() + roomTime) ==
               grpc::CompletionQueue::GOT_EVENT &&
           ok;
}

void RawStream::halfClose() {
    call->WritesDone(tagOf(Step::halfClose));
    complete(Step::halfClose);
}

std::optional<std::string> RawStream::receiveBytes() {
    grpc::ByteBuffer message;
    call->Read(&message, tagOf(Step::read));
    if (!complete(Step::read)) {
        return std::nullopt;
    }
    return bytesOf(message);
}

std::optional<v1::Frame> RawStream::receive() {
    const auto bytes = receiveBytes();
    if (!bytes) {
        return std::nullopt;
    }
    v1::Frame frame;
    if (!frame.ParseFromString(*bytes)) {
        throw std::runtime_error("A frame is malformed.");
    }
    return frame;
}

grpc::Status RawStream::end() {
    while (receiveBytes()) {
    }
    grpc::Status status;
    call->Finish(&status, tagOf(Step::finish));
    complete(Step::finish);
    ended = true;
    return status;
}

void RawStream::cancel() {
    if (!ended) {
        context.TryCancel();
    }
}

/// Wait until a step that has been started is done.
bool RawStream::complete(Step step) {
    void* tag = nullptr;
    bool ok = false;
    do {
        if (queue.AsyncNext(&tag, &ok, std::chrono::system_clock::now() + longTime) !=
            grpc::CompletionQueue::GOT_EVENT) {
            throw std::runtime_error("The other side of a stream hangs.");
        }
    } while (tag != tagOf(step));
    return ok;
}

v1::Frame greeting(std::uint64_t service) {
    v1::Frame frame;
    frame.mutable_hello()->set_major(1);
    frame.mutable_hello()->set_framework("another framework");
    frame.mutable_hello()->set_service(service);
    return frame;
}

v1::Frame request(const std::string& method) {
    v1::Frame frame;
    frame.mutable_request()->set_method(method);
    return frame;
}

v1::Frame readRequest(std::int64_t count) {
    v1::Frame frame = request("read");
    v1::Slot& slot = *frame.mutable_request()->add_slots();
    slot.set_type(v1::INT64);
    slot.add_numbers(count);
    return frame;
}

v1::Frame writeRequest(const std::string& data) {
    v1::Frame frame = writeAnnouncement(data.size());
    frame.set_data(data);
    return frame;
}

v1::Frame writeAnnouncement(std::uint64_t length) {
    v1::Frame frame = request("write");
    v1::Slot& slot = *frame.mutable_request()->add_slots();
    slot.set_type(v1::TEXT);
    slot.set_length(length);
    return frame;
}

v1::Frame dataFrame(const std::string& data) {
    v1::Frame frame;
    frame.set_data(data);
    return frame;
}

v1::Frame want(std::uint64_t number, const std::string& filter) {
    v1::Frame frame;
    frame.mutable_want()->set_id(number);
    frame.mutable_want()->set_filter(filter);
    return frame;
}

v1::Frame unwant(std::uint64_t number) {
    v1::Frame frame;
    frame.mutable_unwant()->set_id(number);
    return frame;
}

} // namespace agent::orvi::remoting::test
