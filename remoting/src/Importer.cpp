#include <orvi/remoting/Importer.hpp>

#include "carrier/AwaitMemory.hpp"
#include "carrier/TimeLimit.hpp"
#include "discovery/Housekeeper.hpp"
#include "discovery/LocalAddress.hpp"
#include "discovery/LocalPeers.hpp"
#include "discovery/ProcessWatch.hpp"
#include "discovery/RuntimeDirectory.hpp"
#include "discovery/TargetPeers.hpp"
#include "grpc/CertificateFiles.hpp"
#include "grpc/ClientConnection.hpp"
#include "grpc/Credentials.hpp"
#include "imports/ImportTable.hpp"

#include <foundation/cppmicroservices/getFramework.hpp>

#include <cppmicroservices/Framework.h>

#include <boost/asio/ip/address.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace agent::orvi::remoting {
namespace {

using namespace details;

constexpr std::size_t importTasks = 4;
/// What streams have to end while an importer closes, and what the threads have then.
constexpr std::chrono::milliseconds closeTime{1000};
constexpr std::chrono::milliseconds reactorEndTime{500};

/// A local endpoint that has been lost while its socket is still there is tried again: at once at
/// first, then ever more slowly.
constexpr std::chrono::milliseconds firstRetry{50};
constexpr std::chrono::milliseconds longestRetry{5000};

/// A local endpoint that accepts nothing, though it is there, is only called failed when it is
/// tried more slowly than this.
constexpr std::chrono::milliseconds longestBusyRetry{500};

/// A connection that has lasted for this long was not in vain: the next attempt follows soon again.
constexpr std::chrono::milliseconds usefulTime{5000};

/// How often attempts to connect to targets are made sooner because a look-up begins.
constexpr std::chrono::milliseconds hurryTime{1000};

constexpr std::string_view socketPrefix = "unix:"; // of the addresses of local endpoints

void check(const ImporterOptions& options) {
    const auto demand = [](bool holds, const char* text) {
        if (!holds) {
            throw std::invalid_argument(text);
        }
    };
    demand(
        options.keepaliveTime.count() > 0 && options.keepaliveTimeout.count() > 0,
        "The keepalive times must be positive.");
    demand(
        options.busyPolling.count() >= 0 && options.busyPolling <= longestBusyPolling,
        "The time of busy polling must be from 0 to 10 ms.");
    demand(
        options.local || !options.targets.empty(),
        "An importer needs the local directory or a target.");
    demand(
        options.targets.empty() || options.tls || options.plainLoopback,
        "Targets need TLS files, or plainLoopback for loopback addresses.");
}

bool isLoopback(const TargetAddress& address) {
    return boost::asio::ip::make_address(address.numeric.host).is_loopback();
}

/// Write an address as gRPC wants it.
std::string grpcAddress(const TargetAddress& address) {
    return (address.numeric.host.find(':') == std::string::npos ? "ipv4:" : "ipv6:") +
           address.address();
}

} // namespace

class Importer::Impl : public std::enable_shared_from_this<Importer::Impl> {
public:
    explicit Impl(const ImporterOptions& options)
        : keepalive{options.keepaliveTime, options.keepaliveTimeout}
        , certificates(options.tls ? std::make_unique<CertificateFiles>(*options.tls) : nullptr) {}

    ~Impl() { close(); }

    bool isOfThisProcess() const noexcept { return housekeeper.isOfThisProcess(); }

    void open(const ImporterOptions& options) {
        const auto context = foundation::cppmicroservices::getFramework()->GetBundleContext();
        reactor = Reactor::start(
            std::make_unique<grpc::CompletionQueue>(), importTasks, options.busyPolling);
        table = ImportTable::open(
            context, reactor,
            [self = weak_from_this()](PeerLink& link, const StreamEnd* end) {
                if (const auto alive = self.lock()) {
                    alive->linkChanged(link, end);
                }
            },
            options.limits,
            options.targets.empty() ? std::function<void()>() : [self = weak_from_this()] {
                if (const auto alive = self.lock()) {
                    alive->lookUpBegun();
                }
            });
        // What they report finds both of them there.
        housekeeper.runAndWait([&] { lookForPeers(options); });
        // What a handler posts is queued when it ends, which is after others hear of its end: what
        // is posted from here on comes behind the look into the directory.
        housekeeper.runAndWait([] {});
    }

