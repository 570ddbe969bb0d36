#pragma once

#include "bridge/Bridge.hpp"
#include "bridge/ConfigurationEntry.hpp"

#include <orvi/core/InvocationErrors.hpp>
#include <orvi/core/Invokable.hpp>
#include <orvi/core/MultiMethodInterfaceBuilder.hpp>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace agent::orvi::core::test {

constexpr std::chrono::milliseconds stillBlocked{50}; // how long a call is seen not to return

inline bool isBlocked(const std::future<void>& call) {
    return call.wait_for(stillBlocked) == std::future_status::timeout;
}

/// A provider of fixed interfaces that counts how often it is asked for them.
class FixedProvider : public ServiceProvider {
public:
    explicit FixedProvider(std::vector<ServiceInterface> interfaces)
        : interfaces(std::move(interfaces)) {}

    std::vector<ServiceInterface> getServiceInterfaces() override {
        ++timesAsked;
        return interfaces;
    }

    int timesAsked = 0;

private:
    std::vector<ServiceInterface> interfaces;
};

/// A method without type hashes that runs `body` on its payload.
inline ExportedFunction
makeMethod(std::string name, std::function<GenericPayload(GenericPayload)> body) {
    return {
        std::move(name),
        [body = std::move(body)](
            foundation::concurrent::threadpool::stop_token, GenericPayload arguments) {
            return body(std::move(arguments));
        },
        0,
        {}};
}

/// An interface with the one method "run".
inline ServiceInterface makeInterface(
    std::string name, std::function<void()> body = [] {}) {
    return MultiMethodInterfaceBuilder(std::move(name), APIVersion(1, 0))
        .addMethod(makeMethod(
            "run",
            [body = std::move(body)](GenericPayload) {
                body();
                return GenericPayload();
            }))
        .build();
}

/// What a completion handler was called with.
struct Outcome {
    int successes = 0;
    int errors = 0;
    GenericPayload result;
    std::exception_ptr error;

    CompletionHandler handler() {
        return {
            [this](GenericPayload payload) {
                ++successes;
                result = std::move(payload);
            },
            [this](std::exception_ptr thrown) {
                ++errors;
                error = std::move(thrown);
            }};
    }
};

inline Outcome call(Invokable& service, const std::string& method, GenericPayload arguments = {}) {
    Outcome outcome;
    service.invoke(std::nullopt, method, outcome.handler(), std::move(arguments), false);
    EXPECT_EQ(outcome.successes + outcome.errors, 1);
    return outcome;
}

/// Say whether "run" ran; anything but `ServiceUnavailable` fails the test.
inline bool runs(Invokable& service) {
    const Outcome outcome = call(service, "run");
    if (outcome.errors > 0) {
        EXPECT_THROW(std::rethrow_exception(outcome.error), ServiceUnavailable);
    }
    return outcome.successes == 1;
}

/// A started framework with a bridge to a directory of its own.
class BridgeFixture : public testing::Test {
protected:
    using ProviderRegistration = cppmicroservices::ServiceRegistration<ServiceProvider>;
    using Configuration = std::unique_ptr<frameworksetup::ConfigurationEntry>;

    BridgeFixture()
        : framework(cppmicroservices::FrameworkFactory().NewFramework()) {
        framework.Start();
    }

    ~BridgeFixture() override { stopFramework(); }

    void SetUp() override { bridge = detail::Bridge::attach(framework, directory); }

    void stopFramework() {
        framework.Stop();
        framework.WaitForStop(std::chrono::milliseconds::zero());
    }

    cppmicroservices::BundleContext context() const { return framework.GetBundleContext(); }

    ProviderRegistration provide(
        const std::shared_ptr<ServiceProvider>& provider,
        const cppmicroservices::ServiceProperties& properties = {}) {
        return context().RegisterService<ServiceProvider>(provider, properties);
    }

    ProviderRegistration provide(std::vector<ServiceInterface> interfaces) {
        return provide(std::make_shared<FixedProvider>(std::move(interfaces)));
    }

    /// Put a configuration in force whose one publisher names `interfaces`.
    Configuration
    configure(const std::vector<std::string>& interfaces, std::set<std::string> connections = {}) {
        frameworksetup::ConfigurationDescription description;
        description.publishers.push_back(
            {"publisher", "kind", std::move(connections), {}, {}, {}, {}});
        for (const std::string& interface : interfaces) {
            description.publishers.front().interfaces.push_back({"alias", interface, {}});
        }
        return std::make_unique<frameworksetup::ConfigurationEntry>(
            directory, std::move(description));
    }

    std::vector<cppmicroservices::ServiceReference<Invokable>> references(const std::string& name) {
        return context().GetServiceReferences<Invokable>("(orvi.servicename=" + name + ")");
    }

    /// Return the services of that name, the preferred one first.
    std::vector<std::shared_ptr<Invokable>> find(const std::string& name) {
        std::vector<std::shared_ptr<Invokable>> services;
        for (const auto& reference : references(name)) {
            try {
                if (auto service = context().GetService(reference)) {
                    services.push_back(std::move(service));
                }
            } catch (const std::invalid_argument&) {
                // It has gone between the look-up and now.
            }
        }
        return services;
    }

    bool isReachable(const std::string& name) { return !references(name).empty(); }

    detail::InterfaceDirectory directory;
    cppmicroservices::Framework framework;
    std::shared_ptr<detail::Bridge> bridge;
};

} // namespace agent::orvi::core::test
