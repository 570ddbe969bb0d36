#pragma once

#include <orvi/core/ServiceInterface.hpp>
#include <orvi/platform_export.hpp>

#include <string>
#include <vector>

namespace agent::orvi::core {

/// Collects metadata and methods and describes them as a service interface.
///
/// Thread safety: thread-compatible.
class ORVI_PLATFORM_EXPORT MultiMethodInterfaceBuilder {
public:
    /// Start the description of the interface `name`.
    MultiMethodInterfaceBuilder(std::string name, APIVersion version);

    /// Record one metadata pair. Look-ups see it as a service property, whose key is `key` after
    /// the prefix "orvi.serviceproperty.".
    ///
    /// @throws std::invalid_argument when the key is empty or recorded already, in whatever case.
    MultiMethodInterfaceBuilder& addMetadata(std::string key, std::string value);

    /// Record one callable method under its name.
    ///
    /// @throws std::invalid_argument when the name is empty or taken already.
    MultiMethodInterfaceBuilder& addMethod(ExportedFunction method);

    /// Describe what was recorded so far. May be called repeatedly.
    ServiceInterface build() const;

private:
    std::string name;
    APIVersion version;
    ServiceInterface::Metadata metadata;
    std::vector<ExportedFunction> methods;
};

} // namespace agent::orvi::core
