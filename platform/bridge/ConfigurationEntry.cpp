#include "bridge/ConfigurationEntry.hpp"

#include <utility>

namespace agent::orvi::frameworksetup {

ConfigurationEntry::ConfigurationEntry(
    core::detail::InterfaceDirectory& directory, ConfigurationDescription description)
    : directory(directory)
    , description(std::move(description)) {
    for (const ServicePublisher& publisher : this->description.publishers) {
        for (const PublishedInterface& published : publisher.interfaces) {
            interfaceNames.insert(published.name);
        }
    }
    auto next = interfaceNames.begin();
    try {
        for (; next != interfaceNames.end(); ++next) {
            directory.configure(*next);
        }
    } catch (...) {
        while (next != interfaceNames.begin()) {
            directory.unconfigure(*--next);
        }
        throw;
    }
}

ConfigurationEntry::~ConfigurationEntry() {
    for (const std::string& name : interfaceNames) {
        directory.unconfigure(name);
    }
}

} // namespace agent::orvi::frameworksetup
