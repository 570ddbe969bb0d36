#include <orvi/remoting/Endpoint.hpp>

#include "carrier/FrameworkIdentity.hpp"
#include "discovery/HangUpWatch.hpp"
#include "discovery/Housekeeper.hpp"
#include "discovery/LocalAddress.hpp"
#include "discovery/RuntimeDirectory.hpp"
#include "discovery/TcpListener.hpp"
#include "exports/CallSession.hpp"
#include "exports/ControlSession.hpp"
#include "exports/ExportTable.hpp"
#include "grpc/GrpcServer.hpp"

#include <foundation/cppmicroservices/getFramework.hpp>

#include <cppmicroservices/Framework.h>

#include <boost/asio/post.hpp>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <unistd.h>

#include <future>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <utility>

namespace agent::orvi::remoting {
namespace {

using namespace details;

/// How long running calls may go on while an endpoint closes, and what is left for the rest.
constexpr std::chrono::milliseconds runOutTime{1000};
constexpr std::chrono::milliseconds farewellTime{300};
constexpr std::chrono::milliseconds threadEndTime{300};
constexpr std::chrono::milliseconds streamEndTime{800};

void check(const EndpointOptions& options) {
    const auto demand = [](bool holds, const char* text) {
        if (!holds) {
            throw std::invalid_argument(text);
        }
    };
    demand(options.threads >= 1, "An endpoint needs at least one thread.");
    demand(
        options.keepaliveTime.count() > 0 && options.keepaliveTimeout.count() > 0,
        "The keepalive times must be positive.");
    demand(
        options.busyPolling.count() >= 0 && options.busyPolling <= longestBusyPolling,
        "The time of busy polling must be from 0 to 10 ms.");
    demand(
        !(options.positionPerConnection && options.callOrder == CallOrder::concurrent),
        "A position for each connection needs calls one at a time.");
    demand(
        options.local || !options.listen.empty(),
        "An endpoint needs the local directory or an address to listen on.");
    demand(
        options.listen.empty() || options.tls || options.plainLoopback,
        "Listening on TCP needs TLS files, or plainLoopback for loopback addresses.");
}

} // namespace

class Endpoint::Impl : public std::enable_shared_from_this<Endpoint::Impl> {
public:
    explicit Impl(const EndpointOptions& options)
        : limits(options.limits)
        , endpointId(boost::uuids::to_string(boost::uuids::random_generator()()))
        , terms(std::make_shared<CallTerms>(options)) {}

    bool isOfThisProcess() const noexcept { return housekeeper.isOfThisProcess(); }

    void open(const EndpointOptions& options) {
        const auto context = foundation::cppmicroservices::getFramework()->GetBundleContext();
        name = {frameworkIdentity(context), endpointId};
        server.emplace(
            ServerSettings{
                options.tls,
                {options.keepaliveTime, options.keepaliveTimeout},
                options.limits.streams,
                options.threads,
                options.busyPolling,
                options.reflection},
            [this](StreamKind kind, std::shared_ptr<Stream> stream, PeerNames peer) {
                return accept(kind, std::move(stream), std::move(peer));
            });
        auto opened = ExportTable::open(context, endpointId, server->executor());
        {
            // Peers come only later, but by ways that no tool can follow.
            const std::lock_guard lock(mutex);
            table = std::move(opened);
        }
        listen(options);
    }

    void close() noexcept {
        const std::lock_guard lock(closing);
        if (!server || std::exchange(closed, true)) {
            return;
        }
        using Clock = std::chrono::steady_clock;
        local.reset();
        tcp.clear();
        if (table) {
            table->close();
        }
        terms->budget.close();
        terms->budget.awaitNoCalls(Clock::now() + runOutTime);
        endServer();
    }

    const std::string& id() const noexcept { return endpointId; }

    const std::vector<std::string>& addresses() const noexcept { return usedAddresses; }

private:
    void listen(const EndpointOptions& options) {
        const auto reach =
            options.tls ? TcpListener::Reach::anywhere : TcpListener::Reach::loopback;
        for (const std::string& address : options.listen) {
            tcp.push_back(std::make_unique<TcpListener>(
                housekeeper, address,
                [this](int socket, const std::string&) {
                    serve(socket, tcpConnections, &GrpcServer::serveTcp);
                },
                reach));
            const auto& used = tcp.back()->addresses();
            usedAddresses.insert(usedAddresses.end(), used.begin(), used.end());
        }
        if (options.local) {
            // Last: who finds the endpoint finds all of it.
            local = std::make_unique<LocalListener>(
                housekeeper, RuntimeDirectory(options.runtimeDirectory), endpointId,
                [this](int socket) { serve(socket, localConnections, &GrpcServer::serveLocal); });
            usedAddresses.insert(usedAddresses.begin(), "unix:" + local->path().string());
        }
    }

    /// End what peers have open, then the housekeeping thread. gRPC itself waits for its
    /// connections without a limit, even for one that takes nothing any more. Therefore it is that
    /// thread which waits for it, as one that is there already: what has not ended in time is left
    /// behind with it, and this object, too.
    void endServer() {
        const auto ending = std::make_shared<std::promise<void>>();
        const auto ended = ending->get_future();
        boost::asio::post(housekeeper.context(), [self = shared_from_this(), ending]() mutable {
            try {
                self->endStreams();
            } catch (...) {
                // What could not be ended in order ends with this object.
            }
            self->localConnections.clear();
            self->tcpConnections.clear();
            self.reset(); // before anybody goes on who takes it for gone
            ending->set_value();
        });
        if (ended.wait_for(streamEndTime) == std::future_status::ready) {
            housekeeper.stop();
        } else {
            housekeeper.leaveBehind();
        }
    }

