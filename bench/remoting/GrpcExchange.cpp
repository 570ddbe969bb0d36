#include "ServedBytes.hpp"
#include "remoting/Certificates.hpp"
#include "remoting/Exchanges.hpp"

#include <exchange.grpc.pb.h>

#include <grpcpp/grpcpp.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

namespace agent::orvi::bench {
namespace {

using ::orvi::bench::Bytes;
using ::orvi::bench::Reply;
using ::orvi::bench::Request;

constexpr const char* grpcKind = "grpc";

/// Fill a reply whose memory may be one's that was sent before.
void answer(const Request& request, ServedBytes& bytes, Reply& reply) {
    const auto count = static_cast<std::size_t>(request.count());
    if (count > 0) {
        reply.mutable_data()->assign(bytes.next(count), count);
    }
    reply.set_written(static_cast<std::int64_t>(request.data().size()));
}

class BytesService final : public Bytes::Service {
public:
    grpc::Status
    Stream(grpc::ServerContext*, grpc::ServerReaderWriter<Reply, Request>* stream) override {
        ServedBytes bytes;
        Request request;
        Reply reply;
        while (stream->Read(&request)) {
            answer(request, bytes, reply);
            if (!stream->Write(reply)) {
                break;
            }
        }
        return grpc::Status::OK;
    }

    grpc::Status Single(grpc::ServerContext*, const Request* request, Reply* reply) override {
        // One client at a time; its calls may come on several threads.
        thread_local ServedBytes bytes;
        answer(*request, bytes, *reply);
        return grpc::Status::OK;
    }
};

Request requestFor(Transfer transfer) {
    Request request;
    if (transfer.direction == Direction::read) {
        request.set_count(static_cast<std::int64_t>(transfer.size));
    } else {
        request.set_data(std::string(transfer.size, 'w'));
    }
    return request;
}

void check(const Reply& reply, Transfer transfer) {
    expectAll(
        transfer.direction == Direction::read
            ? reply.data().size() == transfer.size
            : reply.written() == static_cast<std::int64_t>(transfer.size));
}

/// Make a channel that shares its connection with no other one.
std::shared_ptr<grpc::Channel> makeChannel(
    const std::string& target, const std::shared_ptr<grpc::ChannelCredentials>& credentials) {
    grpc::ChannelArguments arguments;
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
    return grpc::CreateCustomChannel(target, credentials, arguments);
}

std::shared_ptr<grpc::Channel> localChannel(const ServerAddress& server) {
    return makeChannel(
        "unix:" + server.socket(grpcKind).string(), grpc::InsecureChannelCredentials());
}

class StreamExchange final : public Exchange {
public:
    StreamExchange(const std::shared_ptr<grpc::Channel>& channel, Transfer transfer)
        : transfer(transfer)
        , stub(Bytes::NewStub(channel))
        , stream(stub->Stream(&context))
        , request(requestFor(transfer)) {}

    ~StreamExchange() override {
        stream->WritesDone();
        stream->Finish();
    }

    void call() override {
        expectAll(stream->Write(request) && stream->Read(&reply));
        check(reply, transfer);
    }

    std::string_view received() const override { return reply.data(); }

private:
    const Transfer transfer;
    const std::unique_ptr<Bytes::Stub> stub;
    grpc::ClientContext context;
    const std::unique_ptr<grpc::ClientReaderWriter<Request, Reply>> stream;
    const Request request;
    Reply reply;
};

class UnaryExchange final : public Exchange {
public:
    UnaryExchange(const std::shared_ptr<grpc::Channel>& channel, Transfer transfer)
        : transfer(transfer)
        , stub(Bytes::NewStub(channel))
        , request(requestFor(transfer)) {}

    void call() override {
        grpc::ClientContext context;
        expectAll(stub->Single(&context, request, &reply).ok());
        check(reply, transfer);
    }

    std::string_view received() const override { return reply.data(); }

private:
    const Transfer transfer;
    const std::unique_ptr<Bytes::Stub> stub;
    const Request request;
    Reply reply;
};

std::shared_ptr<grpc::ChannelCredentials> clientCredentials(const Certificates& files) {
    return grpc::SslCredentials(
        {contentOf(files.authority), contentOf(files.privateKey), contentOf(files.certificate)});
}

std::shared_ptr<grpc::ServerCredentials> serverCredentials(const Certificates& files) {
    grpc::SslServerCredentialsOptions options(
        GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY);
    options.pem_root_certs = contentOf(files.authority);
    options.pem_key_cert_pairs.push_back(
        {contentOf(files.privateKey), contentOf(files.certificate)});
    return grpc::SslServerCredentials(options);
}

} // namespace

std::unique_ptr<Exchange> connectStream(const ServerAddress& server, Transfer transfer) {
    return std::make_unique<StreamExchange>(localChannel(server), transfer);
}

std::unique_ptr<Exchange> connectStreamTls(const ServerAddress& server, Transfer transfer) {
    const auto credentials = clientCredentials(certificatesIn(server.folder));
    return std::make_unique<StreamExchange>(makeChannel(server.tls, credentials), transfer);
}

std::unique_ptr<Exchange> connectUnary(const ServerAddress& server, Transfer transfer) {
    return std::make_unique<UnaryExchange>(localChannel(server), transfer);
}

void serveGrpc(const ServerAddress& address) {
    BytesService service;
    int port = 0;
    grpc::ServerBuilder builder;
    builder.RegisterService(&service);
    builder.AddListeningPort(
        "unix:" + address.socket(grpcKind).string(), grpc::InsecureServerCredentials());
    builder.AddListeningPort(
        "127.0.0.1:0", serverCredentials(certificatesIn(address.folder)), &port);
    const auto server = builder.BuildAndStart();
    announce("127.0.0.1:" + std::to_string(port));
    server->Wait();
    std::abort();
}

} // namespace agent::orvi::bench