    void close() noexcept {
        const std::lock_guard lock(closing);
        if (!reactor) {
            return;
        }
        // The housekeeping thread lets go of those who look for peers before they end.
        housekeeper.runAndWait([this] {
            closed = true;
            processes.clear();
            retries.clear();
        });
        localPeers.reset();
        targets.reset();
        using Clock = std::chrono::steady_clock;
        const StreamEnd end{StreamEnd::Kind::disconnected, "The importer has been closed"};
        const auto streamLimit = Clock::now() + closeTime;
        const auto open = takeConnections();
        if (table) {
            table->close(end);
        }
        for (const auto& connection : open) {
            connection->close(end);
        }
        if (table) {
            table->awaitIdle(streamLimit);
        }
        for (const auto& connection : open) {
            connection->awaitStreams(streamLimit);
        }
        reactor->stop(Clock::now() + reactorEndTime);
        reactor.reset();
        housekeeper.stop();
    }

    std::vector<PeerStatus> peers() const {
        const std::lock_guard lock(mutex);
        std::vector<PeerStatus> result;
        for (const auto& [address, status] : statuses) {
            result.push_back(status);
        }
        return result;
    }

    bool waitUntilSettled(std::chrono::milliseconds time) {
        const auto limit = timeLimitIn(time);
        housekeeper.runAndWait([] {}); // the directory has been looked at then
        return table->awaitSettled(limit, [this] {
            const auto known = peers();
            return table->isSettled() &&
                   std::none_of(known.begin(), known.end(), [](const PeerStatus& peer) {
                       return peer.state == PeerStatus::State::connecting;
                   });
        });
    }

private:
    // Members below run on the housekeeping thread unless they say otherwise.

    void lookForPeers(const ImporterOptions& options) {
        if (!options.targets.empty()) {
            // Whoever waits for answers waits for those whose names are not resolved yet, too.
            for (const std::string& target : options.targets) {
                unresolved.insert(target);
                setStatus({target, PeerStatus::State::connecting, "", ""});
            }
            targets = std::make_unique<TargetPeers>(
                housekeeper, options.targets,
                TargetPeers::Callbacks{
                    [this](const TargetAddress& address) { connectTarget(address); },
                    [this](const std::string& target, const std::vector<TargetAddress>& addresses) {
                        targetResolved(target, addresses);
                    },
                    [this](const std::string& target, const std::string& reason) {
                        unresolved.insert(target);
                        setStatus({target, PeerStatus::State::failed, "", reason});
                    }});
        }
        if (options.local) {
            localPeers = std::make_unique<LocalPeers>(
                housekeeper, RuntimeDirectory(options.runtimeDirectory),
                [this](const std::filesystem::path& socket) {
                    awaitMemoryFor([&] {
                        present.insert(socket);
                        connectSocket(socket);
                    });
                },
                [this](const std::filesystem::path& socket) { socketGone(socket); });
        }
    }

    void connectSocket(const std::filesystem::path& socket) {
        if (closed || !present.contains(socket)) {
            return;
        }
        const std::string address = "unix:" + socket.string();
        setStatus({address, PeerStatus::State::connecting, "", ""});
        try {
            const LocalPeer peer = connectLocal(socket);
            auto connection =
                ClientConnection::local(reactor, peer.descriptor, peer.process, keepalive);
            // A child that it has forked may hold its sockets open when it has ended.
            processes[socket] = watchProcess(
                housekeeper, peer.process, [this, socket, weak = std::weak_ptr(connection)] {
                    if (const auto alive = weak.lock()) {
                        alive->close(processHasEnded());
                    }
                    localPeers->check(socket);
                });
            connect(std::move(connection), address);
        } catch (const std::exception& error) {
            if (!mayAcceptSoon(socket, error)) {
                setStatus({address, PeerStatus::State::failed, "", error.what()});
            }
            localPeers->check(socket);
            retrySocket(socket);
        }
    }

    /// Say whether a connection has failed because the endpoint has too many to accept, as many do
    /// that all of a machine's importers connect to at once.
    bool mayAcceptSoon(const std::filesystem::path& socket, const std::exception& error) const {
        const auto* const failure = dynamic_cast<const std::system_error*>(&error);
        const auto retry = retries.find(socket);
        return failure != nullptr && failure->code() == std::errc::resource_unavailable_try_again &&
               (retry == retries.end() || retry->second.delay <= longestBusyRetry);
    }

