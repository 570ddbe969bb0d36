#include "grpc/ClientConnection.hpp"

#include "carrier/ProcessDescriptor.hpp"
#include "grpc/ClientStream.hpp"
#include "grpc/Credentials.hpp"
#include "grpc/Throughput.hpp"

#include <grpcpp/create_channel_posix.h>
#include <grpcpp/grpcpp.h>

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::details {
namespace {

/// How long a process whose connection has ended may take to end itself.
constexpr std::chrono::milliseconds longestExit{200};

} // namespace

int grpcMilliseconds(std::chrono::milliseconds time) {
    constexpr std::chrono::milliseconds longest{std::numeric_limits<int>::max()};
    return static_cast<int>(std::min(time, longest).count());
}

StreamEnd processHasEnded() {
    return {StreamEnd::Kind::terminated, "Its process has ended."};
}

std::shared_ptr<ClientConnection> ClientConnection::local(
    std::shared_ptr<Reactor> reactor, int socket, pid_t process, Keepalive keepalive) {
    growSendBuffer(socket);
    auto channel =
        grpc::CreateCustomInsecureChannelFromFd("localhost", socket, clientArguments(keepalive));
    return std::make_shared<ClientConnection>(std::move(reactor), std::move(channel), process);
}

std::shared_ptr<ClientConnection> ClientConnection::tcp(
    std::shared_ptr<Reactor> reactor, const std::string& address, const std::string& host,
    const std::shared_ptr<grpc::ChannelCredentials>& credentials, Keepalive keepalive) {
    grpc::ChannelArguments arguments = clientArguments(keepalive);
    arguments.SetString(GRPC_ARG_DEFAULT_AUTHORITY, host);
    arguments.SetSslTargetNameOverride(host);
    auto channel = grpc::CreateCustomChannel(
        address, credentials ? credentials : grpc::InsecureChannelCredentials(), arguments);
    return std::make_shared<ClientConnection>(std::move(reactor), std::move(channel), 0);
}

ClientConnection::ClientConnection(
    std::shared_ptr<Reactor> reactor, std::shared_ptr<grpc::Channel> channel, pid_t process)
    : reactor(std::move(reactor))
    , channel(std::move(channel))
    , stub(this->channel)
    , processDescriptor(openProcess(process)) {
    keepFreedBlocks();
}

ClientConnection::~ClientConnection() {
    if (processDescriptor >= 0) {
        ::close(processDescriptor);
    }
}

std::shared_ptr<Stream>
ClientConnection::open(StreamKind kind, std::shared_ptr<StreamEvents> events) {
    const auto stream = std::make_shared<ClientStream>(shared_from_this(), std::move(events), kind);
    std::unique_lock lock(mutex);
    if (closed) {
        const StreamEnd end = *closed;
        lock.unlock();
        stream->refuse(end);
    } else {
        const auto place = streams.insert(stream.get()).first;
        try {
            stream->begin();
        } catch (...) {
            streams.erase(place);
            throw;
        }
    }
    return stream;
}

void ClientConnection::close(const StreamEnd& end) {
    std::vector<std::shared_ptr<ClientStream>> waiting;
    {
        const std::lock_guard lock(mutex);
        if (!closed) {
            closed = end;
        }
        if (end.kind == StreamEnd::Kind::terminated) {
            loss = end;
            waiting = std::move(lost);
        }
    }
    for (const auto& stream : waiting) {
        stream->conclude(end);
    }
    // One by one, without a list of them: there may be no memory for one.
    ClientStream* last = nullptr;
    for (bool found = true; found;) {
        std::shared_ptr<ClientStream> open;
        {
            const std::lock_guard lock(mutex);
            const auto next = streams.upper_bound(last);
            found = next != streams.end();
            if (found) {
                last = *next;
                open = last->weak_from_this().lock();
            }
        }
        if (open) {
            open->cancel(end);
        }
    }
}

bool ClientConnection::awaitStreams(Executor::SteadyTime timeLimit) {
    std::unique_lock lock(mutex);
    return noStreams.wait_until(lock, timeLimit, [this] { return streams.empty(); });
}

void ClientConnection::streamEnded(ClientStream& stream) {
    const std::lock_guard lock(mutex);
    streams.erase(&stream);
    if (streams.empty()) {
        noStreams.notify_all();
    }
}

/// Conclude a stream that this side has not ended. Of a lost connection, the first stream to end
/// knows more than those that find it gone.
void ClientConnection::streamLost(const std::shared_ptr<ClientStream>& stream, StreamEnd end) {
    {
        const std::lock_guard lock(mutex);
        if (end.kind == StreamEnd::Kind::unresponsive || end.kind == StreamEnd::Kind::terminated) {
            loss = end;
        } else if (end.kind == StreamEnd::Kind::disconnected && loss) {
            end = *loss;
        } else if (end.kind == StreamEnd::Kind::disconnected && isProcessOver()) {
            end = processHasEnded();
            loss = end;
        } else if (end.kind == StreamEnd::Kind::disconnected && processDescriptor >= 0) {
            lost.push_back(stream);
            if (!disconnection) {
                awaitExit(end);
            }
            return;
        }
    }
    stream->conclude(end);
}

/// A dying process loses its sockets a moment before it is gone: which one it was shows then. No
/// thread waits for that, as many connections may be lost at once. Under the lock.
void ClientConnection::awaitExit(const StreamEnd& end) {
    disconnection = end;
    kept = shared_from_this();
    alarm.Set(&reactor->queue(), std::chrono::system_clock::now() + longestExit, exitTime.tag());
}

void ClientConnection::findCause(bool) {
    std::shared_ptr<ClientConnection> self;
    std::vector<std::shared_ptr<ClientStream>> waiting;
    StreamEnd cause;
    {
        const std::lock_guard lock(mutex);
        self = std::move(kept);
        if (!loss) {
            loss = isProcessOver() ? processHasEnded() : *disconnection;
        }
        cause = *loss;
        waiting = std::move(lost);
    }
    for (const auto& stream : waiting) {
        stream->conclude(cause);
    }
}

/// Say whether the peer's process is known to have ended.
bool ClientConnection::isProcessOver() const {
    pollfd ended{processDescriptor, POLLIN, 0};
    return processDescriptor >= 0 && poll(&ended, 1, 0) > 0;
}

} // namespace agent::orvi::remoting::details
