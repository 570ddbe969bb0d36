#pragma once

#include "bridge/InterfaceDirectory.hpp"

#include <boost/property_tree/ptree.hpp>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace agent::orvi::frameworksetup {

/// A service interface as a publisher was told to publish it.
struct PublishedInterface {
    std::string alias;
    std::string name;
    boost::property_tree::ptree settings;
};

/// A service publisher as it was declared.
struct ServicePublisher {
    std::string name;
    std::string kind;
    std::set<std::string> connections;
    std::set<std::string> dependencies;
    std::string description;
    std::string scope;
    std::vector<PublishedInterface> interfaces;
};

/// What an ORVIConfigurationBuilder has collected.
struct ConfigurationDescription {
    std::string name;
    std::vector<ServicePublisher> publishers;
};

/// A configuration in force, for as long as it lives.
///
/// Thread safety: thread-compatible.
class ConfigurationEntry {
public:
    /// Put a configuration in force. What the registry throws passes unchanged.
    ConfigurationEntry(
        core::detail::InterfaceDirectory& directory, ConfigurationDescription description);

    /// End it. Blocks as InterfaceDirectory::unconfigure does.
    ~ConfigurationEntry();

    ConfigurationEntry(const ConfigurationEntry&) = delete;
    ConfigurationEntry& operator=(const ConfigurationEntry&) = delete;

private:
    core::detail::InterfaceDirectory& directory;
    ConfigurationDescription description;
    std::map<std::string, bool> interfaces; // by name: whether other processes may reach it
};

} // namespace agent::orvi::frameworksetup
