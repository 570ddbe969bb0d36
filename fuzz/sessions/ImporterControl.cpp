#include "sessions/ImporterControl.hpp"

#include "sessions/AnyEnd.hpp"
#include "wire/AnyFrame.hpp"

#include "Target.hpp"

#include "imports/ImportTable.hpp"
#include "support/Registry.hpp"
#include "wire/FrameLimits.hpp"

#include <orvi/core/Connectable.hpp>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/ListenerToken.h>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace agent::orvi::fuzz {
namespace {

using namespace remoting::details;
using core::Invokable;
using cppmicroservices::any_cast;

using References = std::vector<cppmicroservices::ServiceReference<Invokable>>;

References imported() {
    return streambuf::test::registryContext().GetServiceReferences<Invokable>(
        "(service.imported=true)");
}

/// The endpoint's side of a control stream.
class Peer {
public:
    Peer(Input& input, ScriptedConnection& connection)
        : input(input)
        , connection(connection) {
        connection.whenOpened = [](ScriptedStream& stream) {
            stream.whenSent = [](const std::string& bytes) {
                v1::Frame frame;
                require(frame.ParseFromString(bytes), "an importer sends frames");
            };
        };
    }

    ScriptedStream& stream() { return *connection.streams.front(); }

    void begin() {
        v1::Frame frame;
        frame.mutable_hello()->set_major(input.oneIn(16) ? 2 : protocolMajor);
        frame.mutable_hello()->set_framework("another");
        frame.mutable_hello()->set_endpoint("endpoint");
        if (input.oneIn(16)) {
            frame = anyFrame(input);
        }
        send(frame);
    }

    void sendSomething() {
        v1::Frame frame;
        switch (input.below(8)) {
        case 0:
            frame = anyFrame(input);
            break;
        case 1:
        case 2:
            frame.mutable_withdrawal()->set_service(input.below(4));
            frame.mutable_withdrawal()->set_unwanted(input.oneIn(3));
            break;
        case 3:
            frame.mutable_settled()->set_id(input.below(20));
            if (input.oneIn(4)) {
                frame.mutable_settled()->set_refusal("why");
            }
            break;
        case 4:
            stream().deliver(input.text(60), 9);
            certain = false;
            return;
        default:
            fillOffer(input, *frame.mutable_offer());
        }
        send(frame);
    }

    /// Check what the registry holds once nothing more happens.
    void checkImported() {
        const References services = imported();
        if (stream().isOver()) {
            require(services.empty(), "what a lost peer has offered is gone");
            return;
        }
        require(
            stream().isEnding() || stream().isListening(),
            "an importer that has nothing to do listens");
        for (const auto& service : services) {
            const auto id = any_cast<std::string>(service.GetProperty("endpoint.id"));
            require(id.starts_with(endpoint + "/"), "an imported service is known by its endpoint");
            require(
                !certain || offered.contains(std::stoull(id.substr(endpoint.size() + 1))),
                "an imported service is one that is offered");
            require(
                any_cast<std::string>(service.GetProperty("endpoint.framework.uuid")) == framework,
                "an imported service is known by its framework");
        }
    }

private:
    void send(const v1::Frame& frame) {
        if (!stream().isListening()) {
            return;
        }
        if (frame.has_hello()) {
            endpoint = frame.hello().endpoint();
            framework = frame.hello().framework();
        } else if (frame.has_offer()) {
            offered.insert(frame.offer().service());
        } else if (frame.has_withdrawal() && !frame.withdrawal().unwanted()) {
            offered.erase(frame.withdrawal().service());
        }
        stream().deliver(encoded(frame, {}), input.below(60) + 1);
    }

    Input& input;
    ScriptedConnection& connection;
    bool certain = true; // about what was sent
    std::string endpoint;
    std::string framework;
    std::set<std::uint64_t> offered;
};

/// Looks for services while it lives.
class LookUp {
public:
    explicit LookUp(const std::string& filter)
        : token(streambuf::test::registryContext().AddServiceListener(
              [](const cppmicroservices::ServiceEvent&) {}, filter)) {}