    void socketGone(const std::filesystem::path& socket) {
        present.erase(socket);
        retries.erase(socket);
        {
            const std::lock_guard lock(mutex);
            const auto status = statuses.find("unix:" + socket.string());
            if (status != statuses.end() && status->second.state != PeerStatus::State::connected) {
                statuses.erase(status);
            }
        }
        table->lookAgain();
    }

    void retrySocket(const std::filesystem::path& socket) {
        if (closed || !present.contains(socket)) {
            return;
        }
        Retry& retry = retries.try_emplace(socket, housekeeper.context()).first->second;
        retry.timer.expires_after(retry.delay);
        retry.delay = std::min(2 * retry.delay, longestRetry);
        retry.timer.async_wait([this, socket](const boost::system::error_code& error) {
            if (!error) {
                awaitMemoryFor([&] { connectSocket(socket); });
            }
        });
    }

    void targetResolved(const std::string& target, const std::vector<TargetAddress>& addresses) {
        unresolved.erase(target);
        std::set<std::string>& named = addressesOfTarget[target];
        named.clear();
        for (const TargetAddress& address : addresses) {
            named.insert(address.address());
        }
        forgetUnnamedTargets();
        table->lookAgain();
    }

    /// Forget what is not connected and what no target leads to any more.
    void forgetUnnamedTargets() {
        const auto isNamed = [this](const std::string& address) {
            return unresolved.contains(address) || connectedTargets.contains(address) ||
                   std::any_of(
                       addressesOfTarget.begin(), addressesOfTarget.end(),
                       [&](const auto& target) { return target.second.contains(address); });
        };
        const std::lock_guard lock(mutex);
        std::erase_if(statuses, [&](const auto& status) {
            return !status.first.starts_with(socketPrefix) && !isNamed(status.first);
        });
    }

    void connectTarget(const TargetAddress& address) {
        if (closed) {
            return;
        }
        const std::string name = address.address();
        if (!certificates && !isLoopback(address)) {
            // It is not lost, and so is not tried again: that would not be allowed either.
            setStatus(
                {name, PeerStatus::State::failed, "",
                 "Without TLS, only loopback addresses are connected to."});
            return;
        }
        setStatus({name, PeerStatus::State::connecting, "", ""});
        try {
            connectedTargets.insert_or_assign(name, address);
            connect(
                ClientConnection::tcp(
                    reactor, grpcAddress(address), address.hostName,
                    certificates ? clientCredentials(*certificates->current()) : nullptr,
                    keepalive),
                name);
        } catch (const std::exception& error) {
            connectedTargets.erase(name);
            setStatus({name, PeerStatus::State::failed, "", error.what()});
            throw;
        }
    }

    /// Make attempts that wait now, since somebody has begun to look for what they may find; not
    /// all the time, as many look-ups may begin. Any thread.
    void lookUpBegun() noexcept {
        using Clock = std::chrono::steady_clock;
        const Clock::rep now = Clock::now().time_since_epoch().count();
        Clock::rep next = nextHurry.load(std::memory_order_relaxed);
        const Clock::rep later = now + Clock::duration(hurryTime).count();
        if (now < next ||
            !nextHurry.compare_exchange_strong(next, later, std::memory_order_relaxed)) {
            return;
        }
        try {
            boost::asio::post(housekeeper.context(), [weak = weak_from_this()] {
                if (const auto self = weak.lock(); self && !self->closed && self->targets) {
                    self->targets->hurry();
                }
            });
        } catch (...) {
            // They are made in their own time.
        }
    }

    void connect(std::shared_ptr<ClientConnection> connection, const std::string& address) {
        {
            const std::lock_guard lock(mutex);
            std::erase_if(connections, [](const auto& known) { return known.expired(); });
            connections.push_back(connection);
        }
        table->connect(std::move(connection), address);
    }

    /// Any thread.
    void linkChanged(PeerLink& link, const StreamEnd* end) {
        const std::string& address = link.address();
        PeerStatus status{address, PeerStatus::State::connected, link.endpoint(), link.refusal()};
        if (end != nullptr) {
            status.state = PeerStatus::State::failed;
            status.error = end->text.empty() ? "The endpoint is gone." : end->text;
        }
        setStatus(std::move(status)); // first: the housekeeping thread may find it to be gone
        boost::asio::post(
            housekeeper.context(),
            [weak = weak_from_this(), address = std::string(address), lost = end != nullptr,
             own = end != nullptr && end->kind == StreamEnd::Kind::cancelled] {
                if (const auto self = weak.lock()) {
                    self->noteLink(address, lost, own);
                }
            });
    }

