#include "sessions/ExporterCalls.hpp"

#include "sessions/ScriptedService.hpp"
#include "wire/AnyFrame.hpp"

#include "Target.hpp"

#include "exports/CallSession.hpp"
#include "support/Registry.hpp"
#include "wire/FrameLimits.hpp"

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace agent::orvi::fuzz {
namespace {

using namespace remoting::details;
using remoting::EndpointOptions;

const std::string serviceName = "orviStreambuf_1";

/// One client's side of a call stream: sends what the input says, and checks what it hears.
class Client {
public:
    Client(Input& input, ServiceScript& services)
        : input(input)
        , services(services) {
        stream->whenSent = [this](const std::string& frame) { hear(frame); };
    }

    /// Begin with a greeting, mostly.
    void begin(std::uint64_t service) {
        if (input.oneIn(16)) {
            send(anyFrame(input), {});
        } else {
            v1::Frame hello;
            hello.mutable_hello()->set_major(input.oneIn(16) ? 2 : protocolMajor);
            hello.mutable_hello()->set_service(service);
            send(hello, {});
        }
    }

    void sendSomething() {
        switch (input.below(8)) {
        case 0:
            stream->deliver(input.text(60), 7);
            lost = true; // what it was, nobody says
            break;
        case 1:
            send(anyFrame(input), input.text(40));
            break;
        case 2:
        case 3:
            sendData(input.below(300));
            break;
        default:
            sendRequest();
        }
    }

    const std::shared_ptr<ScriptedStream> stream = std::make_shared<ScriptedStream>();

    /// Say whether no call is under way, once nothing more happens.
    bool isIdle() const { return stream->isOver() || (!lost && unsent == 0); }

    /// Once nothing more happens.
    void checkAnswered() const {
        if (stream->isEnding()) {
            return;
        }
        require(stream->isListening(), "an endpoint that waits for nothing listens");
        require(missing == 0, "an answer is whole");
        if (!lost) {
            const bool incomplete = unsent > 0;
            require(
                replies == requests || (incomplete && replies + 1 == requests),
                "every call that is not one-way is answered, once");
        }
    }

private:
    void send(const v1::Frame& frame, const std::string& data) {
        if (!stream->isListening()) {
            return;
        }
        const bool isFirst = !std::exchange(greeted, true);
        if (!isFirst) {
            if (frame.has_request()) {
                requests += frame.request().one_way() ? 0 : 1;
                const std::uint64_t bytes = announced(frame.request().slots());
                unsent = bytes - std::min<std::uint64_t>(bytes, data.size());
            } else if (frame.has_abandon()) {
                unsent = 0;
            } else {
                unsent -= std::min<std::uint64_t>(unsent, data.size());
            }
        }
        stream->deliver(encoded(frame, data), input.below(40) + 1);
    }

    void sendRequest() {
        v1::Frame frame;
        v1::Request& request = *frame.mutable_request();
        request.set_method(input.oneOf<const char*>({"read", "write", "seekoff", "close"}));
        request.set_one_way(input.oneIn(5));
        if (request.method() == "read" && !input.oneIn(4)) {
            v1::Slot& count = *request.add_slots();
            count.set_type(v1::INT64);
            count.add_numbers(input.signedNumber());
        } else {
            fillSlots(input, *request.mutable_slots(), true);
        }
        const std::uint64_t bytes = announced(request.slots());
        const std::size_t now = input.oneIn(2) ? bytes : std::min<std::size_t>(bytes, input.byte());
        send(frame, std::string(now, 'd'));
    }

    void sendData(std::size_t most) {
        const std::uint64_t count = std::min<std::uint64_t>(unsent, most);
        send(v1::Frame(), std::string(input.oneIn(16) ? most : count, 'd'));
    }

    void hear(const std::string& bytes) {
        v1::Frame frame;
        require(frame.ParseFromString(bytes), "an endpoint sends frames");
        const std::string data = frame.data();
        frame.clear_data();
        if (!std::exchange(hasHeard, true)) {
            require(frame.has_hello() && data.empty(), "an endpoint greets first");
            return;
        }
        if (missing > 0) {
            require(frame.body_case() == v1::Frame::BODY_NOT_SET, "an answer is not interrupted");
            require(data.size() <= missing, "an answer has the bytes that were announced");
            missing -= data.size();
            answer += data;
        } else {
            require(frame.has_answer() || frame.has_failure(), "an endpoint answers");
            ++replies;
            require(replies <= requests || lost, "nothing is answered twice");
            if (!frame.has_answer()) {
                return;
            }
            missing = announced(frame.answer().slots()) - data.size();
            require(missing < std::uint64_t{1} << 32, "an answer has no more than it announces");
            answer = frame.SerializeAsString() + data;
        }
        if (missing == 0) {
            require(services.take(answer), "an answer is what a service has answered");
        }
    }

    Input& input;
    ServiceScript& services;
    bool greeted = false;
    bool lost = false;        // the count of requests
    std::size_t requests = 0; // that want an answer
    std::uint64_t unsent = 0; // bytes of the last request
    bool hasHeard = false;
    std::size_t replies = 0;
    std::uint64_t missing = 0; // bytes of the last answer
    std::string answer;
};

EndpointOptions anyOptions(Input& input) {
    EndpointOptions options;
    options.callOrder =
        input.oneIn(3) ? remoting::CallOrder::concurrent : remoting::CallOrder::oneAtATime;
    options.positionPerConnection = input.oneIn(3);
    options.limits.callsInFlight = input.below(3) + 1;
    options.limits.bytesPerCall = input.oneIn(2) ? 500 : std::uint64_t{2} << 30;
    options.limits.bytesInFlight = input.oneIn(2) ? 800 : std::uint64_t{8} << 30;
    if (input.oneIn(4)) {
        options.access = {{"uid:1", "*", "write", false}};
    }
    return options;
}

} // namespace

void fuzzExporterCalls(Input& input) {
    static ScriptedService published(serviceName, 1);
    const EndpointOptions options = anyOptions(input);
    const auto executor = std::make_shared<ScriptedExecutor>();
    ServiceScript services(input);
    published.follow(&services);
    const auto table = ExportTable::open(streambuf::test::registryContext(), "endpoint", executor);
    const auto terms = std::make_shared<CallTerms>(options);

    std::vector<std::unique_ptr<Client>> clients;
    std::vector<std::shared_ptr<CallSession>> sessions;
    for (std::size_t count = input.below(3) + 1; count > 0; --count) {
        auto& client = *clients.emplace_back(std::make_unique<Client>(input, services));
        sessions.push_back(std::make_shared<CallSession>(
            client.stream, PeerNames{"uid:1"}, table, terms, *executor));
        client.stream->follow(sessions.back());
        client.stream->receive();
        client.begin(input.oneIn(16) ? input.number() : published.number());
    }
    bool closed = false;
    while (!input.empty()) {
        const std::size_t chosen = input.below(clients.size());
        Client& client = *clients[chosen];
        switch (input.below(12)) {
        case 0:
        case 1:
        case 2:
        case 3:
            client.sendSomething();
            break;
        case 4:
        case 5:
        case 6:
            executor->runNext();
            break;
        case 7:
        case 8:
            client.stream->acknowledge();
            break;
        case 9:
            services.endWaiting();
            break;
        case 10:
            client.stream->conclude();
            break;
        default:
            if (input.oneIn(4)) {
                client.stream->lose(anyEnd(input));
            } else if (input.oneIn(4)) {
                closed = true;
                terms->budget.close();
            } else if (closed) {
                sessions[chosen]->abandon();
            }
        }
    }
    const auto settle = [&] {
        for (bool busy = true; busy;) {
            busy = executor->runNext() || services.endWaiting();
            for (const auto& client : clients) {
                busy = client->stream->acknowledge() || client->stream->conclude() || busy;
            }
        }
    };
    settle();
    for (const auto& client : clients) {
        client->checkAnswered();
    }
    const auto checkNothingUsed = [&] {
        require(
            terms->budget.awaitNoCalls(std::chrono::steady_clock::time_point()),
            "calls that are over use nothing");
    };
    if (std::all_of(clients.begin(), clients.end(), [](auto& each) { return each->isIdle(); })) {
        checkNothingUsed();
    }
    for (const auto& client : clients) {
        client->stream->lose({StreamEnd::Kind::disconnected, {}});
    }
    settle();
    published.follow(nullptr);
    table->close();

    checkNothingUsed();
    if (!closed) {
        CallBudget::Share(terms->budget, options.limits.bytesInFlight);
    }
    for (auto& session : sessions) {
        const std::weak_ptr<CallSession> watch = session;
        session.reset();
        require(watch.expired(), "nothing holds on to a stream that is over");
    }
}

} // namespace agent::orvi::fuzz
