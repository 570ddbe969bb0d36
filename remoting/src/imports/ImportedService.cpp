#include "imports/ImportedService.hpp"

#include "imports/ClientSession.hpp"
#include "wire/InterfaceCodec.hpp"

#include <orvi/remoting/Errors.hpp>

#include <exception>
#include <future>
#include <utility>

namespace agent::orvi::remoting::details {
namespace {

using foundation::concurrent::threadpool::stop_token;

constexpr std::size_t maximumIdleSessions = 8;

std::shared_ptr<ClientSession> newSession(const ServiceAddress& address) {
    return std::make_shared<ClientSession>(
        address.connection, address.executor, address.service, address.peer);
}

/// Call a method and hand its outcome to the handler, which is gone when this returns.
void callAndComplete(
    ClientSession& session, std::optional<std::chrono::milliseconds> timeLimit,
    const std::string& method, core::CompletionHandler handler, core::GenericPayload arguments,
    bool oneWay) {
    // A caller may wait for the handler's end, so it must not live on in the parameter.
    const core::CompletionHandler completion = std::move(handler);
    core::GenericPayload result;
    std::exception_ptr error;
    try {
        result = session.call(timeLimit, method, std::move(arguments), oneWay);
    } catch (...) {
        error = std::current_exception();
    }
    if (oneWay && !error) {
        return;
    }
    try {
        if (!error) {
            if (completion.success) {
                completion.success(std::move(result));
            }
        } else if (completion.error) {
            completion.error(std::move(error));
        }
    } catch (...) {
        // The caller's own trouble.
    }
}

} // namespace

/// The service for one client.
class ImportedService::Client final : public core::Invokable {
public:
    Client(std::shared_ptr<ImportedService> service, std::shared_ptr<ClientSession> session)
        : service(std::move(service))
        , session(std::move(session)) {}

    ~Client() override { session->close(); }

    const core::ServiceInterface& serviceInterface() const override {
        return service->serviceInterface();
    }

    bool hasMethod(const std::string& method) const override { return service->hasMethod(method); }

    void invoke(
        std::optional<std::chrono::milliseconds> timeLimit, std::string method,
        core::CompletionHandler handler, core::GenericPayload arguments, bool oneWay) override {
        callAndComplete(
            *session, timeLimit, method, std::move(handler), std::move(arguments), oneWay);
    }

private:
    const std::shared_ptr<ImportedService> service;
    const std::shared_ptr<ClientSession> session;
};

std::shared_ptr<ImportedService>
ImportedService::make(ServiceAddress address, const v1::Interface& description) {
    // The described methods call the service that this one is; it must not keep itself alive.
    auto self = std::make_shared<std::weak_ptr<ImportedService>>();
    const auto makeFunction = [&](const std::string& method) -> core::PayloadFunction {
        return [self, method](stop_token, core::GenericPayload arguments) {
            const auto service = self->lock();
            if (!service) {
                throw std::runtime_error("The service object has been released.");
            }
            std::promise<core::GenericPayload> outcome;
            service->invoke(
                std::nullopt, method,
                {[&](core::GenericPayload result) { outcome.set_value(std::move(result)); },
                 [&](std::exception_ptr error) { outcome.set_exception(std::move(error)); }},
                std::move(arguments), false);
            return outcome.get_future().get();
        };
    };
    auto service = std::make_shared<ImportedService>(
        std::move(address), decodeInterface(description, makeFunction));
    *self = service;
    return service;
}

ImportedService::ImportedService(ServiceAddress address, core::ServiceInterface description)
    : address(std::move(address))
    , description(std::move(description)) {}

ImportedService::~ImportedService() {
    for (const auto& session : idleSessions) {
        session->close();
    }
}

bool ImportedService::hasMethod(const std::string& method) const {
    return description.findMethod(method) != nullptr;
}

void ImportedService::invoke(
    std::optional<std::chrono::milliseconds> timeLimit, std::string method,
    core::CompletionHandler handler, core::GenericPayload arguments, bool oneWay) {
    auto session = takeSession();
    callAndComplete(*session, timeLimit, method, std::move(handler), std::move(arguments), oneWay);
    giveBack(std::move(session));
}

std::shared_ptr<core::Invokable> ImportedService::connect() {
    return std::make_shared<Client>(shared_from_this(), newSession(address));
}

std::shared_ptr<ClientSession> ImportedService::takeSession() {
    {
        const std::lock_guard lock(mutex);
        if (!idleSessions.empty()) {
            auto session = std::move(idleSessions.back());
            idleSessions.pop_back();
            return session;
        }
    }
    return newSession(address);
}

void ImportedService::giveBack(std::shared_ptr<ClientSession> session) {
    {
        const std::lock_guard lock(mutex);
        if (idleSessions.size() < maximumIdleSessions && session->isUsable()) {
            idleSessions.push_back(std::move(session));
            return;
        }
    }
    session->close();
}

} // namespace agent::orvi::remoting::details
