#pragma once

#include <orvi/platform_export.hpp>

#include <memory>

namespace agent::orvi::frameworksetup {

class ConfigurationEntry;

/// A framework configuration in force: the publishers it names make the service interfaces they
/// list reachable.
///
/// Made by `ORVIConfigurationBuilder::build`; a default-constructed or moved-from one configures
/// nothing. It ends with `reset`, assignment or destruction.
///
/// Thread safety: thread-compatible.
class ORVI_PLATFORM_EXPORT ORVIConfiguration {
public:
    /// Configure nothing.
    ORVIConfiguration() noexcept;

    /// Take over what `other` configures.
    ORVIConfiguration(ORVIConfiguration&& other) noexcept;

    /// End the configuration as `reset` does, then take over what `other` configures.
    ORVIConfiguration& operator=(ORVIConfiguration&& other) noexcept;

    ORVIConfiguration(const ORVIConfiguration&) = delete;
    ORVIConfiguration& operator=(const ORVIConfiguration&) = delete;

    /// End the configuration as `reset` does.
    ~ORVIConfiguration();

    /// End the configuration.
    ///
    /// Interfaces that no other configuration names are closed: blocks until their calls in flight
    /// have finished, except those that this very thread is inside of. Nothing happens the second
    /// time.
    void reset() noexcept;

private:
    friend class ORVIConfigurationBuilder;
    explicit ORVIConfiguration(std::unique_ptr<ConfigurationEntry> entry) noexcept;

    std::unique_ptr<ConfigurationEntry> entry;
};

} // namespace agent::orvi::frameworksetup
