#include "streams/StreamDescription.hpp"

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/uuid/string_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <charconv>
#include <stdexcept>

namespace agent::orvi::tool {
namespace {

constexpr std::string_view namePrefix = "orviStreambuf_";

std::string
text(const cppmicroservices::ServiceReferenceBase& reference, const std::string& property) {
    const auto value = reference.GetProperty(property);
    const auto* const found = cppmicroservices::any_cast<std::string>(&value);
    return found == nullptr ? std::string() : *found;
}

bool offers(const cppmicroservices::ServiceReferenceBase& reference, const std::string& operation) {
    return text(reference, "orvi.serviceproperty.has" + operation) == "true";
}

std::optional<std::uint64_t> number(const std::string& text) {
    std::uint64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, value);
    if (parsed.ec != std::errc() || parsed.ptr != end) {
        return std::nullopt;
    }
    return value;
}

} // namespace

std::string serviceName(const boost::uuids::uuid& uuid) {
    return std::string(namePrefix) + boost::uuids::to_string(uuid);
}

std::optional<StreamDescription> describe(const cppmicroservices::ServiceReferenceBase& reference) {
    const std::string name = text(reference, "orvi.servicename");
    if (!name.starts_with(namePrefix)) {
        return std::nullopt;
    }
    const auto uuid = parseUuid(name.substr(namePrefix.size()));
    if (!uuid) {
        return std::nullopt;
    }
    return StreamDescription{
        .uuid = *uuid,
        .readable = offers(reference, "Read"),
        .writable = offers(reference, "Write"),
        .seekable = offers(reference, "SeekOff") && offers(reference, "SeekPos"),
        .bufferSize = number(text(reference, "orvi.serviceproperty.bufferSize")),
        .endpoint = text(reference, "endpoint.id")};
}

std::string directionOf(const StreamDescription& stream) {
    if (stream.readable) {
        return stream.writable ? "read-write" : "read";
    }
    return stream.writable ? "write" : "none";
}

std::optional<boost::uuids::uuid> parseUuid(const std::string& text) {
    try {
        const auto uuid = boost::uuids::string_generator()(text);
        if (boost::uuids::to_string(uuid) == boost::algorithm::to_lower_copy(text)) {
            return uuid;
        }
    } catch (const std::runtime_error&) {
        return std::nullopt;
    }
    return std::nullopt;
}

} // namespace agent::orvi::tool
