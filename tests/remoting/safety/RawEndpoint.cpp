#include "remoting/safety/RawEndpoint.hpp"

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

} // namespace agent::orvi::remoting::test