    void endStreams() {
        using Clock = std::chrono::steady_clock;
        forEachSession([](CallSession& session) { session.abandon(); });
        forEachControl([](ControlSession& session) { session.sayGoodbye(); });
        server->awaitStreams(Clock::now() + farewellTime);
        server->stop(Clock::now() + threadEndTime);
    }

    using Connections = std::map<std::uint64_t, HangUpWatch>;

    /// Take a connection, unless there are enough of them. On the housekeeping thread.
    void serve(int socket, Connections& connections, void (GrpcServer::*hand)(int)) {
        if (connections.size() >= limits.connections) {
            ::close(socket);
            return;
        }
        try {
            const std::uint64_t number = ++lastConnection;
            connections.emplace(number, watchHangUp(housekeeper, socket, [&connections, number] {
                                    connections.erase(number);
                                }));
        } catch (...) {
            ::close(socket);
            return;
        }
        ((*server).*hand)(socket);
    }

    std::shared_ptr<StreamEvents>
    accept(StreamKind kind, std::shared_ptr<Stream> stream, PeerNames peer) {
        Executor& executor = *server->executor(); // which outlives all streams
        Stream& opened = *stream;
        std::shared_ptr<StreamEvents> events;
        if (kind == StreamKind::control) {
            auto session = std::make_shared<ControlSession>(
                std::move(stream), exported(), name, limits.wantedFilters, executor);
            remember(controls, session);
            events = session;
        } else {
            auto session = std::make_shared<CallSession>(
                std::move(stream), std::move(peer), exported(), terms, executor);
            remember(calls, session);
            events = session;
        }
        opened.receive();
        return events;
    }

    std::shared_ptr<ExportTable> exported() {
        const std::lock_guard lock(mutex);
        return table;
    }

    template <class Session>
    struct Sessions {
        std::map<const void*, std::weak_ptr<Session>> known;
        std::size_t afterLastSweep = 0;
    };

    template <class Session>
    void remember(Sessions<Session>& sessions, const std::shared_ptr<Session>& session) {
        const std::lock_guard lock(mutex);
        if (sessions.known.size() >= 2 * sessions.afterLastSweep + 16) {
            std::erase_if(sessions.known, [](const auto& entry) { return entry.second.expired(); });
            sessions.afterLastSweep = sessions.known.size();
        }
        sessions.known[session.get()] = session;
    }

    template <class Session, class Visit>
    void forEach(Sessions<Session>& sessions, const Visit& visit) {
        std::vector<std::shared_ptr<Session>> alive;
        {
            const std::lock_guard lock(mutex);
            for (const auto& [address, session] : sessions.known) {
                if (auto living = session.lock()) {
                    alive.push_back(std::move(living));
                }
            }
        }
        for (const auto& session : alive) {
            visit(*session);
        }
    }

    template <class Visit>
    void forEachSession(const Visit& visit) {
        forEach(calls, visit);
    }

    template <class Visit>
    void forEachControl(const Visit& visit) {
        forEach(controls, visit);
    }

    const EndpointLimits limits;
    const std::string endpointId;
    const std::shared_ptr<CallTerms> terms;
    EndpointName name;
    std::vector<std::string> usedAddresses;

    std::mutex closing;
    bool closed = false; // guarded by closing
    Housekeeper housekeeper;
    std::shared_ptr<ExportTable> table;
    std::optional<GrpcServer> server;
    // The housekeeping thread's. Strangers can connect over TCP: they must not take the place of
    // local peers.
    Connections localConnections;
    Connections tcpConnections;
    std::uint64_t lastConnection = 0;
    std::unique_ptr<LocalListener> local;
    std::vector<std::unique_ptr<TcpListener>> tcp;

    std::mutex mutex;
    Sessions<ControlSession> controls;
    Sessions<CallSession> calls;
};

Endpoint::Endpoint(const EndpointOptions& options) {
    check(options);
    impl = std::make_shared<Impl>(options);
    try {
        impl->open(options);
    } catch (...) {
        impl->close(); // peers may have connected to what was there already
        throw;
    }
}

Endpoint::~Endpoint() {
    end();
}

Endpoint::Endpoint(Endpoint&&) noexcept = default;

Endpoint& Endpoint::operator=(Endpoint&& other) noexcept {
    if (this != &other) {
        end();
        impl = std::move(other.impl);
    }
    return *this;
}

void Endpoint::close() noexcept {
    if (impl && impl->isOfThisProcess()) {
        impl->close();
    }
}

void Endpoint::end() noexcept {
    close();
    if (impl && !impl->isOfThisProcess()) {
        // Its threads are the parent's, and so are its connections: nothing of it may be touched.
        Housekeeper::leaveToParent(std::move(impl));
    }
}

const std::string& Endpoint::id() const noexcept {
    return impl->id();
}

const std::vector<std::string>& Endpoint::addresses() const noexcept {
    return impl->addresses();
}

} // namespace agent::orvi::remoting
