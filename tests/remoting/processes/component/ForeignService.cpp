#include "remoting/processes/component/ForeignService.hpp"

#include <foundation/cppmicroservices/getFramework.hpp>
#include <orvi/core/InvocationErrors.hpp>
#include <orvi/core/Invokable.hpp>
#include <orvi/core/MultiMethodInterfaceBuilder.hpp>
#include <orvi/frameworksetup/ORVIConfigurationBuilder.hpp>
#include <payload/PayloadAdapters.hpp>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/ServiceProperties.h>

#include <boost/property_tree/ptree.hpp>

#include <cstdint>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::test {
namespace {

using core::GenericPayload;
using foundation::concurrent::threadpool::stop_token;

GenericPayload fail(const std::string& error) {
    if (error == "range") {
        throw std::out_of_range("beyond the end");
    }
    if (error == "system") {
        throw std::system_error(28, std::generic_category(), "cannot write");
    }
    if (error == "refused") {
        throw core::ServiceUnavailable("not today");
    }
    if (error == "foreign") {
        throw ForeignError("known here only");
    }
    if (error == "number") {
        throw 42;
    }
    GenericPayload::fromValues(error).check(0, GenericPayload::typeHash<std::int64_t>(), true);
    return {};
}

std::future<std::string> textLater() {
    return std::async(std::launch::async, [] { return std::string("it took a while"); });
}

std::future<std::string> brokenText() {
    return std::promise<std::string>().get_future();
}

std::future<std::string> failedText() {
    std::promise<std::string> promise;
    promise.set_exception(std::make_exception_ptr(std::domain_error("came to nothing")));
    return promise.get_future();
}

using Body = std::function<GenericPayload(GenericPayload)>;

const std::map<std::string, Body>& methodBodies() {
    static const std::map<std::string, Body> bodies = {
        {"fail", [](GenericPayload arguments) { return fail(arguments.take<std::string>(0)); }},
        {"echo", [](GenericPayload arguments) { return arguments; }},
        {"slots",
         [](const GenericPayload& arguments) {
             return GenericPayload::fromValues(static_cast<std::int64_t>(arguments.size()));
         }},
        {"packed",
         [](const GenericPayload& arguments) {
             return GenericPayload::fromValues(arguments.isPackedArguments(0) ? 1 : 0);
         }},
        {"later", [](const GenericPayload&) { return GenericPayload::fromFuture(textLater()); }},
        {"broken", [](const GenericPayload&) { return GenericPayload::fromFuture(brokenText()); }},
        {"future-error",
         [](const GenericPayload&) { return GenericPayload::fromFuture(failedText()); }}};
    return bodies;
}

core::ServiceInterface describe(const std::string& name) {
    core::MultiMethodInterfaceBuilder builder(name, core::APIVersion(1, 0));
    for (const auto& [method, body] : methodBodies()) {
        builder.addMethod(core::ExportedFunction(
            method,
            [body = body](stop_token, GenericPayload arguments) {
                return body(std::move(arguments));
            },
            0, {}));
    }
    builder.addMethod(core::ExportedFunction(
        "length", core::detail::genericPayloadWrapper([](const std::string& text) {
            return static_cast<std::int64_t>(text.size());
        }),
        0, {}));
    builder.addMethod(core::ExportedFunction(
        "sum", core::detail::genericPayloadWrapper([](std::int64_t a, int b) {
            return std::int64_t{a + b};
        }),
        0, {}));
    return builder.build();
}

class Provider : public core::ServiceProvider {
public:
    explicit Provider(std::string name)
        : name(std::move(name)) {}

    std::vector<core::ServiceInterface> getServiceInterfaces() override { return {describe(name)}; }

private:
    const std::string name;
};

/// A service that does not answer.
class SilentInvokable : public core::Invokable {
public:
    explicit SilentInvokable(std::string name)
        : description(std::move(name), core::APIVersion(1, 0), {}, {}) {}

    const core::ServiceInterface& serviceInterface() const override { return description; }

    bool hasMethod(const std::string& method) const override { return method == "unanswered"; }

    void invoke(
        std::optional<std::chrono::milliseconds>, std::string, core::CompletionHandler,
        GenericPayload, bool) override {}

private:
    const core::ServiceInterface description;
};

frameworksetup::ORVIConfiguration configure(const std::string& name) {
    frameworksetup::ORVIConfigurationBuilder builder(name);
    builder.addServicePublisher(
        name, "legacyservicepublisher", {"connectToAllEndpoints"}, {}, "", "");
    builder.addServiceInterfaceToServicePublisher(name, name, name, boost::property_tree::ptree());
    return builder.build();
}

} // namespace

ForeignService::ForeignService(const std::string& name) {
    auto context = foundation::cppmicroservices::getFramework()->GetBundleContext();
    provider = context.RegisterService<core::ServiceProvider>(
        std::static_pointer_cast<core::ServiceProvider>(std::make_shared<Provider>(name)));
    configuration = configure(name);
    cppmicroservices::ServiceProperties properties;
    properties["orvi.servicename"] = name + ".raw";
    properties["service.exported.interfaces"] = std::string("*");
    raw = context.RegisterService<core::Invokable>(
        std::static_pointer_cast<core::Invokable>(std::make_shared<SilentInvokable>(name + ".raw")),
        properties);
}

ForeignService::~ForeignService() {
    raw.Unregister();
    provider.Unregister();
}

} // namespace agent::orvi::remoting::test
