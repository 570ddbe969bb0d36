#pragma once

#include <cppmicroservices/ServiceReference.h>

#include <boost/uuid/uuid.hpp>

#include <cstdint>
#include <optional>
#include <string>

namespace agent::orvi::tool {

/// What is known of a stream without calling it. A value.
struct StreamDescription {
    boost::uuids::uuid uuid{};
    bool readable = false;
    bool writable = false;
    bool seekable = false;
    std::optional<std::uint64_t> bufferSize; ///< Nothing when the publisher says no number.
    std::string endpoint;                    ///< The endpoint's name and the service's number.
};

/// Return the name under which a stream is a service.
std::string serviceName(const boost::uuids::uuid& uuid);

/// Read a description from the properties of a service.
///
/// @return nothing when these are not the properties of a stream. They come from other processes.
std::optional<StreamDescription> describe(const cppmicroservices::ServiceReferenceBase& reference);

/// Return "read", "write", "read-write" or "none".
std::string directionOf(const StreamDescription& stream);

/// Read the text form of a UUID, which is the only one that is taken.
std::optional<boost::uuids::uuid> parseUuid(const std::string& text);

} // namespace agent::orvi::tool
