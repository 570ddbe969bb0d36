#include "streams/Neighbours.hpp"

#include "terminal/Failure.hpp"

#include <foundation/cppmicroservices/getFramework.hpp>
#include <orvi/core/Invokable.hpp>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/LDAPFilter.h>
#include <cppmicroservices/ServiceException.h>
#include <cppmicroservices/ServiceTracker.h>

#include <boost/uuid/uuid_io.hpp>

#include <algorithm>
#include <future>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <typeinfo>
#include <utility>

namespace agent::orvi::tool {
namespace {

/// How long endpoints that are there may take to answer when nobody wants to wait for others.
constexpr std::chrono::seconds answerTime{20};

/// More than it takes to connect to a stream that has been found.
constexpr std::chrono::milliseconds connectTime{1000};

using Clock = std::chrono::steady_clock;
using Tracker = cppmicroservices::ServiceTracker<core::Invokable>;
using State = remoting::PeerStatus::State;

remoting::ImporterOptions importerOptions(const SearchOptions& options) {
    remoting::ImporterOptions result;
    result.local = options.network.local;
    result.runtimeDirectory = options.network.runtimeDirectory;
    result.targets = options.targets;
    result.tls = options.network.tls;
    result.plainLoopback = options.network.plainLoopback;
    return result;
}

remoting::Importer makeImporter(const SearchOptions& options) {
    try {
        return remoting::Importer(importerOptions(options));
    } catch (const remoting::UnusableTlsFile&) {
        throw; // the command line may well be right
    } catch (const std::invalid_argument& reason) {
        throw CommandFailure(ExitCode::wrongUsage, reason.what());
    }
}

void tellWhySilent(const std::vector<remoting::PeerStatus>& peers) {
    for (const auto& peer : peers) {
        warn(peer.address + ": " + (peer.error.empty() ? "no answer so far" : peer.error));
    }
}

/// Connect to a stream that has been found. The library waits for one that goes at this very moment
/// to come back; that is not waited for longer than the time given.
std::optional<streambuf::StreamBuffer>
connectWithin(std::chrono::milliseconds time, const boost::uuids::uuid& uuid) {
    std::packaged_task<streambuf::StreamBuffer()> connecting(
        [uuid] { return streambuf::makeDevice(uuid, streambuf::noCloseFunction()); });
    auto connected = connecting.get_future();
    std::thread(std::move(connecting)).detach();
    if (connected.wait_for(time) != std::future_status::ready) {
        return std::nullopt;
    }
    try {
        return connected.get();
    } catch (const cppmicroservices::ServiceException&) {
        return std::nullopt; // it went after it had been found for the second time
    } catch (const std::runtime_error& reason) {
        if (typeid(reason) == typeid(std::runtime_error)) {
            return std::nullopt; // it did not come back for as long as the library waits
        }
        throw;
    }
}

/// Return what is found first, nothing when there is none any more.
cppmicroservices::ServiceReference<core::Invokable> firstOf(const Tracker& tracker) {
    try {
        return tracker.GetServiceReference();
    } catch (const cppmicroservices::ServiceException&) {
        return {};
    }
}

std::chrono::milliseconds timeUntil(Clock::time_point end) {
    return std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
}

} // namespace

Neighbours::Neighbours(const SearchOptions& options)
    : timeout(options.timeout)
    , importer(makeImporter(options)) {}

ConnectedStream Neighbours::connect(const boost::uuids::uuid& uuid) {
    const auto end = Clock::now() + timeout;
    Tracker tracker(
        foundation::cppmicroservices::getFramework()->GetBundleContext(),
        cppmicroservices::LDAPFilter("(orvi.servicename=" + serviceName(uuid) + ")"));
    tracker.Open();
    if (timeout.count() == 0) {
        importer.waitUntilSettled(answerTime);
    }
    std::string missed = "no stream " + boost::uuids::to_string(uuid) + " was found" +
                         (timeout.count() == 0 ? "" : " within " + inSeconds(timeout));
    auto left = timeUntil(end);
    do {
        if (left.count() > 0) {
            tracker.WaitForService(left);
        }
        if (const auto reference = firstOf(tracker)) {
            const auto description = describe(reference);
            if (!description) {
                throw CommandFailure(ExitCode::error, "the service found is no stream");
            }
            if (auto device = connectWithin(std::max(timeUntil(end), connectTime), uuid)) {
                return {*description, std::move(*device)};
            }
            missed = "the stream " + boost::uuids::to_string(uuid) + " has been withdrawn";
        }
        left = timeUntil(end);
    } while (left.count() > 0);
    const auto silent = silentPeers();
    tellWhySilent(silent);
    // One of those that are silent may have it.
    throw CommandFailure(silent.empty() ? ExitCode::noSuchStream : ExitCode::peerLost, missed);
}

bool Neighbours::awaitAnswers() {
    importer.waitUntilSettled(timeout);
    const auto silent = silentPeers();
    tellWhySilent(silent);
    return silent.empty();
}

std::string Neighbours::addressOf(const StreamDescription& stream) const {
    for (const auto& peer : importer.peers()) {
        if (!peer.endpoint.empty() && stream.endpoint.starts_with(peer.endpoint + '/')) {
            return peer.address;
        }
    }
    return "";
}

std::vector<remoting::PeerStatus> Neighbours::silentPeers() const {
    auto peers = importer.peers();
    std::erase_if(peers, [](const auto& peer) { return peer.state == State::connected; });
    return peers;
}

std::string inSeconds(std::chrono::milliseconds time) {
    std::ostringstream text;
    text << std::chrono::duration<double>(time).count() << " s";
    return text.str();
}

} // namespace agent::orvi::tool
