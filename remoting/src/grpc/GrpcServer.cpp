#include "grpc/GrpcServer.hpp"

#include "carrier/AwaitMemory.hpp"
#include "grpc/Compression.hpp"
#include "grpc/Credentials.hpp"
#include "grpc/Throughput.hpp"
#include "wire/FrameLimits.hpp"

#include <grpc/grpc_security_constants.h>
#include <grpcpp/ext/proto_server_reflection_plugin.h>
#include <grpcpp/security/auth_context.h>
#include <grpcpp/security/server_credentials.h>

#include <unistd.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::details {
namespace {

using AcceptorType = grpc::ServerBuilder::experimental_type::ExternalConnectionType;

constexpr int handshakeTimeMs = 10000;

/// Lets one server have the reflection service or not. The plugin's library adds it to every server
/// of a process in which it is loaded.
class Reflection final : public grpc::ServerBuilderOption {
public:
    explicit Reflection(bool wanted)
        : wanted(wanted) {}

    void UpdateArguments(grpc::ChannelArguments*) override {}

    void UpdatePlugins(std::vector<std::unique_ptr<grpc::ServerBuilderPlugin>>* plugins) override {
        auto reflection = std::make_unique<grpc::reflection::ProtoServerReflectionPlugin>();
        std::erase_if(
            *plugins, [&](const auto& plugin) { return plugin->name() == reflection->name(); });
        if (wanted) {
            plugins->push_back(std::move(reflection));
        }
    }

private:
    const bool wanted;
};

void setArguments(grpc::ServerBuilder& builder, const ServerSettings& settings) {
    constexpr std::size_t mostStreams = std::size_t{1} << 30;
    const int time = grpcMilliseconds(settings.keepalive.time);
    const int timeout = grpcMilliseconds(settings.keepalive.timeout);
    builder.SetMaxReceiveMessageSize(static_cast<int>(maximumFrameSize));
    builder.AddChannelArgument(GRPC_COMPRESSION_CHANNEL_ENABLED_ALGORITHMS_BITSET, noCompression);
    builder.AddChannelArgument(GRPC_ARG_ENABLE_PER_MESSAGE_DECOMPRESSION, 0);
    builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_TIME_MS, time);
    builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_TIMEOUT_MS, timeout);
    builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_PERMIT_WITHOUT_CALLS, 1);
    builder.AddChannelArgument(GRPC_ARG_HTTP2_MAX_PINGS_WITHOUT_DATA, 0);
    builder.AddChannelArgument(GRPC_ARG_HTTP2_MIN_RECV_PING_INTERVAL_WITHOUT_DATA_MS, 100);
    builder.AddChannelArgument(
        GRPC_ARG_MAX_CONCURRENT_STREAMS,
        static_cast<int>(std::min(settings.streams, mostStreams) + 1));
    builder.AddChannelArgument("grpc.server_handshake_timeout_ms", handshakeTimeMs);
    builder.AddChannelArgument(GRPC_ARG_HTTP2_WRITE_BUFFER_SIZE, bytesSentTogether);
}

void addNames(
    PeerNames& names, const grpc::AuthContext& context, const char* property, const char* form) {
    for (const grpc::string_ref& value : context.FindPropertyValues(property)) {
        names.push_back(form + std::string(value.data(), value.size()));
    }
}

PeerNames namesOf(const grpc::ServerContext& context) {
    PeerNames names;
    if (const auto identity = context.auth_context(); identity && identity->IsPeerAuthenticated()) {
        addNames(names, *identity, GRPC_PEER_DNS_PROPERTY_NAME, "dns:");
        addNames(names, *identity, GRPC_PEER_URI_PROPERTY_NAME, "uri:");
        addNames(names, *identity, GRPC_PEER_IP_PROPERTY_NAME, "ip:");
        addNames(names, *identity, GRPC_PEER_EMAIL_PROPERTY_NAME, "email:");
        addNames(names, *identity, GRPC_X509_CN_PROPERTY_NAME, "cn:");
    } else if (context.peer().starts_with("unix:")) {
        names.push_back("uid:" + std::to_string(geteuid()));
    } else {
        names.emplace_back("loopback");
    }
    return names;
}

void hand(grpc::experimental::ExternalConnectionAcceptor& acceptor, int socket) {
    grpc::experimental::ExternalConnectionAcceptor::NewConnectionParameters connection;
    connection.fd = socket;
    acceptor.HandleNewConnection(&connection);
}

/// Takes the events of a stream that is refused.
struct Nobody final : StreamEvents {
    void received(google::protobuf::io::ZeroCopyInputStream&, std::size_t) override {}

    void sent() override {}

    void ended(const StreamEnd&) override {}
};

} // namespace

