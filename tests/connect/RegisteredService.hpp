#pragma once

#include "connect/FakeInvokable.hpp"
#include "support/Registry.hpp"

#include <cppmicroservices/ServiceProperties.h>
#include <cppmicroservices/ServiceRegistration.h>

#include <boost/uuid/uuid.hpp>

#include <memory>
#include <string>
#include <utility>

namespace agent::orvi::streambuf::test {

inline const char* const propertyPrefix = "orvi.serviceproperty.";

/// Return the properties of a device that offers every operation.
inline cppmicroservices::ServiceProperties completeProperties(const boost::uuids::uuid& uuid) {
    cppmicroservices::ServiceProperties properties;
    properties["orvi.servicename"] = serviceNameOf(uuid);
    for (const char* key : {"hasRead", "hasWrite", "hasSeekOff", "hasSeekPos"}) {
        properties[propertyPrefix + std::string(key)] = std::string("true");
    }
    properties[propertyPrefix + std::string("bufferSize")] = std::string("16");
    return properties;
}

/// A service of some other maker, registered for as long as this object lives.
class RegisteredService {
public:
    explicit RegisteredService(
        const cppmicroservices::ServiceProperties& properties,
        FakeInvokable::Answer answer = answeringWith(std::string()))
        : service(std::make_shared<FakeInvokable>(std::move(answer)))
        , registration(registryContext().RegisterService<core::Invokable>(service, properties)) {}

    RegisteredService(const RegisteredService&) = delete;
    RegisteredService& operator=(const RegisteredService&) = delete;

    ~RegisteredService() { withdraw(); }

    void withdraw() {
        if (registration) {
            registration.Unregister();
            registration = nullptr;
        }
    }

    FakeInvokable& fake() { return *service; }

    /// Withdraw the service and let go of it.
    ///
    /// @return what tells whether somebody else still keeps it alive.
    std::weak_ptr<FakeInvokable> release() {
        withdraw();
        const std::weak_ptr<FakeInvokable> observer = service;
        service.reset();
        return observer;
    }

private:
    std::shared_ptr<FakeInvokable> service;
    cppmicroservices::ServiceRegistration<core::Invokable> registration;
};

} // namespace agent::orvi::streambuf::test