    ~LookUp() { streambuf::test::registryContext().RemoveListener(std::move(token)); }

    LookUp(const LookUp&) = delete;
    LookUp& operator=(const LookUp&) = delete;

private:
    cppmicroservices::ListenerToken token;
};

/// Call an imported service whose peer does not answer.
void call(Input& input, ScriptedConnection& connection, ScriptedExecutor& executor) {
    const References services = imported();
    if (services.empty()) {
        return;
    }
    auto service =
        streambuf::test::registryContext().GetService(services[input.below(services.size())]);
    if (input.oneIn(2)) {
        service = dynamic_cast<core::Connectable&>(*service).connect();
    }
    connection.refuseNext = input.oneIn(4);
    const std::size_t patience = input.below(4);
    std::size_t steps = 0;
    executor.step = [&] {
        if (++steps > patience) {
            connection.streams.back()->lose({StreamEnd::Kind::terminated, {}});
        }
        return executor.runNext() || connection.settle() || steps <= patience;
    };
    std::size_t outcomes = 0;
    service->invoke(
        std::nullopt, "read",
        {[&](core::GenericPayload) { fail("nobody has answered"); },
         [&](const std::exception_ptr& error) {
             require(error != nullptr, "an error says what it is");
             ++outcomes;
         }},
        core::GenericPayload::fromValues(std::int64_t{10}), false);
    require(outcomes == 1, "a call ends once");
}

} // namespace

void fuzzImporterControl(Input& input) {
    const auto connection = std::make_shared<ScriptedConnection>();
    const auto executor = std::make_shared<ScriptedExecutor>();
    Peer peer(input, *connection);
    std::vector<std::unique_ptr<LookUp>> lookUps;
    const auto addLookUp = [&] {
        constexpr std::size_t most = 6;
        if (lookUps.size() < most) {
            lookUps.push_back(std::make_unique<LookUp>(
                input.oneIn(4) ? "(&(orvi.servicename=*)(size>=1))"
                               : "(orvi.servicename=" + anyServiceName(input) + ")"));
        }
    };
    addLookUp();
    std::size_t lost = 0;
    auto table = ImportTable::open(
        streambuf::test::registryContext(), executor,
        [&](PeerLink&, const StreamEnd* end) { lost += end == nullptr ? 0 : 1; });
    table->connect(connection, "unix:peer");
    peer.begin();
    while (!input.empty()) {
        switch (input.below(14)) {
        case 0:
        case 1:
        case 2:
        case 3:
        case 4:
            peer.sendSomething();
            break;
        case 5:
        case 6:
        case 7:
            executor->runNext();
            break;
        case 8:
        case 9:
            peer.stream().acknowledge();
            break;
        case 10:
            addLookUp();
            break;
        case 11:
            if (!lookUps.empty()) {
                lookUps.erase(
                    lookUps.begin() + static_cast<std::ptrdiff_t>(input.below(lookUps.size())));
            }
            break;
        case 12:
            call(input, *connection, *executor);
            break;
        default:
            if (input.oneIn(8)) {
                peer.stream().lose(anyEnd(input));
            }
            peer.stream().conclude();
        }
    }
    const auto settle = [&] {
        while (executor->runNext() || connection->settle()) {
        }
    };
    settle();
    peer.checkImported();
    table->close({StreamEnd::Kind::disconnected, "The importer is closed."});
    settle();
    require(lost == 1, "the loss of a peer is told once");
    require(imported().empty(), "an importer that is closed leaves nothing behind");
    require(
        table->awaitIdle(std::chrono::steady_clock::time_point()),
        "an importer that is closed has nothing left to do");
    lookUps.clear();
    connection->streams.clear();
    const std::weak_ptr<ImportTable> watch = table;
    table.reset();
    require(watch.expired(), "nothing holds on to an importer that is closed");
}

} // namespace agent::orvi::fuzz
