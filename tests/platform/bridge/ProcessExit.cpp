// A process that ends while a service is still published by an object of static lifetime. What
// that object sees when it is destroyed is checked; sanitizers watch the rest.

#include <foundation/cppmicroservices/getFramework.hpp>
#include <orvi/core/InvocationErrors.hpp>
#include <orvi/core/Invokable.hpp>
#include <orvi/core/MultiMethodInterfaceBuilder.hpp>
#include <orvi/core/ServiceProvider.hpp>
#include <orvi/frameworksetup/ORVIConfigurationBuilder.hpp>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkEvent.h>

#include <boost/property_tree/ptree.hpp>

#include <chrono>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace agent::orvi;

class Provider : public core::ServiceProvider {
public:
    std::vector<core::ServiceInterface> getServiceInterfaces() override {
        return {core::MultiMethodInterfaceBuilder("service", core::APIVersion(1, 0))
                    .addMethod(
                        {"run",
                         [](foundation::concurrent::threadpool::stop_token, core::GenericPayload) {
                             return core::GenericPayload();
                         },
                         0,
                         {}})
                    .build()};
    }
};

void expect(bool condition, const char* what) {
    if (!condition) {
        std::cerr << "not so: " << what << std::endl;
        std::_Exit(EXIT_FAILURE);
    }
}

bool runs(core::Invokable& service) {
    bool ran = false;
    service.invoke(
        std::nullopt, "run", {[&](core::GenericPayload) { ran = true; }, [](std::exception_ptr) {}},
        {}, false);
    return ran;
}

/// A publication and a client of it, which end together.
class Published {
public:
    Published() = default;
    Published(const Published&) = delete;
    Published& operator=(const Published&) = delete;

    /// Publish before the construction is complete, so that the destructor runs before those of
    /// what the first service has brought along.
    struct AtOnce {};

    explicit Published(AtOnce)
        : destroyedLate(false) {
        publish();
    }

    void publish() {
        auto context = foundation::cppmicroservices::getFramework()->GetBundleContext();
        registration = context.RegisterService<core::ServiceProvider>(std::make_shared<Provider>());
        frameworksetup::ORVIConfigurationBuilder builder{std::string()};
        builder.addServicePublisher("publisher", "kind", {}, {}, "", "")
            .addServiceInterfaceToServicePublisher("publisher", "alias", "service", {});
        configuration = builder.build();
        service = context.GetService(context.GetServiceReference<core::Invokable>());
        expect(runs(*service), "a published service runs");
        payload = core::GenericPayload::fromValues(std::string("lasting"));
    }

    ~Published() {
        if (!service) {
            return;
        }
        expect(runs(*service) == expectedToRun, "a service runs until its framework stops");
        expect(
            foundation::cppmicroservices::processIsEnding() == destroyedLate,
            "only what is older than the first service is destroyed after the registry");
        if (!destroyedLate) {
            registration.Unregister();
        }
        configuration.reset();
        expect(!runs(*service), "no method runs after the end");
        expect(
            core::GenericPayload(payload).take<std::string>(0) == "lasting",
            "a payload can be copied until the end");
    }

    bool expectedToRun = true;

private:
    const bool destroyedLate = true;
    cppmicroservices::ServiceRegistration<core::ServiceProvider> registration;
    frameworksetup::ORVIConfiguration configuration;
    std::shared_ptr<core::Invokable> service;
    core::GenericPayload payload;
};

Published destroyedLast;

} // namespace

int main(int argumentCount, char** arguments) {
    const std::string end = argumentCount == 2 ? arguments[1] : "";
    if (end == "last") {
        destroyedLast.publish();
    } else if (end == "first") {
        static const Published destroyedFirst{Published::AtOnce()};
    } else if (end == "never") {
        static Published& leftOpen = *new Published;
        leftOpen.publish();
    } else if (end == "stopped") {
        destroyedLast.publish();
        destroyedLast.expectedToRun = false;
        const auto framework = foundation::cppmicroservices::getFramework();
        framework->Stop();
        framework->WaitForStop(std::chrono::milliseconds::zero());
    } else {
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
