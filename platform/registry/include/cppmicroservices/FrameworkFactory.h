#pragma once

#include "cppmicroservices/Any.h"

#include <map>
#include <ostream>
#include <string>
#include <unordered_map>

namespace cppmicroservices {

class Framework;

/// Framework properties by name; see Constants for those with a meaning.
using FrameworkConfiguration = std::unordered_map<std::string, Any>;

/// Makes frameworks. Any number of them can exist in a process, independent of each other.
/// Thread-safe.
class ORVI_PLATFORM_EXPORT FrameworkFactory {
public:
    /// Makes a framework, which is not yet initialised.
    /// @param logger Where diagnostic lines go if Constants::FRAMEWORK_LOG is set; null selects
    /// `std::clog`.
    /// @throws BadAnyCastException if Constants::FRAMEWORK_LOG is given and no bool.
    Framework
    NewFramework(FrameworkConfiguration const& configuration, std::ostream* logger = nullptr);
    Framework NewFramework();

    /// Makes a framework from an ordered map; give a FrameworkConfiguration instead.
    [[deprecated]] Framework
    NewFramework(std::map<std::string, Any> const& configuration, std::ostream* logger = nullptr);
};

} // namespace cppmicroservices
