#pragma once

#include "carrier/Carrier.hpp"
#include "grpc/ClientConnection.hpp"
#include "grpc/Health.hpp"
#include "grpc/Reactor.hpp"
#include "grpc/ServerStream.hpp"
#include "wire/Messages.hpp"

#include <orvi/remoting/TlsFiles.hpp>
#include <orvi/remoting/v1/streams.grpc.pb.h>

#include <grpcpp/generic/async_generic_service.h>
#include <grpcpp/security/server_credentials.h>
#include <grpcpp/server.h>
#include <grpcpp/server_builder.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace agent::orvi::remoting::details {

/// What a server is made of.
struct ServerSettings {
    std::optional<TlsFiles> tls;
    Keepalive keepalive{};
    std::size_t streams = 0; ///< Streams at a time, over all connections.
    std::size_t tasks = 1;   ///< Tasks that run at a time.
    std::chrono::microseconds busyPolling{0};
    bool reflection = false;
};

/// The gRPC side of an endpoint: connections come in as sockets, streams go out.
///
/// Thread safety: thread-safe.
class GrpcServer {
public:
    /// Start to serve.
    ///
    /// @param acceptStream decides over every stream that a peer opens.
    /// @throws std::system_error when a file of the TLS settings cannot be read.
    /// @throws UnusableTlsFile when there is no use for what these contain.
    /// @throws std::runtime_error when gRPC cannot start.
    GrpcServer(const ServerSettings& settings, AcceptStream acceptStream);

    /// Stop, as `stop` does, at once.
    ~GrpcServer();

    GrpcServer(const GrpcServer&) = delete;
    GrpcServer& operator=(const GrpcServer&) = delete;

    /// Serve a connected local socket, which is taken over; its peer is known to be this user.
    void serveLocal(int socket);

    /// Serve a connected TCP socket, which is taken over.
    void serveTcp(int socket);

    std::shared_ptr<Executor> executor() const noexcept { return reactor; }

    /// Wait until all streams have ended.
    ///
    /// @return whether that was before the time limit.
    bool awaitStreams(Executor::SteadyTime timeLimit);

    /// End all streams and connections, then the threads. Tasks that are still running at the time
    /// limit are left behind. Nothing happens the second time.
    void stop(Executor::SteadyTime timeLimit) noexcept;

private:
    using Service =
        v1::Streams::WithRawMethod_Control<v1::Streams::WithRawMethod_Call<v1::Streams::Service>>;
    using Acceptor = std::unique_ptr<grpc::experimental::ExternalConnectionAcceptor>;

    class Acceptance;

    void accept(StreamKind kind);
    void streamOpened(StreamKind kind, const std::shared_ptr<ServerStream>& stream);
    void streamEnded();
    void acceptanceEnded();

    const AcceptStream acceptStream;
    const std::size_t maximumStreams;
    Service service;
    grpc::AsyncGenericService otherServices;
    std::unique_ptr<HealthService> health;
    std::shared_ptr<Reactor> reactor;
    grpc::ServerCompletionQueue* notifications = nullptr; // the reactor's
    std::shared_ptr<grpc::ServerCredentials> tcpCredentials;
    Acceptor localAcceptor;
    Acceptor tcpAcceptor;
    std::unique_ptr<grpc::Server> server;
    const std::shared_ptr<StreamEvents> nobody; // whose streams are refused
    const StreamEnd noRoom{
        StreamEnd::Kind::limitExceeded, "The endpoint has no room for more streams."};
    std::vector<std::unique_ptr<Acceptance>> acceptances;

    std::mutex mutex;
    std::condition_variable noStreams;
    std::size_t streams = 0;
    std::size_t accepting = 0; // acceptances
    bool stopped = false;
};

} // namespace agent::orvi::remoting::details
