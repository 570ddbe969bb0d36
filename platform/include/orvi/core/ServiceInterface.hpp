#pragma once

#include <orvi/core/APIVersion.hpp>
#include <orvi/core/ExportedFunction.hpp>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace agent::orvi::core {

/// The description of a service: name, version, metadata and methods, each in the order in which
/// it was added. A value; made by `MultiMethodInterfaceBuilder`.
class ServiceInterface {
public:
    /// Keys and values, in the order in which they were added.
    using Metadata = std::vector<std::pair<std::string, std::string>>;

    /// Put a description together.
    ServiceInterface(
        std::string name, APIVersion version, Metadata metadata,
        std::vector<ExportedFunction> methods)
        : interfaceName(std::move(name))
        , apiVersion(version)
        , metadataEntries(std::move(metadata))
        , exportedMethods(std::move(methods)) {}

    /// Return the name under which look-ups find the service.
    const std::string& name() const noexcept { return interfaceName; }

    /// Return the version of the interface.
    const APIVersion& version() const noexcept { return apiVersion; }

    /// Return what look-ups learn about the service.
    const Metadata& metadata() const noexcept { return metadataEntries; }

    /// Return the methods that can be invoked.
    const std::vector<ExportedFunction>& methods() const noexcept { return exportedMethods; }

    /// Return the method called `name`, or null.
    const ExportedFunction* findMethod(const std::string& name) const noexcept {
        const auto found = std::find_if(
            exportedMethods.begin(), exportedMethods.end(),
            [&](const ExportedFunction& method) { return method.name() == name; });
        return found == exportedMethods.end() ? nullptr : &*found;
    }

private:
    std::string interfaceName;
    APIVersion apiVersion;
    Metadata metadataEntries;
    std::vector<ExportedFunction> exportedMethods;
};

} // namespace agent::orvi::core
