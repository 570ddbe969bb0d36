#include "ServedBytes.hpp"
#include "remoting/Exchanges.hpp"

#include <grpcpp/generic/async_generic_service.h>
#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/grpcpp.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace agent::orvi::bench {
namespace {

constexpr const char* rawKind = "raw";
constexpr const char* method = "/orvi.bench.Bytes/Raw";

/// The first bytes of every request; what is written follows.
struct Head {
    std::uint64_t toRead = 0;
};

/// Wait for the completion of so many operations.
bool await(grpc::CompletionQueue& queue, int operations) {
    bool all = true;
    while (operations-- > 0) {
        void* tag = nullptr;
        bool ok = false;
        all = queue.Next(&tag, &ok) && ok && all;
    }
    return all;
}

/// Copy the bytes of a message to where they are wanted.
///
/// @return how many there were.
std::size_t copyOut(const grpc::ByteBuffer& message, std::vector<char>& destination) {
    std::vector<grpc::Slice> slices;
    message.Dump(&slices);
    destination.resize(message.Length());
    char* next = destination.data();
    for (const grpc::Slice& slice : slices) {
        std::memcpy(next, slice.begin(), slice.size());
        next += slice.size();
    }
    return destination.size();
}

grpc::ByteBuffer messageOf(const void* bytes, std::size_t size, bool shared) {
    const grpc::Slice slice =
        shared ? grpc::Slice(bytes, size, grpc::Slice::STATIC_SLICE) : grpc::Slice(bytes, size);
    return {&slice, 1};
}

void serveStream(grpc::GenericServerAsyncReaderWriter& stream, grpc::CompletionQueue& queue) {
    ServedBytes bytes;
    std::vector<char> request;
    grpc::ByteBuffer message;
    stream.Read(&message, nullptr);
    while (await(queue, 1)) {
        Head head;
        const std::uint64_t written = copyOut(message, request) - sizeof(head);
        std::memcpy(&head, request.data(), sizeof(head));
        stream.Write(
            head.toRead > 0 ? messageOf(bytes.next(head.toRead), head.toRead, true)
                            : messageOf(&written, sizeof(written), false),
            nullptr);
        if (!await(queue, 1)) {
            break;
        }
        stream.Read(&message, nullptr);
    }
    stream.Finish(grpc::Status::OK, nullptr);
    await(queue, 1);
}

class RawExchange final : public Exchange {
public:
    RawExchange(const ServerAddress& server, Transfer transfer)
        : transfer(transfer)
        , stub(channelTo(server))
        , stream(stub.PrepareCall(&context, method, &queue)) {
        Head head;
        if (transfer.direction == Direction::read) {
            head.toRead = transfer.size;
        } else {
            data.assign(transfer.size, 'w');
        }
        const std::vector<grpc::Slice> slices{
            grpc::Slice(&head, sizeof(head)),
            grpc::Slice(data.data(), data.size(), grpc::Slice::STATIC_SLICE)};
        request = {slices.data(), data.empty() ? 1U : 2U};
        stream->StartCall(nullptr);
        expectAll(await(queue, 1));
    }

    ~RawExchange() override {
        grpc::Status status;
        stream->WritesDone(nullptr);
        stream->Finish(&status, nullptr);
        await(queue, 2);
    }

    void call() override {
        stream->Write(request, nullptr);
        stream->Read(&reply, nullptr);
        expectAll(await(queue, 2));
        const std::size_t got = copyOut(reply, answer);
        expectAll(
            transfer.direction == Direction::read
                ? got == transfer.size
                : got == sizeof(std::uint64_t) &&
                      std::memcmp(answer.data(), &transfer.size, sizeof(std::uint64_t)) == 0);
    }

    std::string_view received() const override { return {answer.data(), answer.size()}; }

private:
    static std::shared_ptr<grpc::Channel> channelTo(const ServerAddress& server) {
        grpc::ChannelArguments arguments;
        arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
        return grpc::CreateCustomChannel(
            "unix:" + server.socket(rawKind).string(), grpc::InsecureChannelCredentials(),
            arguments);
    }

    const Transfer transfer;
    grpc::GenericStub stub;
    grpc::ClientContext context;
    grpc::CompletionQueue queue;
    std::unique_ptr<grpc::GenericClientAsyncReaderWriter> stream;
    std::string data;
    grpc::ByteBuffer request;
    grpc::ByteBuffer reply;
    std::vector<char> answer;
};

} // namespace

std::unique_ptr<Exchange> connectRaw(const ServerAddress& server, Transfer transfer) {
    return std::make_unique<RawExchange>(server, transfer);
}

void serveRaw(const ServerAddress& address) {
    grpc::AsyncGenericService service;
    grpc::ServerBuilder builder;
    builder.RegisterAsyncGenericService(&service);
    builder.AddListeningPort(
        "unix:" + address.socket(rawKind).string(), grpc::InsecureServerCredentials());
    const auto queue = builder.AddCompletionQueue();
    const auto server = builder.BuildAndStart();
    announce("");
    for (;;) {
        grpc::GenericServerContext context;
        grpc::GenericServerAsyncReaderWriter stream(&context);
        service.RequestCall(&context, &stream, queue.get(), queue.get(), nullptr);
        if (await(*queue, 1)) {
            serveStream(stream, *queue);
        }
    }
}

} // namespace agent::orvi::bench
