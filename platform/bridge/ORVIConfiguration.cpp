#include <orvi/frameworksetup/ORVIConfiguration.hpp>

#include "bridge/ConfigurationEntry.hpp"

#include <utility>

namespace agent::orvi::frameworksetup {

ORVIConfiguration::ORVIConfiguration() noexcept = default;

ORVIConfiguration::ORVIConfiguration(std::unique_ptr<ConfigurationEntry> entry) noexcept
    : entry(std::move(entry)) {}

ORVIConfiguration::ORVIConfiguration(ORVIConfiguration&& other) noexcept = default;

ORVIConfiguration& ORVIConfiguration::operator=(ORVIConfiguration&& other) noexcept = default;

ORVIConfiguration::~ORVIConfiguration() = default;

void ORVIConfiguration::reset() noexcept {
    entry.reset();
}

} // namespace agent::orvi::frameworksetup
