#include "sessions/ExporterControl.hpp"

#include "sessions/ScriptedService.hpp"
#include "wire/AnyFrame.hpp"

#include "Target.hpp"

#include "exports/ControlSession.hpp"
#include "support/Registry.hpp"
#include "wire/FrameLimits.hpp"

#include <cppmicroservices/LDAPFilter.h>

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace agent::orvi::fuzz {
namespace {

using namespace remoting::details;

/// The peer's side of a control stream.
class Peer {
public:
    explicit Peer(Input& input)
        : input(input) {
        stream->whenSent = [this](const std::string& frame) { hear(frame); };
    }

    void begin() {
        v1::Frame hello;
        hello.mutable_hello()->set_major(input.oneIn(16) ? input.byte() : protocolMajor);
        if (input.oneIn(16)) {
            hello = anyFrame(input);
        }
        stream->deliver(encoded(hello, {}), input.below(20) + 1);
    }

    void sendSomething() {
        if (!stream->isListening()) {
            return;
        }
        const std::size_t way = input.below(12);
        if (way == 0) {
            certain = false;
            stream->deliver(input.text(40), 5);
            return;
        }
        v1::Frame frame;
        if (way == 1) {
            frame = anyFrame(input);
        } else if (way < 5) {
            frame.mutable_unwant()->set_id(input.below(6));
        } else {
            frame.mutable_want()->set_id(input.below(6));
            frame.mutable_want()->set_filter(anyFilter(input));
        }
        if (frame.has_want()) {
            // Twice the same number is the stream's end.
            wants.emplace(looked++, LookUp{frame.want().id(), frame.want().filter()});
        } else if (frame.has_unwant()) {
            std::erase_if(
                wants, [&](const auto& want) { return want.second.number == frame.unwant().id(); });
        }
        stream->deliver(encoded(frame, {}), input.below(40) + 1);
    }

    /// Once nothing more happens.
    void checkSettled(const ExportTable& table) const {
        if (stream->isEnding() || !certain) {
            return;
        }
        require(stream->isListening(), "an endpoint that has nothing to say listens");
        require(settled == looked, "every look-up is settled, once");
        for (const std::uint64_t number : offered) {
            require(table.find(number) != nullptr, "what is gone has been withdrawn");
        }
        for (std::uint64_t number = 0; number < lastService; ++number) {
            const auto service = table.find(number);
            const bool matches =
                service && std::any_of(wants.begin(), wants.end(), [&](const auto& want) {
                    return cppmicroservices::LDAPFilter(want.second.filter).Match(service->asMap);
                });
            require(
                !service || matches == offered.contains(number),
                "what is looked for is offered, and nothing else");
        }
    }

    void expectServicesBelow(std::uint64_t number) { lastService = std::max(lastService, number); }

    const std::shared_ptr<ScriptedStream> stream = std::make_shared<ScriptedStream>();

private:
    void hear(const std::string& bytes) {
        v1::Frame frame;
        require(frame.ParseFromString(bytes), "an endpoint sends frames");
        if (!std::exchange(hasHeard, true)) {
            require(frame.has_hello(), "an endpoint greets first");
            return;
        }
        if (frame.has_offer()) {
            const std::uint64_t number = frame.offer().service();
            require(offered.insert(number).second, "a service is offered once");
            require(frame.offer().has_interface(), "an offer describes the service");
        } else if (frame.has_withdrawal()) {
            offered.erase(frame.withdrawal().service());
        } else {
            require(frame.has_settled(), "an endpoint says what there is");
            if (!frame.settled().refusal().empty()) {
                wants.erase(settled);
            }
            ++settled;
        }
    }

    struct LookUp {
        std::uint64_t number;
        std::string filter;
    };

    Input& input;
    bool certain = true; // about what was sent
    std::size_t looked = 0;
    std::map<std::size_t, LookUp> wants; // in the order in which they were sent
    bool hasHeard = false;
    std::size_t settled = 0;
    std::set<std::uint64_t> offered;
    std::uint64_t lastService = 0;
};

} // namespace

void fuzzExporterControl(Input& input) {
    const auto executor = std::make_shared<ScriptedExecutor>();
    const auto table = ExportTable::open(streambuf::test::registryContext(), "endpoint", executor);
    const std::size_t maximumWants = input.oneIn(4) ? 3 : 100;
    Peer peer(input);
    auto session = std::make_shared<ControlSession>(
        peer.stream, table, EndpointName{"framework", "endpoint"}, maximumWants, *executor);
    peer.stream->follow(session);
    peer.stream->receive();
    peer.begin();

    std::vector<std::unique_ptr<ScriptedService>> services;
    while (!input.empty()) {
        switch (input.below(12)) {
        case 0:
        case 1:
        case 2:
        case 3:
            peer.sendSomething();
            break;
        case 4:
        case 5:
            executor->runNext();
            break;
        case 6:
        case 7:
            peer.stream->acknowledge();
            break;
        case 8:
            if (services.size() < 6) {
                services.push_back(std::make_unique<ScriptedService>(
                    anyServiceName(input), static_cast<long>(input.below(3))));
                peer.expectServicesBelow(services.back()->number() + 1);
            }
            break;
        case 9:
            if (!services.empty()) {
                services.erase(
                    services.begin() + static_cast<std::ptrdiff_t>(input.below(services.size())));
            }
            break;
        case 10:
            peer.stream->conclude();
            break;
        default:
            if (input.oneIn(8)) {
                peer.stream->lose(anyEnd(input));
            } else if (input.oneIn(8)) {
                session->sayGoodbye();
            }
        }
    }
    const auto settle = [&] {
        while (executor->runNext() || peer.stream->acknowledge() || peer.stream->conclude()) {
        }
    };
    settle();
    peer.checkSettled(*table);
    peer.stream->lose({StreamEnd::Kind::disconnected, {}});
    settle();
    services.clear();
    table->close();
    const std::weak_ptr<ControlSession> watch = session;
    session.reset();
    require(watch.expired(), "nothing holds on to a stream that is over");
}

} // namespace agent::orvi::fuzz
