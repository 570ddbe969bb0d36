#pragma once

#include <orvi/frameworksetup/ORVIConfiguration.hpp>
#include <orvi/platform_export.hpp>

#include <boost/property_tree/ptree_fwd.hpp>

#include <memory>
#include <set>
#include <string>

namespace agent::orvi::frameworksetup {

struct ConfigurationDescription;

/// Collects publishers and the service interfaces that they make reachable.
///
/// Thread safety: thread-compatible.
class ORVI_PLATFORM_EXPORT ORVIConfigurationBuilder {
public:
    /// Start a configuration. `name` is for the host's own use and may be empty.
    explicit ORVIConfigurationBuilder(std::string name);
    ~ORVIConfigurationBuilder();
    ORVIConfigurationBuilder(const ORVIConfigurationBuilder&) = delete;
    ORVIConfigurationBuilder& operator=(const ORVIConfigurationBuilder&) = delete;

    /// Declare a service publisher.
    ///
    /// @param name the publisher's name.
    /// @param kind how it publishes, for instance "legacyservicepublisher".
    /// @param connections what it connects to; "connectToAllEndpoints" offers its interfaces on
    ///        every endpoint the process has.
    /// @param dependencies names of what must be there first; kept, not interpreted here.
    /// @param description free text.
    /// @param scope who may reach it, for instance "localServiceOnly"; kept, not interpreted here.
    /// @throws std::invalid_argument when the name is empty or declared already.
    ORVIConfigurationBuilder& addServicePublisher(
        std::string name, std::string kind, std::set<std::string> connections,
        std::set<std::string> dependencies, std::string description, std::string scope);

    /// Attach a service interface to a declared publisher.
    ///
    /// @param publisher name of a declared publisher.
    /// @param alias the name under which the publisher knows the interface.
    /// @param serviceInterface the interface's name.
    /// @param settings further settings; kept, not interpreted here.
    /// @throws std::invalid_argument when no such publisher is declared or the interface's name is
    ///         empty.
    ORVIConfigurationBuilder& addServiceInterfaceToServicePublisher(
        const std::string& publisher, std::string alias, std::string serviceInterface,
        boost::property_tree::ptree settings);

    /// Put the configuration in force: interfaces that it names and that a registered provider
    /// describes are reachable when this returns, except where another thread is just making them
    /// so. Each call makes a configuration of its own.
    ///
    /// Exceptions of the service framework pass unchanged; nothing is in force then.
    ORVIConfiguration build() const;

private:
    std::unique_ptr<ConfigurationDescription> description;
};

} // namespace agent::orvi::frameworksetup
