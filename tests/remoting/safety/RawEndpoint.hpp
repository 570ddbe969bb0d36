#pragma once

#include "wire/Messages.hpp"

#include <orvi/remoting/TlsFiles.hpp>
#include <orvi/remoting/v1/streams.grpc.pb.h>

#include <grpcpp/security/server_credentials.h>
#include <grpcpp/server.h>
#include <grpcpp/server_context.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace agent::orvi::remoting::test {

namespace v1 = ::orvi::remoting::v1;

/// The exporting side, which does on its streams whatever it is told to.
class RawEndpoint {
public:
    using Stream = grpc::ServerReaderWriter<v1::Frame, v1::Frame>;

    /// Serves one stream, on a thread of its own, until it returns.
    using Script = std::function<grpc::Status(grpc::ServerContext& context, Stream& stream)>;

    /// Start to serve on 127.0.0.1.
    ///
    /// @param port 0 for one that is free.
    RawEndpoint(
        Script control, Script call,
        const std::shared_ptr<grpc::ServerCredentials>& credentials =
            grpc::InsecureServerCredentials(),
        int port = 0);

    /// Cancel all streams.
    ~RawEndpoint();

    RawEndpoint(const RawEndpoint&) = delete;
    RawEndpoint& operator=(const RawEndpoint&) = delete;

    /// Return its port of the loopback device.
    int port() const noexcept { return usedPort; }

private:
    class Service final : public v1::Streams::Service {
    public:
        Service(Script control, Script call)
            : control(std::move(control))
            , call(std::move(call)) {}

        grpc::Status Control(grpc::ServerContext* context, Stream* stream) override {
            return control(*context, *stream);
        }

        grpc::Status Call(grpc::ServerContext* context, Stream* stream) override {
            return call(*context, *stream);
        }

    private:
        const Script control;
        const Script call;
    };

    Service service;
    int usedPort = 0;
    std::unique_ptr<grpc::Server> server;
};

/// Do on a control stream what an endpoint without services does.
grpc::Status serveNothing(grpc::ServerContext& context, RawEndpoint::Stream& stream);

/// Return what an endpoint identifies itself with to those whom the authorities have certified.
std::shared_ptr<grpc::ServerCredentials>
mutualTls(const TlsFiles& files, const std::filesystem::path& authorities);

} // namespace agent::orvi::remoting::test
