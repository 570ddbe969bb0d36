#include "terminal/Json.hpp"

#include <boost/uuid/uuid_io.hpp>

namespace agent::orvi::tool {

Json asJson(const StreamDescription& stream, const std::string& address) {
    Json object = {
        {"uuid", boost::uuids::to_string(stream.uuid)},
        {"direction", directionOf(stream)},
        {"read", stream.readable},
        {"write", stream.writable},
        {"seekable", stream.seekable},
        {"bufferSize", nullptr},
        {"endpoint", stream.endpoint},
        {"address", address}};
    if (stream.bufferSize) {
        object["bufferSize"] = *stream.bufferSize;
    }
    return object;
}

std::string dump(const Json& value) {
    return value.dump(-1, ' ', true, Json::error_handler_t::replace);
}

} // namespace agent::orvi::tool
