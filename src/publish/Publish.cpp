#include "publish/MethodHandlers.hpp"
#include "publish/StreamBufferService.hpp"
#include "streambuf/StreamBufferImpl.hpp"

#include <foundation/cppmicroservices/getFramework.hpp>
#include <orvi/frameworksetup/ORVIConfigurationBuilder.hpp>

#include <cppmicroservices/AnyMap.h>
#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/ServiceProperties.h>

#include <boost/property_tree/ptree.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <stdexcept>

namespace agent::orvi::streambuf {
namespace {

using cppmicroservices::Any;
using cppmicroservices::AnyMap;

std::string serviceName(const boost::uuids::uuid& uuid) {
    return boost::uuids::to_string(uuid).insert(0, "orviStreambuf_");
}

/// Turn every exception of an operation into its neutral result: other components cannot handle
/// what they do not know, and the publisher sees its device as they do.
template <class Result, class... Arguments>
std::function<Result(Arguments...)>
guarded(std::function<Result(Arguments...)> operation, const Result& neutral) {
    return [operation = std::move(operation), neutral](Arguments... arguments) -> Result {
        try {
            return operation(std::forward<Arguments>(arguments)...);
        } catch (...) {
            return neutral;
        }
    };
}

template <class Handler, class Operation, class Result>
void offer(
    StreamBufferService& service, const char* method, Operation& operation, const Result& neutral) {
    if (operation) {
        operation = guarded(std::move(operation), neutral);
        service.addMethod(method, Handler{operation});
    }
}

template <class Operation>
const char* offered(const Operation& operation) {
    return operation ? "true" : "false";
}

AnyMap makeMap() {
    return AnyMap(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
}

cppmicroservices::ServiceProperties registrationProperties(const std::string& name) {
    AnyMap version = makeMap();
    version["major"] = 1;
    version["minor"] = 0;
    version["patch"] = 0;
    version["extension"] = 0;
    AnyMap description = makeMap();
    description["name"] = name;
    description["description"] = std::string();
    description["version"] = version;
    description["dependencies"] = std::vector<Any>();
    AnyMap orvi = makeMap();
    orvi["serviceinterfaces"] = std::vector<Any>{Any(description)};
    cppmicroservices::ServiceProperties properties;
    properties["orvi"] = orvi;
    return properties;
}

frameworksetup::ORVIConfiguration configurePublisher(const boost::uuids::uuid& uuid) {
    frameworksetup::ORVIConfigurationBuilder builder{std::string()};
    const std::string publisher = boost::uuids::to_string(uuid).insert(0, "StreamBuffer_");
    builder.addServicePublisher(
        publisher, "legacyservicepublisher", {"connectToAllEndpoints"}, {}, "", "localServiceOnly");
    builder.addServiceInterfaceToServicePublisher(
        publisher, publisher, serviceName(uuid), boost::property_tree::ptree());
    return builder.build();
}

/// Withdraws a fresh registration again unless a record has taken over that duty.
struct RegistrationGuard {
    cppmicroservices::ServiceRegistrationBase registration;

    ~RegistrationGuard() {
        if (registration) {
            try {
                registration.Unregister();
            } catch (...) {
                // The framework has stopped meanwhile and has withdrawn the service itself.
            }
        }
    }
};

} // namespace

StreamBuffer makeDevice(
    const boost::uuids::uuid& uuid, ReadFunction read, WriteFunction write, SeekOffFunction seekoff,
    SeekPosFunction seekpos, std::size_t bufferSize) {
    const auto service =
        std::make_shared<StreamBufferService>(serviceName(uuid), core::APIVersion(1, 0));
    service->addMetadata("hasRead", offered(read));
    service->addMetadata("hasWrite", offered(write));
    service->addMetadata("hasSeekOff", offered(seekoff));
    service->addMetadata("hasSeekPos", offered(seekpos));
    service->addMetadata("bufferSize", std::to_string(bufferSize));

    const std::streampos unmoved{std::streamoff(-1)};
    offer<details::ReadHandler>(*service, "read", read, std::string());
    offer<details::WriteHandler>(*service, "write", write, std::int64_t{0});
    offer<details::SeekOffHandler>(*service, "seekoff", seekoff, unmoved);
    offer<details::SeekPosHandler>(*service, "seekpos", seekpos, unmoved);

    const auto framework = foundation::cppmicroservices::getFramework();
    auto context = framework->GetBundleContext();
    RegistrationGuard guard{context.RegisterService<core::ServiceProvider>(
        service, registrationProperties(serviceName(uuid)))};
    if (!guard.registration) {
        throw std::runtime_error("Failed to register service.");
    }
    frameworksetup::ORVIConfiguration configuration = configurePublisher(uuid);

    // The record takes over the registration only when it stands: a buffer that cannot be made
    // must not leave the service behind.
    auto record = std::make_shared<details::StreamBufferImpl>(
        uuid, std::move(read), std::move(write), std::move(seekoff), std::move(seekpos),
        noCloseFunction(), bufferSize, guard.registration, std::move(configuration));
    guard.registration = nullptr;
    return StreamBuffer(std::move(record));
}

} // namespace agent::orvi::streambuf
