#pragma once

#include <foundation/cppmicroservices/getFramework.hpp>
#include <orvi/core/Invokable.hpp>
#include <orvi/core/ServiceProvider.hpp>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/ServiceReference.h>

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <chrono>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// What the process-wide service registry holds, looked at without the stream library.
namespace agent::orvi::streambuf::test {

inline cppmicroservices::BundleContext registryContext() {
    return foundation::cppmicroservices::getFramework()->GetBundleContext();
}

/// Return a UUID that nothing was published under so far.
inline boost::uuids::uuid newUuid() {
    return boost::uuids::random_generator()();
}

inline std::string serviceNameOf(const boost::uuids::uuid& uuid) {
    return "orviStreambuf_" + boost::uuids::to_string(uuid);
}

/// Return the services that clients of `uuid` find.
inline std::vector<cppmicroservices::ServiceReference<core::Invokable>>
invokablesOf(const boost::uuids::uuid& uuid) {
    return registryContext().GetServiceReferences<core::Invokable>(
        "(orvi.servicename=" + serviceNameOf(uuid) + ")");
}

/// Return the registered providers, of this test and of others.
inline std::vector<cppmicroservices::ServiceReference<core::ServiceProvider>> providers() {
    return registryContext().GetServiceReferences<core::ServiceProvider>();
}

/// Return the one service that clients of `uuid` find.
inline std::shared_ptr<core::Invokable> invokableOf(const boost::uuids::uuid& uuid) {
    return registryContext().GetService(invokablesOf(uuid).at(0));
}

/// Stop the process-wide framework and wait until it has stopped. Its `Start` makes it usable
/// again.
inline void stopFramework() {
    const auto framework = foundation::cppmicroservices::getFramework();
    framework->Stop();
    framework->WaitForStop(std::chrono::milliseconds::zero());
}

/// Invoke a method that answers before `invoke` returns.
///
/// @return the answer.
/// @throws what the error side received.
inline core::GenericPayload
invokeAtOnce(core::Invokable& service, const std::string& method, core::GenericPayload arguments) {
    std::optional<core::GenericPayload> answer;
    std::exception_ptr error;
    service.invoke(
        std::nullopt, method,
        {[&](core::GenericPayload payload) { answer = std::move(payload); },
         [&](std::exception_ptr reported) { error = std::move(reported); }},
        std::move(arguments), false);
    if (error) {
        std::rethrow_exception(error);
    }
    return std::move(answer.value());
}

} // namespace agent::orvi::streambuf::test
