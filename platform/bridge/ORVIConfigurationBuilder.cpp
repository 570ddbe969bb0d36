#include <orvi/frameworksetup/ORVIConfigurationBuilder.hpp>

#include "bridge/ConfigurationEntry.hpp"
#include "bridge/ProcessFramework.hpp"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace agent::orvi::frameworksetup {
namespace {

ServicePublisher*
findPublisher(std::vector<ServicePublisher>& publishers, const std::string& name) {
    const auto found =
        std::find_if(publishers.begin(), publishers.end(), [&](const ServicePublisher& publisher) {
            return publisher.name == name;
        });
    return found == publishers.end() ? nullptr : &*found;
}

} // namespace

ORVIConfigurationBuilder::ORVIConfigurationBuilder(std::string name)
    : description(std::make_unique<ConfigurationDescription>()) {
    description->name = std::move(name);
}

ORVIConfigurationBuilder::~ORVIConfigurationBuilder() = default;

ORVIConfigurationBuilder& ORVIConfigurationBuilder::addServicePublisher(
    std::string name, std::string kind, std::set<std::string> connections,
    std::set<std::string> dependencies, std::string publisherDescription, std::string scope) {
    if (name.empty()) {
        throw std::invalid_argument("A service publisher must have a name.");
    }
    if (findPublisher(description->publishers, name) != nullptr) {
        throw std::invalid_argument("Service publisher \"" + name + "\" is declared already.");
    }
    description->publishers.push_back(
        {std::move(name),
         std::move(kind),
         std::move(connections),
         std::move(dependencies),
         std::move(publisherDescription),
         std::move(scope),
         {}});
    return *this;
}

ORVIConfigurationBuilder& ORVIConfigurationBuilder::addServiceInterfaceToServicePublisher(
    const std::string& publisher, std::string alias, std::string serviceInterface,
    boost::property_tree::ptree settings) {
    ServicePublisher* const declared = findPublisher(description->publishers, publisher);
    if (declared == nullptr) {
        throw std::invalid_argument("Service publisher \"" + publisher + "\" is not declared.");
    }
    if (serviceInterface.empty()) {
        throw std::invalid_argument("A service interface must have a name.");
    }
    declared->interfaces.push_back({std::move(alias), std::move(serviceInterface), settings});
    return *this;
}

ORVIConfiguration ORVIConfigurationBuilder::build() const {
    core::detail::ProcessFramework::ofProcess().seeMissedProviders();
    return ORVIConfiguration(std::make_unique<ConfigurationEntry>(
        core::detail::InterfaceDirectory::ofProcess(), *description));
}

} // namespace agent::orvi::frameworksetup
