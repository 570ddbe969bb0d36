#include "remoting/safety/RawEndpoint.hpp"

#include "remoting/safety/Certificates.hpp"

#include <grpcpp/server_builder.h>

#include <chrono>
#include <stdexcept>
#include <string>

namespace agent::orvi::remoting::test {

RawEndpoint::RawEndpoint(
    Script control, Script call, const std::shared_ptr<grpc::ServerCredentials>& credentials,
    int port)
    : service(std::move(control), std::move(call)) {
    grpc::ServerBuilder builder;
    builder.AddListeningPort("127.0.0.1:" + std::to_string(port), credentials, &usedPort);
    builder.RegisterService(&service);
    server = builder.BuildAndStart();
    if (!server || usedPort == 0) {
        throw std::runtime_error("gRPC cannot start a server.");
    }
}

RawEndpoint::~RawEndpoint() {
    server->Shutdown(std::chrono::system_clock::now());
}

grpc::Status serveNothing(grpc::ServerContext&, RawEndpoint::Stream& stream) {
    v1::Frame frame;
    frame.mutable_hello()->set_major(1);
    frame.mutable_hello()->set_framework("another framework");
    frame.mutable_hello()->set_endpoint("endpoint");
    stream.Write(frame);
    while (stream.Read(&frame)) {
    }
    return grpc::Status::OK;
}

std::shared_ptr<grpc::ServerCredentials>
mutualTls(const TlsFiles& files, const std::filesystem::path& authorities) {
    grpc::SslServerCredentialsOptions options(
        GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY);
    options.pem_root_certs = contentOf(authorities);
    options.pem_key_cert_pairs.push_back(
        {contentOf(files.privateKey), contentOf(files.certificates)});
    return grpc::SslServerCredentials(options);
}

} // namespace agent::orvi::remoting::test