    void noteLink(const std::string& address, bool lost, bool own) {
        if (closed) {
            return;
        }
        const auto now = std::chrono::steady_clock::now();
        if (!lost) {
            connectedSince.try_emplace(address, now);
            return;
        }
        const auto since = connectedSince.extract(address);
        const bool wasUseful = since && now - since.mapped() >= usefulTime;
        if (const auto target = connectedTargets.extract(address)) {
            awaitMemoryFor([&] { targets->lost(target.mapped(), wasUseful); });
            return;
        }
        awaitMemoryFor([&] { socketLost(address, wasUseful, own); });
    }

    void socketLost(const std::string& address, bool wasUseful, bool own) {
        const std::filesystem::path socket = address.substr(socketPrefix.size());
        if (wasUseful) {
            retries.erase(socket);
        }
        processes.erase(socket);
        if (own || !present.contains(socket)) {
            {
                const std::lock_guard lock(mutex);
                statuses.erase(address);
            }
            table->lookAgain();
            return;
        }
        localPeers->check(socket);
        retrySocket(socket);
    }

    /// Any thread.
    void setStatus(PeerStatus status) {
        {
            const std::lock_guard lock(mutex);
            statuses[status.address] = std::move(status);
        }
        table->lookAgain();
    }

    std::vector<std::shared_ptr<ClientConnection>> takeConnections() {
        std::vector<std::shared_ptr<ClientConnection>> taken;
        const std::lock_guard lock(mutex);
        for (const auto& known : connections) {
            if (auto alive = known.lock()) {
                taken.push_back(std::move(alive));
            }
        }
        return taken;
    }

    struct Retry {
        explicit Retry(boost::asio::io_context& context)
            : timer(context) {}

        boost::asio::steady_timer timer;
        std::chrono::milliseconds delay = firstRetry;
    };

    const Keepalive keepalive;
    const std::unique_ptr<CertificateFiles> certificates; // null without TLS

    std::mutex closing;
    Housekeeper housekeeper;
    std::shared_ptr<Reactor> reactor;
    std::shared_ptr<ImportTable> table;

    // Of the housekeeping thread:
    bool closed = false;
    std::set<std::filesystem::path> present;
    std::map<std::filesystem::path, Retry> retries;
    std::map<std::filesystem::path, ProcessWatch> processes;
    std::map<std::string, TargetAddress> connectedTargets; // by address, connecting ones as well
    std::map<std::string, std::chrono::steady_clock::time_point> connectedSince;
    std::map<std::string, std::set<std::string>> addressesOfTarget; // as they were resolved last
    std::set<std::string> unresolved;                               // targets

    std::unique_ptr<LocalPeers> localPeers;
    std::unique_ptr<TargetPeers> targets;

    std::atomic<std::chrono::steady_clock::rep> nextHurry{0};

    mutable std::mutex mutex;
    std::map<std::string, PeerStatus> statuses; // by address
    std::vector<std::weak_ptr<ClientConnection>> connections;
};

Importer::Importer(const ImporterOptions& options) {
    check(options);
    impl = std::make_shared<Impl>(options);
    impl->open(options);
}

Importer::~Importer() {
    end();
}

Importer::Importer(Importer&&) noexcept = default;

Importer& Importer::operator=(Importer&& other) noexcept {
    if (this != &other) {
        end();
        impl = std::move(other.impl);
    }
    return *this;
}

void Importer::close() noexcept {
    if (impl && impl->isOfThisProcess()) {
        impl->close();
    }
}

void Importer::end() noexcept {
    close();
    if (impl && !impl->isOfThisProcess()) {
        // Its threads are the parent's, and so are its connections: nothing of it may be touched.
        Housekeeper::leaveToParent(std::move(impl));
    }
}

std::vector<PeerStatus> Importer::peers() const {
    return impl->peers();
}

bool Importer::waitUntilSettled(std::chrono::milliseconds time) const {
    return impl->waitUntilSettled(time);
}

} // namespace agent::orvi::remoting
