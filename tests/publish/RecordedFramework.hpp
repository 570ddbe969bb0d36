#pragma once

#include <foundation/cppmicroservices/getFramework.hpp>
#include <orvi/frameworksetup/ORVIConfiguration.hpp>
#include <orvi/frameworksetup/ORVIConfigurationBuilder.hpp>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/ServiceProperties.h>
#include <cppmicroservices/ServiceRegistration.h>

#include <boost/property_tree/ptree.hpp>

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

/// Stand-ins for what the publishing factory asks of the framework. They pass everything on to the
/// real thing, record it, and fail where a test wants them to.
namespace agent::orvi::streambuf::test {

/// What the publishing factory did with the framework.
struct FrameworkCalls {
    std::vector<std::string> steps;                      ///< In order, with their arguments.
    std::function<void(const std::string&)> before = {}; ///< Called with each step, may throw.
    bool refuseRegistration = false;

    void step(const std::string& text) {
        steps.push_back(text);
        if (before) {
            before(text);
        }
    }

    static FrameworkCalls& instance() {
        static FrameworkCalls calls;
        return calls;
    }
};

class RecordedContext {
public:
    template <class Interface>
    cppmicroservices::ServiceRegistration<Interface> RegisterService(
        const std::shared_ptr<Interface>& service,
        const cppmicroservices::ServiceProperties& properties) {
        FrameworkCalls& calls = FrameworkCalls::instance();
        calls.step("RegisterService");
        if (calls.refuseRegistration) {
            return {};
        }
        return context.RegisterService<Interface>(service, properties);
    }

    cppmicroservices::BundleContext context;
};

class RecordedFramework {
public:
    RecordedContext GetBundleContext() const {
        FrameworkCalls::instance().step("GetBundleContext");
        return {framework->GetBundleContext()};
    }

    std::shared_ptr<cppmicroservices::Framework> framework;
};

inline std::string quoted(const std::string& text) {
    return "\"" + text + "\"";
}

inline std::string quoted(const std::set<std::string>& texts) {
    std::string result = "{";
    for (const std::string& text : texts) {
        result += quoted(text);
    }
    return result + "}";
}

} // namespace agent::orvi::streambuf::test

namespace foundation::cppmicroservices {

inline std::shared_ptr<agent::orvi::streambuf::test::RecordedFramework> getRecordedFramework() {
    using namespace agent::orvi::streambuf::test;
    FrameworkCalls::instance().step("getFramework");
    return std::make_shared<RecordedFramework>(RecordedFramework{getFramework()});
}

} // namespace foundation::cppmicroservices

namespace agent::orvi::frameworksetup {

class RecordedConfigurationBuilder {
public:
    explicit RecordedConfigurationBuilder(const std::string& name)
        : builder(name) {
        calls.step("ORVIConfigurationBuilder " + quoted(name));
    }

    RecordedConfigurationBuilder& addServicePublisher(
        const std::string& name, const std::string& kind, const std::set<std::string>& connections,
        const std::set<std::string>& dependencies, const std::string& description,
        const std::string& scope) {
        calls.step(
            "addServicePublisher " + quoted(name) + quoted(kind) + quoted(connections) +
            quoted(dependencies) + quoted(description) + quoted(scope));
        builder.addServicePublisher(name, kind, connections, dependencies, description, scope);
        return *this;
    }

    RecordedConfigurationBuilder& addServiceInterfaceToServicePublisher(
        const std::string& publisher, const std::string& alias, const std::string& serviceInterface,
        const boost::property_tree::ptree& settings) {
        calls.step(
            "addServiceInterfaceToServicePublisher " + quoted(publisher) + quoted(alias) +
            quoted(serviceInterface) + (settings.empty() && settings.data().empty() ? "" : "..."));
        builder.addServiceInterfaceToServicePublisher(publisher, alias, serviceInterface, settings);
        return *this;
    }

    ORVIConfiguration build() const {
        calls.step("build");
        return builder.build();
    }

private:
    static std::string quoted(const auto& value) { return streambuf::test::quoted(value); }

    streambuf::test::FrameworkCalls& calls = streambuf::test::FrameworkCalls::instance();
    ORVIConfigurationBuilder builder;
};

} // namespace agent::orvi::frameworksetup
