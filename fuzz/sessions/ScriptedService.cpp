#include "sessions/ScriptedService.hpp"

#include "support/Registry.hpp"
#include "wire/PayloadCodec.hpp"

#include <cppmicroservices/Constants.h>

#include <future>
#include <stdexcept>
#include <utility>
#include <vector>

namespace agent::orvi::fuzz {

using core::GenericPayload;

/// What `take` is asked for: what a client sees of an answer.
static std::string seenOf(const GenericPayload& payload) {
    remoting::details::OutgoingMessage message =
        remoting::details::OutgoingMessage::answer(GenericPayload(payload));
    std::string heads;
    std::string data;
    while (message.hasNext()) {
        const auto frame = message.next();
        remoting::details::v1::Frame head;
        const std::string bytes = frame.head + std::string(frame.data.data, frame.data.size);
        head.ParseFromString(bytes);
        data += head.data();
        head.clear_data();
        heads += head.SerializeAsString();
    }
    return heads + data;
}

void ServiceScript::answer(core::CompletionHandler handler, bool mayWait) {
    if (mayWait && input.oneIn(3)) {
        waiting.push_back(std::move(handler));
    } else if (input.oneIn(8)) {
        throw std::logic_error("A service object should not throw.");
    } else {
        answerNow(handler);
    }
}

bool ServiceScript::endWaiting() {
    if (waiting.empty()) {
        return false;
    }
    const core::CompletionHandler handler = std::move(waiting.front());
    waiting.pop_front();
    answerNow(handler);
    return true;
}

bool ServiceScript::take(const std::string& answer) {
    const auto found = given.find(answer);
    if (found == given.end()) {
        return false;
    }
    given.erase(found);
    return true;
}

void ServiceScript::answerNow(const core::CompletionHandler& handler) {
    switch (input.below(7)) {
    case 0:
        handler.error(std::make_exception_ptr(std::range_error(input.text(30))));
        break;
    case 1:
        handler.error(nullptr);
        break;
    case 2:
        break; // dropped
    case 3:
        handler.success(GenericPayload::fromValues(std::vector<int>{1}));
        break;
    case 4: {
        std::promise<std::string> promise;
        promise.set_value("late");
        given.insert(seenOf(GenericPayload::fromValues(std::string("late"))));
        handler.success(GenericPayload::fromFuture(promise.get_future()));
        break;
    }
    default: {
        GenericPayload payload = result();
        given.insert(seenOf(payload));
        handler.success(std::move(payload));
    }
    }
}

GenericPayload ServiceScript::result() {
    switch (input.below(5)) {
    case 0:
        return GenericPayload::fromValues(input.signedNumber());
    case 1:
        return {};
    case 2:
        return GenericPayload::fromValues(
            std::string(), std::string(input.take(3)), 5, std::string(input.take(2)));
    case 3:
        return GenericPayload::fromValues(std::string(input.number() % 300000, 'x'));
    default:
        return GenericPayload::fromValues(input.text(60));
    }
}

class ScriptedService::Object final : public core::Invokable {
public:
    explicit Object(const std::string& name)
        : description(name, core::APIVersion(1, 0), {{"hasRead", "true"}}, methods()) {}

    const core::ServiceInterface& serviceInterface() const override { return description; }

    bool hasMethod(const std::string& method) const override {
        return description.findMethod(method) != nullptr;
    }

    void invoke(
        std::optional<std::chrono::milliseconds>, std::string method,
        core::CompletionHandler handler, GenericPayload, bool) override {
        if (script != nullptr) {
            // An endpoint itself waits for where a device is.
            script->answer(std::move(handler), method != "seekoff");
        }
    }

    ServiceScript* script = nullptr;

private:
    static std::vector<core::ExportedFunction> methods() {
        std::vector<core::ExportedFunction> methods;
        for (const char* const name : {"read", "write", "seekoff"}) {
            methods.emplace_back(
                name, nullptr, GenericPayload::typeHash<std::string>(),
                std::vector{GenericPayload::typeHash<std::int64_t>()});
        }
        return methods;
    }

    const core::ServiceInterface description;
};

ScriptedService::ScriptedService(const std::string& name, long size)
    : object(std::make_shared<Object>(name)) {
    cppmicroservices::ServiceProperties properties;
    properties["orvi.servicename"] = name;
    properties["service.exported.interfaces"] = std::string("*");
    properties["size"] = size;
    registration = streambuf::test::registryContext().RegisterService<core::Invokable>(
        std::static_pointer_cast<core::Invokable>(object), properties);
}

ScriptedService::~ScriptedService() {
    registration.Unregister();
}

std::uint64_t ScriptedService::number() const {
    return static_cast<std::uint64_t>(cppmicroservices::any_cast<long>(
        registration.GetReference().GetProperty(cppmicroservices::Constants::SERVICE_ID)));
}

void ScriptedService::follow(ServiceScript* script) {
    object->script = script;
}

} // namespace agent::orvi::fuzz
