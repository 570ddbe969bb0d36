#pragma once

#include "carrier/Carrier.hpp"
#include "grpc/Operation.hpp"
#include "grpc/Reactor.hpp"

#include <grpcpp/alarm.h>
#include <grpcpp/channel.h>
#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/security/credentials.h>

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace agent::orvi::remoting::details {

class ClientStream;

/// When a silent peer is given up.
struct Keepalive {
    std::chrono::milliseconds time;
    std::chrono::milliseconds timeout;
};

/// Return a time as gRPC takes it: its longest time never ends.
int grpcMilliseconds(std::chrono::milliseconds time);

/// The end of the streams to a process that has ended.
StreamEnd processHasEnded();

/// A connection to one endpoint. It is made once: when it is lost, so are its streams.
class ClientConnection final : public Connection,
                               public std::enable_shared_from_this<ClientConnection> {
public:
    /// Use a connected socket, which is taken over.
    ///
    /// @param process the peer's process, 0 when it is not known.
    static std::shared_ptr<ClientConnection>
    local(std::shared_ptr<Reactor> reactor, int socket, pid_t process, Keepalive keepalive);

    /// Connect to a numeric address; the first stream waits for it.
    ///
    /// @param host the name for which the peer must be certified.
    /// @param credentials null for a connection without TLS.
    static std::shared_ptr<ClientConnection>
    tcp(std::shared_ptr<Reactor> reactor, const std::string& address, const std::string& host,
        const std::shared_ptr<grpc::ChannelCredentials>& credentials, Keepalive keepalive);

    ClientConnection(
        std::shared_ptr<Reactor> reactor, std::shared_ptr<grpc::Channel> channel, pid_t process);
    ~ClientConnection() override;

    std::shared_ptr<Stream> open(StreamKind kind, std::shared_ptr<StreamEvents> events) override;
    void close(const StreamEnd& end) override;

    /// Wait until all streams have ended.
    ///
    /// @return whether they have before the time limit.
    bool awaitStreams(Executor::SteadyTime timeLimit);

private:
    friend class ClientStream;

    void streamEnded(ClientStream& stream);
    void streamLost(const std::shared_ptr<ClientStream>& stream, StreamEnd end);
    void awaitExit(const StreamEnd& end);
    void findCause(bool);
    bool isProcessOver() const;

    const std::shared_ptr<Reactor> reactor;
    const std::shared_ptr<grpc::Channel> channel;
    grpc::GenericStub stub;
    const int processDescriptor;

    std::mutex mutex;
    std::condition_variable noStreams;
    std::set<ClientStream*> streams;
    std::optional<StreamEnd> closed;
    std::optional<StreamEnd> loss;                   // of the peer, once its cause is known
    std::optional<StreamEnd> disconnection;          // while its cause is looked for, and after
    std::vector<std::shared_ptr<ClientStream>> lost; // streams that wait for the cause
    std::shared_ptr<ClientConnection> kept;          // while the alarm is set
    StreamOperation<ClientConnection> exitTime{*this, &ClientConnection::findCause};
    grpc::Alarm alarm;
};

} // namespace agent::orvi::remoting::details