/// Waits for peers to open streams of one kind, one after another, until the server stops.
class GrpcServer::Acceptance final : public Operation {
public:
    Acceptance(GrpcServer& owner, StreamKind kind)
        : owner(owner)
        , kind(kind) {}

    void start() {
        stream = std::make_shared<ServerStream>();
        auto& context = stream->context();
        auto& call = stream->call();
        grpc::CompletionQueue* queue = &owner.reactor->queue();
        if (kind == StreamKind::control) {
            owner.service.RequestControl(&context, &call, queue, owner.notifications, tag());
        } else {
            owner.service.RequestCall(&context, &call, queue, owner.notifications, tag());
        }
    }

    void completed(bool ok) override {
        if (!ok) {
            owner.acceptanceEnded();
            return;
        }
        owner.streamOpened(kind, std::exchange(stream, nullptr));
        awaitMemoryFor([this] { start(); });
    }

private:
    GrpcServer& owner;
    const StreamKind kind;
    std::shared_ptr<ServerStream> stream; // the next one
};

GrpcServer::GrpcServer(const ServerSettings& settings, AcceptStream acceptStream)
    : acceptStream(std::move(acceptStream))
    , maximumStreams(settings.streams)
    , nobody(std::make_shared<Nobody>()) {
    keepFreedBlocks();
    grpc::ServerBuilder builder;
    setArguments(builder, settings);
    builder.RegisterService(&service);
    builder.RegisterAsyncGenericService(&otherServices);
    builder.SetOption(std::make_unique<Reflection>(settings.reflection));
    localAcceptor = builder.experimental().AddExternalConnectionAcceptor(
        AcceptorType::FROM_FD, grpc::InsecureServerCredentials());
    tcpCredentials =
        settings.tls ? serverCredentials(*settings.tls) : grpc::InsecureServerCredentials();
    tcpAcceptor =
        builder.experimental().AddExternalConnectionAcceptor(AcceptorType::FROM_FD, tcpCredentials);
    auto queue = builder.AddCompletionQueue();
    notifications = queue.get();
    // First: a server may not lose its queue.
    reactor = Reactor::start(std::move(queue), settings.tasks, settings.busyPolling);
    try {
        server = builder.BuildAndStart();
        if (!server) {
            throw std::runtime_error("gRPC cannot start a server.");
        }
        accept(StreamKind::control);
        accept(StreamKind::call);
        health = std::make_unique<HealthService>(otherServices, reactor->queue(), *notifications);
    } catch (...) {
        stop(std::chrono::steady_clock::now());
        throw;
    }
}

GrpcServer::~GrpcServer() {
    stop(std::chrono::steady_clock::now());
}

void GrpcServer::serveLocal(int socket) {
    growSendBuffer(socket);
    hand(*localAcceptor, socket);
}

void GrpcServer::serveTcp(int socket) {
    hand(*tcpAcceptor, socket);
}

void GrpcServer::stop(Executor::SteadyTime timeLimit) noexcept {
    if (std::exchange(stopped, true)) {
        return;
    }
    if (server) {
        server->Shutdown(std::chrono::system_clock::now());
    }
    {
        std::unique_lock lock(mutex);
        noStreams.wait(lock, [this] { return streams == 0 && accepting == 0; });
    }
    if (health) {
        health->awaitEnd();
    }
    reactor->stop(timeLimit);
}

bool GrpcServer::awaitStreams(Executor::SteadyTime timeLimit) {
    std::unique_lock lock(mutex);
    return noStreams.wait_until(lock, timeLimit, [this] { return streams == 0; });
}

/// Wait for streams of a kind from now on.
void GrpcServer::accept(StreamKind kind) {
    acceptances.push_back(std::make_unique<Acceptance>(*this, kind));
    acceptances.back()->start();
    const std::lock_guard lock(mutex);
    ++accepting;
}

void GrpcServer::streamOpened(StreamKind kind, const std::shared_ptr<ServerStream>& stream) {
    bool full = false;
    {
        const std::lock_guard lock(mutex);
        full = streams >= maximumStreams;
        ++streams;
    }
    std::shared_ptr<StreamEvents> events;
    try {
        if (!full) {
            events = acceptStream(kind, stream, namesOf(stream->context()));
        }
    } catch (const std::exception&) {
        // There is no memory for it: the endpoint is full.
    }
    if (!events) {
        events = nobody;
        stream->finish(noRoom);
    }
    stream->begin(std::move(events), [this] { streamEnded(); });
}

void GrpcServer::streamEnded() {
    const std::lock_guard lock(mutex);
    --streams;
    noStreams.notify_all();
}

void GrpcServer::acceptanceEnded() {
    const std::lock_guard lock(mutex);
    --accepting;
    noStreams.notify_all();
}

} // namespace agent::orvi::remoting::details
