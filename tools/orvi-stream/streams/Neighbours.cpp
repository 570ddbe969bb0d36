#include "streams/Neighbours.hpp"

#include "terminal/Failure.hpp"

#include <foundation/cppmicroservices/getFramework.hpp>
#include <orvi/core/Invokable.hpp>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/LDAPFilter.h>
#include <cppmicroservices/ServiceTracker.h>

#include <boost/uuid/uuid_io.hpp>

#include <sstream>
#include <stdexcept>

namespace agent::orvi::tool {
namespace {

/// How long endpoints that are there may take to answer when nobody wants to wait for others.
constexpr std::chrono::seconds answerTime{20};

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
    } catch (const std::invalid_argument& reason) {
        throw CommandFailure(ExitCode::wrongUsage, reason.what());
    }
}

void tellWhySilent(const std::vector<remoting::PeerStatus>& peers) {
    for (const auto& peer : peers) {
        warn(peer.address + ": " + (peer.error.empty() ? "no answer so far" : peer.error));
    }
}

} // namespace

Neighbours::Neighbours(const SearchOptions& options)
    : timeout(options.timeout)
    , importer(makeImporter(options)) {}

ConnectedStream Neighbours::connect(const boost::uuids::uuid& uuid) {
    Tracker tracker(
        foundation::cppmicroservices::getFramework()->GetBundleContext(),
        cppmicroservices::LDAPFilter("(orvi.servicename=" + serviceName(uuid) + ")"));
    tracker.Open();
    if (timeout.count() == 0) {
        importer.waitUntilSettled(answerTime);
    } else {
        tracker.WaitForService(timeout);
    }
    if (tracker.IsEmpty()) {
        const auto silent = silentPeers();
        tellWhySilent(silent);
        throw CommandFailure(
            silent.empty() ? ExitCode::noSuchStream : ExitCode::peerLost, // one may have it
            "no stream " + boost::uuids::to_string(uuid) + " was found" +
                (timeout.count() == 0 ? "" : " within " + inSeconds(timeout)));
    }
    const auto description = describe(tracker.GetServiceReference());
    if (!description) {
        throw CommandFailure(ExitCode::error, "the service found is no stream");
    }
    return {*description, streambuf::makeDevice(uuid, streambuf::noCloseFunction())};
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
