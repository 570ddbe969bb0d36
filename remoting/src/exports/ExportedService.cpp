#include "exports/ExportedService.hpp"

#include <utility>

namespace agent::orvi::remoting::details {
namespace {

cppmicroservices::AnyMap toMap(const Properties& properties) {
    cppmicroservices::AnyMap map(cppmicroservices::AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    for (const auto& [key, value] : properties) {
        map[key] = value;
    }
    return map;
}

/// Return the name that look-ups use.
std::string lookUpName(const Properties& properties, const core::Invokable& service) {
    for (const auto& [key, value] : properties) {
        if (key == "orvi.servicename" && value.Type() == typeid(std::string)) {
            return cppmicroservices::any_cast<std::string>(value);
        }
    }
    return service.serviceInterface().name();
}

} // namespace

ServiceTurns::ServiceTurns(
    std::shared_ptr<core::Invokable> service, const std::weak_ptr<Executor>& executor)
    : service(std::move(service))
    , queue(executor)
    , positions(*this->service) {}

ExportedService::ExportedService(
    const cppmicroservices::ServiceReferenceBase& reference, std::uint64_t number,
    std::shared_ptr<core::Invokable> service, Properties properties,
    const std::weak_ptr<Executor>& executor)
    : reference(reference)
    , number(number)
    , name(lookUpName(properties, *service))
    , service(std::move(service))
    , properties(std::move(properties))
    , asMap(toMap(this->properties))
    , turns(std::make_shared<ServiceTurns>(this->service, executor)) {}

} // namespace agent::orvi::remoting::details
