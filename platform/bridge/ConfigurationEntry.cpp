#include "bridge/ConfigurationEntry.hpp"

#include <utility>

namespace agent::orvi::frameworksetup {

ConfigurationEntry::ConfigurationEntry(
    core::detail::InterfaceDirectory& directory, ConfigurationDescription description)
    : directory(directory)
    , description(std::move(description)) {
    for (const ServicePublisher& publisher : this->description.publishers) {
        const bool everywhere = publisher.connections.contains("connectToAllEndpoints");
        for (const PublishedInterface& published : publisher.interfaces) {
            interfaces[published.name] |= everywhere;
        }
    }
    auto next = interfaces.begin();
    try {
        for (; next != interfaces.end(); ++next) {
            directory.configure(next->first, next->second);
        }
    } catch (...) {
        while (next != interfaces.begin()) {
            --next;
            directory.unconfigure(next->first, next->second);
        }
        throw;
    }
}

ConfigurationEntry::~ConfigurationEntry() {
    for (const auto& [name, everywhere] : interfaces) {
        directory.unconfigure(name, everywhere);
    }
}

} // namespace agent::orvi::frameworksetup
